// One installation from settled InstallSettings.
#pragma once

// Clean-up of an earlier installation, files, journal, group and shortcuts,
// registry, settings import, product self-registration. Always returns 0.
int RunInstall();
