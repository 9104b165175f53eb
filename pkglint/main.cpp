// pkglint PACKAGE-FOLDER — checks a package before it ships (package_lint.h).
// Prints a line a finding, "QmkUnInst.log:12: error: ...", as UTF-8 on
// standard output and the count on standard error. Exit code 1 when there is
// an error, 0 otherwise (warnings only), 2 when called wrongly.
#include <windows.h>

#include <string>

#include "pkglint/package_lint.h"

namespace {

enum class LintExit : int { kClean = 0, kErrors = 1, kUsage = 2 };

void Print(DWORD stream, const std::wstring& text) {
  int length = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                     nullptr, nullptr);
  std::string bytes(static_cast<size_t>(length), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(), length, nullptr,
                        nullptr);
  bytes += '\n';
  DWORD written = 0;
  ::WriteFile(::GetStdHandle(stream), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc != 2) {
    Print(STD_ERROR_HANDLE, L"usage: pkglint PACKAGE-FOLDER");
    return static_cast<int>(LintExit::kUsage);
  }
  std::wstring folder = argv[1];
  while (folder.size() > 1 && (folder.back() == L'\\' || folder.back() == L'/')) folder.pop_back();
  size_t errors = 0, warnings = 0;
  for (const Finding& finding : LintPackage(folder)) {
    const bool error = finding.severity == Severity::kError;
    (error ? errors : warnings) += 1;
    std::wstring where = finding.file + (finding.line ? L":" + std::to_wstring(finding.line) : L"");
    Print(STD_OUTPUT_HANDLE, where + (error ? L": error: " : L": warning: ") + finding.text);
  }
  Print(STD_ERROR_HANDLE, L"pkglint: " + std::to_wstring(errors) + L" error(s), " + std::to_wstring(warnings) +
                              L" warning(s) in " + folder);
  return static_cast<int>(errors ? LintExit::kErrors : LintExit::kClean);
}
