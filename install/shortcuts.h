// The program group and the shortcuts to the product, each journalled in the
// installation's journal.
#pragma once
#include <windows.h>
#include <string>

// Creates and saves one shortcut; on success appends "Shell Link: " + linkPath
// to the journal. A target in double quotes is stored without them.
// arguments and workingFolder may be null; showCommand 1 is left unset.
// Returns the result of the last COM call (a failure when nothing was saved).
HRESULT CreateShellLink(const std::wstring& target, const std::wstring& linkPath,
                        const std::wstring& description, int showCommand,
                        const wchar_t* arguments, const wchar_t* workingFolder);
// The program group (journalled as "Made Dir: ") with the program and help
// shortcuts, and the desktop and start-up shortcuts as installSettings asks.
// An all-users type without an all-users programs folder becomes current-user
// (InstallType::kCurrentUser) for the rest of the run.
void CreateGroupAndShortcuts();
