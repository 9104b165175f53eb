// Process exit codes. Stable: scripts that deploy the product test them.
#pragma once

enum ExitCode : int {
  kExitOk = 0,               // setup finished (or nothing to do), removal finished,
                             // uninstaller handed over to the removal worker
  kExitCancelled = 1,        // wizard cancelled; damaged package
  kExitDeclined = 2,         // uninstall confirmation or close question declined
  kExitWorkerNotStarted = 3, // the removal worker could not be started
};
