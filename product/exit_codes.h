// Process exit codes. Stable: scripts that deploy the product test them.
//
// Outcome                                                   Code
// setup finished, or the user declined the version prompt   0 kExitOk
// removal worker finished                                    0 kExitOk
// uninstaller handed over to the removal worker              0 kExitOk
// wizard cancelled                                           1 kExitCancelled
// damaged package (ended by the install-mode entry)          1 kExitCancelled
// uninstall confirmation ("-v") declined                     2 kExitDeclined
// setup: question to close running copies declined           2 kExitDeclined
// uninstaller: the removal worker could not be started       3 kExitWorkerNotStarted
// single file: damaged or cut (as a damaged package)         1 kExitCancelled
// single file: no private folder, a file not unpacked, or
//   setup.exe not started                                    4 kExitNotUnpacked
// single file: otherwise setup's own code
//
// The setup role's code is the install-mode entry's own value (0 or 1).
#pragma once

enum ExitCode : int {
  kExitOk = 0,
  kExitCancelled = 1,
  kExitDeclined = 2,
  kExitWorkerNotStarted = 3,
  kExitNotUnpacked = 4,
};
