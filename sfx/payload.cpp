#include "sfx/payload.h"

#include <cstring>

#include "sfx/payload_format.h"

namespace {

// Offsets inside the optional header: the number of data directories and the
// certificate table's entry, for PE32 and PE32+ images.
struct OptionalHeaderLayout {
  WORD magic;
  DWORD directoryCountAt;
  DWORD securityEntryAt;
};
constexpr OptionalHeaderLayout kLayouts[] = {
    {IMAGE_NT_OPTIONAL_HDR32_MAGIC, 92, 96 + 8 * IMAGE_DIRECTORY_ENTRY_SECURITY},
    {IMAGE_NT_OPTIONAL_HDR64_MAGIC, 108, 112 + 8 * IMAGE_DIRECTORY_ENTRY_SECURITY},
};
constexpr DWORD kLargestOptionalHeader = 240;

// Where the stub's data ends: the file's end, or the start of the certificate
// table that signing appends. False when the headers are not a PE image's or
// the table does not end the file (something cut off or added after signing).
bool DataEnd(HANDLE file, uint64_t fileSize, uint64_t& end) {
  IMAGE_DOS_HEADER dos = {};
  if (!ReadAt(file, 0, &dos, sizeof dos) || dos.e_magic != IMAGE_DOS_SIGNATURE) return false;
  DWORD signature = 0;
  IMAGE_FILE_HEADER header = {};
  const uint64_t headerAt = static_cast<uint64_t>(static_cast<DWORD>(dos.e_lfanew));
  if (!ReadAt(file, headerAt, &signature, sizeof signature) || signature != IMAGE_NT_SIGNATURE ||
      !ReadAt(file, headerAt + sizeof signature, &header, sizeof header))
    return false;
  BYTE optional[kLargestOptionalHeader] = {};
  const DWORD optionalSize = header.SizeOfOptionalHeader;
  if (optionalSize < sizeof(WORD) || optionalSize > sizeof optional ||
      !ReadAt(file, headerAt + sizeof signature + sizeof header, optional, optionalSize))
    return false;
  WORD magic = 0;
  std::memcpy(&magic, optional, sizeof magic);
  for (const OptionalHeaderLayout& layout : kLayouts) {
    if (layout.magic != magic) continue;
    DWORD directories = 0;
    IMAGE_DATA_DIRECTORY security = {};
    if (layout.securityEntryAt + sizeof security > optionalSize) return false;
    std::memcpy(&directories, optional + layout.directoryCountAt, sizeof directories);
    if (directories > IMAGE_DIRECTORY_ENTRY_SECURITY)
      std::memcpy(&security, optional + layout.securityEntryAt, sizeof security);
    if (security.Size == 0) {
      end = fileSize;
      return true;
    }
    end = security.VirtualAddress;  // a file offset, for this one table
    return end + security.Size == fileSize;
  }
  return false;
}

}  // namespace

bool FindVerifiedPayload(HANDLE file, CryptoProvider& crypto, PayloadLocation& payload) {
  LARGE_INTEGER size = {};
  if (!::GetFileSizeEx(file, &size)) return false;
  uint64_t end = 0;
  PayloadTrailer trailer = {};
  if (!DataEnd(file, static_cast<uint64_t>(size.QuadPart), end) || end < sizeof trailer ||
      !ReadAt(file, end - sizeof trailer, &trailer, sizeof trailer) ||
      std::memcmp(trailer.magic, kTrailerMagic, sizeof kTrailerMagic) != 0)
    return false;
  // The cabinet lies behind the headers and ends, but for the padding, at the trailer.
  const uint64_t trailerAt = end - sizeof trailer;
  if (trailer.cabinetOffset < sizeof(IMAGE_DOS_HEADER) || trailer.cabinetOffset > trailerAt ||
      trailer.cabinetSize > trailerAt - trailer.cabinetOffset ||
      trailerAt - trailer.cabinetOffset - trailer.cabinetSize >= kPayloadAlignment)
    return false;
  BYTE digest[kSha256Bytes] = {};
  if (!crypto.Sha256(file, trailer.cabinetOffset, trailer.cabinetSize, &trailer, kTrailerHashedBytes, digest) ||
      std::memcmp(digest, trailer.sha256, sizeof digest) != 0)
    return false;
  payload.offset = trailer.cabinetOffset;
  payload.size = trailer.cabinetSize;
  payload.unpackedSize = trailer.unpackedSize;
  return true;
}
