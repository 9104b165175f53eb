// Deferred file operations (performed at the next start of Windows) and
// child processes.
#pragma once
#include <windows.h>

// Schedules path for deletion at the next restart (pending renames, else the
// WININIT.INI [rename] section). Non-zero on success.
BOOL DeleteAtReboot(const wchar_t* path);
// Schedules source to be moved over target at the next restart; the fallback
// schedules deletion of source only. Stores its result in restartNeeded.
BOOL ReplaceAtReboot(const wchar_t* source, const wchar_t* target);
// Starts application (a full path: nothing is searched for) with commandLine
// (at most 519 characters are passed on) in workingFolder (installDir when
// null); waits up to timeoutMs (0: no wait). Non-zero when the process was
// started.
BOOL RunAndWait(const wchar_t* application, const wchar_t* commandLine, const wchar_t* workingFolder,
                DWORD timeoutMs);

// The fallback of both: adds "NUL=" + path to WININIT.INI's [rename] section,
// keeping its lines. Non-zero when the section was written. A section that
// would pass 32768 bytes ends the process at once.
BOOL AppendWininitDeletion(const wchar_t* path);
