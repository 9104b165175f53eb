#include "uninstall/registry_cleanup.h"

#include <gtest/gtest.h>
#include <shlobj.h>

#include <utility>

#include "sys/registry.h"
#include "tests/support/test_support.h"

namespace {

constexpr wchar_t kFileExts[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\FileExts";
std::wstring Ext(const std::wstring& key) { return kFileExts + (L"\\" + key); }

int notices = 0;
void WINAPI CountNotice(LONG eventId, UINT, LPCVOID, LPCVOID) { notices += eventId == SHCNE_ASSOCCHANGED; }

void Put(const std::wstring& key, const wchar_t* name, const wchar_t* text) {
  ASSERT_TRUE(WriteRegString(HKEY_CURRENT_USER, Ext(key).c_str(), name, text));
}
std::wstring Get(const std::wstring& key, const wchar_t* name) {
  CKey open;
  wchar_t text[MAX_PATH] = {};
  DWORD size = sizeof text - sizeof(wchar_t);
  if (open.Open(HKEY_CURRENT_USER, Ext(key).c_str(), KEY_READ) != ERROR_SUCCESS) return L"<no key>";
  const LONG read = ::RegQueryValueExW(open.get(), name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size);
  return read == ERROR_SUCCESS ? text : L"<none>";
}

}  // namespace

// Below Windows 6 the product's handlers go back to what it saved, or go; from
// 6 on the product's user choice goes instead. Other programs' types are left,
// the saved "QmkviewOld" values go everywhere, and the change notice comes once.
TEST(RestoreFileAssociations, BySystemVersion) {
  qmtest::SettingsRestorer restorer;
  const ShellChangeNotifyFn savedNotify = std::exchange(pShellChangeNotify, CountNotice);
  const wchar_t* const used[] = {L".bmp", L".gif", L".tif", L".png", L".jpg"};
  CKey fileExts;
  const bool hadFileExts = fileExts.Open(HKEY_CURRENT_USER, kFileExts, KEY_READ) == ERROR_SUCCESS;
  fileExts.Close();
  for (DWORD major : {5, 6, 10}) {
    SCOPED_TRACE(major);
    const bool vista = major >= 6;
    qmtest::PlayWindows(major, 0);
    for (const wchar_t* ext : used) ::RegDeleteTreeW(HKEY_CURRENT_USER, Ext(ext).c_str());
    notices = 0;
    Put(L".gif", L"Application", L"C:\\Program Files\\Quillmark 8\\Qmkview8.exe");
    Put(L".bmp", L"Application", L"\"C:\\Q\\Qmkview8.exe\" \"%1\"");
    Put(L".bmp", L"QmkviewOld", L"mspaint.exe");
    Put(L".tif", L"Application", L"viewer.exe");
    Put(L".tif", L"QmkviewOld", L"stale.exe");
    Put(L".png\\UserChoice", L"Progid", L"Applications\\Qmkview8.exe");
    Put(L".png", L"QmkviewOld", L"pngview.exe");
    Put(L".jpg\\UserChoice", L"Progid", L"Applications\\Other.exe");

    RestoreFileAssociations();
    EXPECT_EQ(Get(L".gif", L"Application"), vista ? L"C:\\Program Files\\Quillmark 8\\Qmkview8.exe" : L"<none>");
    EXPECT_EQ(Get(L".bmp", L"Application"), vista ? L"\"C:\\Q\\Qmkview8.exe\" \"%1\"" : L"mspaint.exe");
    EXPECT_EQ(Get(L".tif", L"Application"), L"viewer.exe");
    EXPECT_EQ(Get(L".png\\UserChoice", L"Progid"), vista ? L"<no key>" : L"Applications\\Qmkview8.exe");
    EXPECT_EQ(Get(L".jpg\\UserChoice", L"Progid"), L"Applications\\Other.exe");
    for (const wchar_t* ext : {L".bmp", L".tif", L".png"}) EXPECT_EQ(Get(ext, L"QmkviewOld"), L"<none>");
    EXPECT_EQ(notices, 1);
  }
  for (const wchar_t* ext : used) ::RegDeleteTreeW(HKEY_CURRENT_USER, Ext(ext).c_str());
  if (!hadFileExts) ::RegDeleteTreeW(HKEY_CURRENT_USER, kFileExts);
  pShellChangeNotify = savedNotify;
}
