// Checks a package folder before it ships, the way setup will meet it: the
// install script is read by installlog's own reader, line for line as setup
// reads it, and its names and patterns are looked up with the same find calls
// that setup's copy pass makes.
#pragma once
#include <string>
#include <vector>

enum class Severity { kWarning, kError };

struct Finding {
  Severity severity;
  std::wstring file;  // in the package: "QmkUnInst.log", "agreement.txt", ...
  size_t line;        // physical line, from 1; 0 for the file as a whole
  std::wstring text;
};

// Every finding, file by file, lines in order. Never fails: whatever cannot
// be read is itself a finding.
std::vector<Finding> LintPackage(const std::wstring& packageDir);
