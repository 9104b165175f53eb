// The package carried behind the stub's own image (layout: payload_format.h).
#pragma once
#include <windows.h>

#include <cstdint>

#include "sfx/crypto.h"

struct PayloadLocation {
  uint64_t offset = 0;        // of the cabinet in the file
  uint64_t size = 0;          // of the cabinet
  uint64_t unpackedSize = 0;  // of all files unpacked
};

// Finds the cabinet in file (open for reading) and checks it against the
// trailer's digest. False for a truncated, damaged or foreign file, and when
// the digest cannot be computed; payload is then left unchanged.
bool FindVerifiedPayload(HANDLE file, CryptoProvider& crypto, PayloadLocation& payload);
