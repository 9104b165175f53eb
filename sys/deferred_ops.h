// Deferred file operations, performed at the next start of Windows: what the
// install and the removal cannot do now because a file is in use.
#pragma once
#include <windows.h>

// Schedules path for deletion at the next restart (pending renames, else the
// WININIT.INI [rename] section). Non-zero on success.
BOOL DeleteAtReboot(const wchar_t* path);
// Schedules source to be moved over target at the next restart; the fallback
// schedules deletion of source only. Stores its result in restartNeeded.
BOOL ReplaceAtReboot(const wchar_t* source, const wchar_t* target);

// The fallback of both: adds "NUL=" + path to WININIT.INI's [rename] section,
// keeping its lines. Non-zero when the section was written. A section that
// would pass 32768 bytes ends the process at once.
BOOL AppendWininitDeletion(const wchar_t* path);
