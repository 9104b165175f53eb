// InstallSettings: the one process-wide record that the setup role fills and
// the install run consumes. Process-wide state lives here and nowhere else.
#pragma once
#include <optional>
#include <string>

struct VersionQuad {
  unsigned major = 0, minor = 0, release = 0, build = 0;
};

// ((major*100 + minor)*100 + release)*100 + build, as unsigned 32-bit
// (parts above 99 spill into the next part; that is accepted).
unsigned VersionNumber(const VersionQuad& v);

struct InstallSettings {
  int installMode = 1;      // 0 wizard, 1 unattended, 2 unattended then the finished page
  int installType = 1;      // 0 current user, 1 all users, 2 portable
  int desktopIcon = 1;
  int autoStart = 0;
  int runAfter = 0;
  int restartNeeded = 0;    // set by ReplaceAtReboot
  std::wstring installDir;  // no trailing backslash
  std::wstring sourceDir;   // folder of the running setup executable
  std::wstring groupName;
  int defaultDirUsed = 0;
  VersionQuad newVersion;
  std::wstring sfxFolder;   // "-sfxname=" folder
};

extern InstallSettings installSettings;

// Options for deployment tools; each is opt-in and none changes a run that
// does not give it.
struct DeploymentOptions {
  std::wstring logPath;                 // "-log=<file>": the action log
  bool suppressMessageBoxes = false;    // "-suppressmsgboxes": default answers
  bool noRestart = false;               // "-norestart": never restart Windows
  std::optional<int> restartExitCode;   // "-restartexitcode=N": a pending restart ends with N
};

extern DeploymentOptions deploymentOptions;
