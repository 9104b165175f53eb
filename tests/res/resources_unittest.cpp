#include <gtest/gtest.h>
#include <windows.h>

#include <map>
#include <set>
#include <string>

#include "product/product.h"
#include "res/resource.h"
#include "sys/handles.h"
#include "tests/support/test_support.h"

namespace {

// The built setup.exe beside the test program, mapped as data only (nothing of it runs).
HMODULE SetupModule() {
  static const UniqueModule module(
      ::LoadLibraryExW((qmtest::BinDir() + L"\\setup.exe").c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
  return module.get();
}

const void* ResourceData(UINT id, LPCWSTR type) {
  HRSRC found = ::FindResourceW(SetupModule(), MAKEINTRESOURCEW(id), type);
  return found ? ::LockResource(::LoadResource(SetupModule(), found)) : nullptr;
}

// Every numbered text of the program reads exactly as the users know it (the typos are wanted).
TEST(StringTableTest, TextsAreExact) {
  const std::map<UINT, std::wstring> expectedTexts = {
      {1, L"Quillmark 8"}, {2, L"Quillmark Setup"}, {3, L"Quillmark"}, {101, L"Quillmark 8 Help"},
      {4, L"%d instances of Quillmark are currently opened. ff you click \"Yes\" button, SETUP will try "
          L"to close them without saving any editing work you may have done. \n\nContinue installation?"},
      {6, L"This will completely uninstall Quillmark 8.\nDo you want to continue?"},
      {7, L"Please accept the License Agreement"}, {8, L"&Finish >"}, {21, L"Yes"}, {22, L"No"},
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
  };
  ASSERT_NE(nullptr, SetupModule());
  for (const auto& [id, expected] : expectedTexts) {
    SCOPED_TRACE(id);
    const wchar_t* text = nullptr;
    int length = ::LoadStringW(SetupModule(), id, reinterpret_cast<LPWSTR>(&text), 0);
    ASSERT_GT(length, 0);
    EXPECT_EQ(expected, std::wstring(text, length));
  }
}

// The wizard picture is an 8-bit palette bitmap sized for the frame's picture control,
// not a blank one; the setup icon comes in 16, 32 and 48 pixels with an alpha channel.
TEST(ArtTest, WizardBitmapAndSetupIcon) {
  const auto* bitmap = static_cast<const BITMAPINFOHEADER*>(ResourceData(IDB_WIZARD, RT_BITMAP));
  ASSERT_NE(nullptr, bitmap);
  EXPECT_EQ(192, bitmap->biWidth);
  EXPECT_EQ(396, bitmap->biHeight);  // bottom-up rows
  EXPECT_EQ(8, bitmap->biBitCount);
  const DWORD colours = bitmap->biClrUsed ? bitmap->biClrUsed : 256;
  const auto* palette = reinterpret_cast<const RGBQUAD*>(reinterpret_cast<const BYTE*>(bitmap) + bitmap->biSize);
  const BYTE* bits = reinterpret_cast<const BYTE*>(palette + colours);
  const RGBQUAD bottom = palette[bits[0]], top = palette[bits[192 * 395]];
  EXPECT_NE(0, memcmp(&bottom, &top, 3));  // the gradient runs downwards

#pragma pack(push, 2)
  struct Entry { BYTE width, height, colours, reserved; WORD planes, bitCount; DWORD bytes; WORD id; };
#pragma pack(pop)
  const auto* group = static_cast<const WORD*>(ResourceData(IDI_SETUP, RT_GROUP_ICON));
  ASSERT_NE(nullptr, group);
  std::set<std::pair<int, int>> sizesAndDepths;
  const auto* entries = reinterpret_cast<const Entry*>(group + 3);  // after reserved, type and count
  for (const Entry* entry = entries; entry < entries + group[2]; ++entry) {
    sizesAndDepths.insert({entry->width, entry->bitCount});
    EXPECT_NE(nullptr, ResourceData(entry->id, RT_ICON));
  }
  EXPECT_EQ((std::set<std::pair<int, int>>{{16, 32}, {32, 32}, {48, 32}}), sizesAndDepths);
}

}  // namespace
