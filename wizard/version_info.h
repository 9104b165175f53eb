// The four-part file version of an executable, from its version resource.
#pragma once
#include <string>

#include "product/settings.h"

// major.minor from the most significant file-version double word,
// release.build from the least significant one; all 0 when the file has no
// version information or cannot be read.
VersionQuad ReadFileVersion(const std::wstring& path);
