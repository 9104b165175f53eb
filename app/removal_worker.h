// The uninstaller's hand-over to a temporary copy of itself, and that copy's
// work as the removal worker.
#pragma once
#include <string>
#include <vector>
#include <windows.h>

// Copies the running executable to a "uni" temporary file and replaces the
// process by it ("-delself" and the uninstaller's path). Returns only when
// the start failed, with the failing result.
INT_PTR LaunchRemovalWorker();
// argv: the whole command line, argv[0] the program, argv[1] == "-delself",
// argv[2] the uninstaller's path. Does not return: the process exits with 0.
[[noreturn]] void RunRemovalWorker(const std::vector<std::wstring>& argv);
