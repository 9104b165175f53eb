#include <gtest/gtest.h>
#include <windows.h>

#include <set>

#include "res/resource.h"
#include "tests/res/resource_module.h"

namespace {

const void* ResourceData(HMODULE module, UINT id, LPCWSTR type, DWORD* size = nullptr) {
  HRSRC found = ::FindResourceW(module, MAKEINTRESOURCEW(id), type);
  if (!found) return nullptr;
  if (size) *size = ::SizeofResource(module, found);
  return ::LockResource(::LoadResource(module, found));
}

// 32-bit programs under Wine's WoW64 mode have only the null display driver,
// which cannot make bitmaps or icons: the loading checks run in 64-bit builds.
constexpr bool kCanDraw = sizeof(void*) == 8;

// The wizard picture is a 24-bit bitmap sized for the frame's picture control, not a blank one.
TEST(ArtTest, WizardBitmap) {
  HMODULE module = qmtest::ResourceModule();
  ASSERT_NE(nullptr, module);
  DWORD size = 0;
  const auto* info = static_cast<const BITMAPINFOHEADER*>(ResourceData(module, IDB_WIZARD, RT_BITMAP, &size));
  ASSERT_NE(nullptr, info);
  EXPECT_EQ(192, info->biWidth);
  EXPECT_EQ(396, info->biHeight);  // bottom-up rows
  EXPECT_EQ(24, info->biBitCount);
  EXPECT_EQ(static_cast<DWORD>(BI_RGB), info->biCompression);
  const DWORD stride = (192 * 3 + 3) & ~3u;
  ASSERT_GE(size, info->biSize + stride * 396);
  // The gradient runs downwards: the top and bottom rows differ.
  const BYTE* bits = reinterpret_cast<const BYTE*>(info) + info->biSize;
  EXPECT_NE(0, memcmp(bits, bits + stride * 395, 3));

  if (kCanDraw) {
    HANDLE image =
        ::LoadImageW(module, MAKEINTRESOURCEW(IDB_WIZARD), IMAGE_BITMAP, 0, 0, LR_CREATEDIBSECTION);
    ASSERT_NE(nullptr, image);
    BITMAP bitmap = {};
    ASSERT_NE(0, ::GetObjectW(image, sizeof bitmap, &bitmap));
    EXPECT_EQ(192, bitmap.bmWidth);
    EXPECT_EQ(396, bitmap.bmHeight);
    ::DeleteObject(image);
  }
}

#pragma pack(push, 2)
struct IconGroupEntry {
  BYTE width, height, colours, reserved;
  WORD planes, bitCount;
  DWORD bytes;
  WORD id;
};
struct IconGroup {
  WORD reserved, type, count;
  IconGroupEntry entries[1];
};
#pragma pack(pop)

// The setup icon comes in 16, 32 and 48 pixels with an alpha channel.
TEST(ArtTest, SetupIcon) {
  HMODULE module = qmtest::ResourceModule();
  ASSERT_NE(nullptr, module);
  const auto* group = static_cast<const IconGroup*>(ResourceData(module, IDI_SETUP, RT_GROUP_ICON));
  ASSERT_NE(nullptr, group);
  std::set<int> sizes;
  for (WORD i = 0; i < group->count; ++i) {
    const IconGroupEntry& entry = group->entries[i];
    SCOPED_TRACE(entry.width);
    sizes.insert(entry.width);
    const auto* info = static_cast<const BITMAPINFOHEADER*>(ResourceData(module, entry.id, RT_ICON));
    ASSERT_NE(nullptr, info);
    EXPECT_EQ(entry.width, info->biWidth);
    EXPECT_EQ(2 * entry.width, info->biHeight);  // colour and mask
    EXPECT_EQ(32, info->biBitCount);
  }
  EXPECT_EQ((std::set<int>{16, 32, 48}), sizes);

  if (kCanDraw) {
    for (int size : {16, 32, 48}) {
      HICON icon = static_cast<HICON>(
          ::LoadImageW(module, MAKEINTRESOURCEW(IDI_SETUP), IMAGE_ICON, size, size, 0));
      EXPECT_NE(nullptr, icon) << size;
      if (icon) ::DestroyIcon(icon);
    }
  }
}

}  // namespace
