#include "app/startup.h"

#include <windows.h>

#include <cwchar>

#include "product/product.h"
#include "sys/paths.h"

namespace {

constexpr wchar_t kSfxPrefix[] = L"-sfxname=";
constexpr size_t kSfxPrefixLength = sizeof kSfxPrefix / sizeof kSfxPrefix[0] - 1;

bool SameIgnoringCase(const std::wstring& text, const wchar_t* option) {
  return _wcsicmp(text.c_str(), option) == 0;
}

}  // namespace

std::wstring SfxFolderOf(const std::wstring& packagePath) {
  std::wstring path = packagePath;
  if (!path.empty() && path.back() == L'\\') path.pop_back();
  size_t lastBackslash = path.rfind(L'\\');
  if (lastBackslash == std::wstring::npos || lastBackslash == 0) return std::wstring();
  return path.substr(0, lastBackslash);
}

StartupOptions ScanOptions(const std::vector<std::wstring>& argv) {
  StartupOptions options;
  for (size_t i = 1; i < argv.size(); ++i) {
    const std::wstring& argument = argv[i];
    if (SameIgnoringCase(argument, L"-v")) {
      options.installMode = InstallMode::kInteractive;
      break;
    }
    if (SameIgnoringCase(argument, L"-s")) {
      options.silentSwitchSeen = true;
      continue;
    }
    if (SameIgnoringCase(argument, L"-sconf")) {
      options.installMode = InstallMode::kSilentThenFinishPage;
      break;
    }
    if (argument.compare(0, kSfxPrefixLength, kSfxPrefix) == 0)
      options.sfxFolder = SfxFolderOf(argument.substr(kSfxPrefixLength));
  }
  return options;
}

DeploymentOptions TakeDeploymentOptions(std::vector<std::wstring>& argv) {
  DeploymentOptions options;
  // "-name=value" with the name matched in any case; the value as given.
  auto valueOf = [](const std::wstring& argument, const wchar_t* name, std::wstring& value) {
    const size_t length = std::wcslen(name);
    if (argument.size() < length || _wcsnicmp(argument.c_str(), name, length) != 0) return false;
    value = argument.substr(length);
    return true;
  };
  std::vector<std::wstring> kept;
  std::wstring value;
  for (size_t i = 0; i < argv.size(); ++i) {
    const std::wstring& argument = argv[i];
    if (i == 0) {
      kept.push_back(argument);
    } else if (valueOf(argument, L"-log=", value)) {
      options.logPath = value;
    } else if (SameIgnoringCase(argument, L"-suppressmsgboxes")) {
      options.suppressMessageBoxes = true;
    } else if (SameIgnoringCase(argument, L"-norestart")) {
      options.noRestart = true;
    } else if (valueOf(argument, L"-restartexitcode=", value)) {
      wchar_t* end = nullptr;
      long code = std::wcstol(value.c_str(), &end, 10);
      if (!value.empty() && *end == L'\0') options.restartExitCode = static_cast<int>(code);
    } else {
      kept.push_back(argument);
    }
  }
  argv = std::move(kept);
  return options;
}

bool IsRemovalWorkerStart(const std::vector<std::wstring>& argv) {
  return argv.size() >= 3 && argv[1] == L"-delself";
}

bool ChooseSetupRole(const std::vector<std::wstring>& argv, const std::wstring& executablePath) {
  if (argv.size() >= 2 && SameIgnoringCase(argv[1], L"-install")) return true;
  return LowerCase(executablePath).find(kSetupExe) != std::wstring::npos;
}

InstallMode InstallModeForRole(bool setupRole, const StartupOptions& options) {
  if (setupRole && !options.silentSwitchSeen && options.installMode != InstallMode::kSilentThenFinishPage)
    return InstallMode::kInteractive;
  return options.installMode;
}

bool SkipCloseQuestion(const std::vector<std::wstring>& argv) {
  if (argv.size() < 3) return false;
  for (size_t i = 2; i < argv.size(); ++i)
    if (SameIgnoringCase(argv[i], L"/s") || SameIgnoringCase(argv[i], L"-s")) return true;
  return false;
}
