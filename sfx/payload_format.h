// Layout of the single file, shared by the stub and its builder (make_sfx.py):
//
//   the stub's own image
//   zero bytes up to a multiple of 8
//   the package, as one cabinet
//   zero bytes up to a multiple of 8
//   the trailer below (64 bytes)
//   once signed: the Authenticode certificate table, which the stub skips
//
// Everything ends on a multiple of 8, so signing adds no padding of its own.
#pragma once
#include <cstdint>

inline constexpr char kTrailerMagic[8] = {'Q', 'M', 'S', 'F', 'X', '0', '1', '\0'};
inline constexpr uint64_t kPayloadAlignment = 8;

#pragma pack(push, 1)
struct PayloadTrailer {
  char magic[8];
  uint64_t cabinetOffset;  // from the start of the file
  uint64_t cabinetSize;
  uint64_t unpackedSize;   // the package's file sizes added up, for the progress bar
  uint8_t sha256[32];      // over the cabinet, then over the 32 bytes above
};
#pragma pack(pop)
static_assert(sizeof(PayloadTrailer) == 64, "the builder writes 64 bytes");

// The part of the trailer that the digest covers.
inline constexpr uint32_t kTrailerHashedBytes = 32;
