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

// What installType holds. The record keeps the number (the folder page's
// radio buttons stand in this order); every test of it names the type.
enum class InstallType : int { kCurrentUser = 0, kAllUsers = 1, kPortable = 2 };

// What installMode holds (its number is what the action log shows). In the
// uninstaller and worker roles every mode but kInteractive is silent.
enum class InstallMode : int {
  kInteractive = 0,           // the wizard; the uninstaller asks first ("-v")
  kSilent = 1,                // unattended ("-s"; the uninstaller's default)
  kSilentThenFinishPage = 2,  // unattended, then the wizard's finished page ("-sconf")
};

struct InstallSettings {
  InstallMode installMode = InstallMode::kSilent;
  int installType = static_cast<int>(InstallType::kAllUsers);
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

  InstallType Type() const { return static_cast<InstallType>(installType); }
  void SetType(InstallType type) { installType = static_cast<int>(type); }
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
