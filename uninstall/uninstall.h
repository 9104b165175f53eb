// Removal of an installation over its journals and the product's known places.
#pragma once
#include <string>

// Removes the installation in installFolder (ending in a backslash): the
// product's own unregistration, registry clean-up and association restore,
// both journals ("install.log" first), the journal itself, the x64, x32 and
// installation folders, and the product's shortcuts and program group in the
// shared shell folders and in every profile under HKEY_USERS. Silent; whatever
// cannot go now is scheduled for deletion at the next restart.
void UninstallProcedure(const std::wstring& installFolder);
