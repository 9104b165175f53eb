// Helpers of the application tests: the system's pending file operations.
#pragma once
#include <optional>
#include <string>
#include <vector>

namespace apptest {

// Target queued in PendingFileRenameOperations for source (empty: deletion),
// or nothing when source is not queued.
std::optional<std::wstring> PendingTarget(const std::wstring& source);
// Takes the pairs with these sources out again, so that the next start of the
// prefix does not act on them.
void ForgetPending(const std::vector<std::wstring>& sources);

}  // namespace apptest
