#include "sfx/crypto.h"

#include <vector>

namespace {
constexpr DWORD kHashChunk = 1 << 20;
}

bool ReadAt(HANDLE file, uint64_t offset, void* buffer, DWORD size) {
  OVERLAPPED at = {};
  at.Offset = static_cast<DWORD>(offset);
  at.OffsetHigh = static_cast<DWORD>(offset >> 32);
  DWORD read = 0;
  return ::ReadFile(file, buffer, size, &read, &at) && read == size;
}

CryptoProvider::CryptoProvider() {
  // The AES provider is the one that knows SHA-256 (since XP SP3).
  ::CryptAcquireContextW(provider_.put(), nullptr, nullptr, PROV_RSA_AES,
                         CRYPT_VERIFYCONTEXT | CRYPT_SILENT);
}

bool CryptoProvider::Random(void* buffer, DWORD size) {
  return valid() && ::CryptGenRandom(provider_.get(), size, static_cast<BYTE*>(buffer));
}

bool CryptoProvider::Sha256(HANDLE file, uint64_t offset, uint64_t size, const void* extra,
                            DWORD extraSize, BYTE (&digest)[kSha256Bytes]) {
  UniqueCryptHash hash;
  if (!valid() || !::CryptCreateHash(provider_.get(), CALG_SHA_256, 0, 0, hash.put())) return false;
  std::vector<BYTE> chunk(kHashChunk);
  while (size > 0) {
    DWORD part = size < kHashChunk ? static_cast<DWORD>(size) : kHashChunk;
    if (!ReadAt(file, offset, chunk.data(), part) || !::CryptHashData(hash.get(), chunk.data(), part, 0))
      return false;
    offset += part;
    size -= part;
  }
  if (!::CryptHashData(hash.get(), static_cast<const BYTE*>(extra), extraSize, 0)) return false;
  DWORD length = kSha256Bytes;
  return ::CryptGetHashParam(hash.get(), HP_HASHVAL, digest, &length, 0) && length == kSha256Bytes;
}
