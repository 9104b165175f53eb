// SHA-256 and random numbers from the system's own cryptographic provider.
#pragma once
#include <windows.h>
#include <wincrypt.h>

#include <cstdint>

#include "sys/handles.h"

struct CryptProviderTraits {
  using type = HCRYPTPROV;
  static type Invalid() { return 0; }
  static void Close(type provider) { ::CryptReleaseContext(provider, 0); }
};
struct CryptHashTraits {
  using type = HCRYPTHASH;
  static type Invalid() { return 0; }
  static void Close(type hash) { ::CryptDestroyHash(hash); }
};
using UniqueCryptProvider = UniqueAny<CryptProviderTraits>;
using UniqueCryptHash = UniqueAny<CryptHashTraits>;

inline constexpr DWORD kSha256Bytes = 32;

class CryptoProvider {
 public:
  CryptoProvider();
  // False when the system offers no provider with SHA-256.
  bool valid() const { return provider_.valid(); }
  // False when no random bytes could be had (buffer then undefined).
  bool Random(void* buffer, DWORD size);
  // The SHA-256 of size bytes of file from offset, followed by the extra
  // bytes; false when the file cannot be read that far or the provider fails.
  bool Sha256(HANDLE file, uint64_t offset, uint64_t size, const void* extra, DWORD extraSize,
              BYTE (&digest)[kSha256Bytes]);

 private:
  UniqueCryptProvider provider_;
};

// Reads exactly size bytes at offset; false on a short read or an error.
bool ReadAt(HANDLE file, uint64_t offset, void* buffer, DWORD size);
