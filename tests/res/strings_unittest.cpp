#include <gtest/gtest.h>
#include <windows.h>

#include <map>
#include <set>
#include <string>

#include "app/product.h"
#include "tests/res/resource_module.h"

namespace {

// The texts the users see, exactly as they must read (the typos are wanted).
const std::map<UINT, std::wstring>& ExpectedTexts() {
  static const std::map<UINT, std::wstring> texts = {
      {1, L"Quillmark 8"},
      {2, L"Quillmark Setup"},
      {3, L"Quillmark"},
      {4, L"%d instances of Quillmark are currently opened. ff you click \"Yes\" button, SETUP will try "
          L"to close them without saving any editing work you may have done. \n\nContinue installation?"},
      {6, L"This will completely uninstall Quillmark 8.\nDo you want to continue?"},
      {7, L"Please accept the License Agreement"},
      {8, L"&Finish >"},
      {9, L"Quillmark 8 has been successfully installed."},
      {10, L"Press the Finish button to exit this installation."},
      {11, L"Do you really want to cancel Quillmark setup?"},
      {12, L"Select the folder where where Quillmark should be installed."},
      {13, L"You have entered and invalid folder name. Please correct.\nIf you want to create a new "
           L"folder, select its parent folder in the list and click \"Make New Foilder\" button."},
      {14, L"Quillmark ver. 8 can not be installed into the same folder where the older version is. "
           L"Please select a different folder."},
      {15, L"Setup of Quillmark aborted. Please close other instances of Quillmark manually, saving any "
           L"editing work you have done in them, then restart this setup program."},
      {16, L"Quillmark v. %d.%02d.%02d.%02d is already installed on this machine. You are trying to "
           L"install an older version %d.%02d.%02d.%02d .\n\nDo you still want to continue?"},
      {17, L"Quillmark ver. %d.%02d.%02d.%02d is already installed on this machine.\n\nWould you like to "
           L"run this setup again to select different options or repair the files?"},
      {18, std::wstring(L"This setup files are damaged, installation aborted.\n\nPlease download the "
                        L"product again from ") +
               kMakerHomePage + L" and re-try the setup."},
      {19, L"This folder already contains a previous copy of Quillmark 8. To upgrade or re-install that "
           L"copy, please do not change the destination folder."},
      {20, L"Quillmark 8 has been completely uninstalled from this computer.\n\nIf some Quillmark files "
           L"could not be deleted at this time, they will be removed upon the reboot of this computer."},
      {21, L"Yes"},
      {22, L"No"},
      {23, L"Error: Please enter a valid group name, minimum 3 letters"},
      {24, L"Error: Can not install shortcuts into this group, please select a different name."},
      {26, L"Click the Browse button and select a folder on a removable disk/USB key or network drive."},
      {27, L"Please click BROWSE button first and select the folder for portable installation."},
      {28, L"To run portable Quillmark, double-click 'StartQM8' icon located at:\n%s"},
      {30, L"It is necessary to restart your computer before using the product, otherwise it may not "
           L"work correctly."},
      {31, L"Restart the computer when I click \"Finish\""},
      {33, L"1 instance of Quillmark is currently opened. If you click \"Yes\" button, SETUP will try to "
           L"close it without saving any editing work you may have done. \n\nContinue installation?"},
      {101, L"Quillmark 8 Help"},
  };
  return texts;
}

// The whole text of one string, or nothing when the table lacks it.
bool LoadText(HMODULE module, UINT id, std::wstring* text) {
  const wchar_t* data = nullptr;
  int length = ::LoadStringW(module, id, reinterpret_cast<LPWSTR>(&data), 0);
  if (length <= 0 || !data) return false;
  text->assign(data, length);
  return true;
}

// Collects the ids of every string in the table: strings come in blocks of 16.
BOOL CALLBACK CollectBlock(HMODULE module, LPCWSTR, LPWSTR name, LONG_PTR param) {
  if (!IS_INTRESOURCE(name)) return TRUE;
  auto* ids = reinterpret_cast<std::set<UINT>*>(param);
  UINT first = (static_cast<UINT>(reinterpret_cast<ULONG_PTR>(name)) - 1) * 16;
  for (UINT id = first; id < first + 16; ++id) {
    std::wstring text;
    if (LoadText(module, id, &text)) ids->insert(id);
  }
  return TRUE;
}

// Every numbered text of the program reads exactly as the users know it.
TEST(StringTableTest, TextsAreExact) {
  HMODULE module = qmtest::ResourceModule();
  ASSERT_NE(nullptr, module);
  for (const auto& [id, expected] : ExpectedTexts()) {
    SCOPED_TRACE(id);
    std::wstring text;
    ASSERT_TRUE(LoadText(module, id, &text));
    EXPECT_EQ(expected, text);
  }
}

// The table holds these numbers and no others.
TEST(StringTableTest, NoMissingOrStrayStrings) {
  HMODULE module = qmtest::ResourceModule();
  ASSERT_NE(nullptr, module);
  std::set<UINT> ids;
  ::EnumResourceNamesW(module, RT_STRING, CollectBlock, reinterpret_cast<LONG_PTR>(&ids));
  std::set<UINT> expected;
  for (const auto& entry : ExpectedTexts()) expected.insert(entry.first);
  EXPECT_EQ(expected, ids);
}

}  // namespace
