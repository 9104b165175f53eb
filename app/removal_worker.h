// The uninstaller's hand-over to a temporary copy of itself, and that copy's
// work as the removal worker.
#pragma once
#include <string>
#include <vector>
#include <windows.h>

#include "product/settings.h"

// Copies the running executable to a "uni" temporary file and replaces the
// process by it ("-delself" and the uninstaller's path, "-s" unless
// installMode is interactive). Returns only when the start failed, with -1.
INT_PTR LaunchRemovalWorker();
// argv: the whole command line, argv[0] the program, argv[1] == "-delself",
// argv[2] the uninstaller's path. Does not return: the process exits with 0.
[[noreturn]] void RunRemovalWorker(const std::vector<std::wstring>& argv);

// The pieces of both, kept apart so that they can be checked on their own.

// path between double quotes when it holds a blank or a tab, else path.
std::wstring QuoteIfBlank(const std::wstring& path);
// The worker's command line: its own (temporary) path and the uninstaller's
// path, each quoted when it holds blanks, "-delself" between them, and "-s"
// behind unless installMode is interactive; joined by single blanks.
std::wstring RemovalWorkerCommandLine(const std::wstring& workerPath,
                                      const std::wstring& uninstallerPath, InstallMode installMode);
// Drive and folder of the uninstaller's path, ending in its separator; just
// the drive (or empty) when the path names no folder.
std::wstring InstallFolderOf(const std::wstring& uninstallerPath);
// The thumbnail extension to unregister from installFolder (which ends in a
// backslash): the one registration chose, ThumbnailExtensionIn.
std::wstring ThumbnailDllToUnregister(const std::wstring& installFolder, BOOL wow64, BOOL vistaOrLater);
// regsvr32.exe /s /u "dllPath"
std::wstring UnregisterCommandLine(const std::wstring& dllPath);
