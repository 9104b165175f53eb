#include "sys/registry.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Every case works below its own scratch key of the current user, removed afterwards.
class RegistryTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(ERROR_SUCCESS, key_.Create(HKEY_CURRENT_USER, subkey_.c_str())); }
  void TearDown() override {
    key_.Close();
    ::RegDeleteTreeW(HKEY_CURRENT_USER, subkey_.c_str());
    ::RegDeleteKeyW(HKEY_CURRENT_USER, subkey_.c_str());
  }
  // Stores raw data of any type and size, bypassing the helpers under test.
  void Put(const wchar_t* name, DWORD type, const void* data, DWORD size) {
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExW(key_.get(), name, 0, type, static_cast<const BYTE*>(data), size));
  }
  void PutText(const wchar_t* name, const std::wstring& text, DWORD type = REG_SZ) {
    Put(name, type, text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  }
  // Type and bytes of a stored value, read back with the raw API.
  std::pair<DWORD, std::vector<BYTE>> Get(const std::wstring& subkey, const wchar_t* name) {
    DWORD type = REG_NONE, size = 64;
    std::vector<BYTE> bytes(size);
    if (::RegGetValueW(HKEY_CURRENT_USER, subkey.c_str(), name, RRF_RT_ANY | RRF_NOEXPAND, &type, bytes.data(),
                       &size) != ERROR_SUCCESS)
      size = 0;
    bytes.resize(size);
    return {type, bytes};
  }
  std::wstring Read(const wchar_t* name) { return ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), name); }

  const std::wstring subkey_ = L"Software\\QmSysTests";
  CKey key_;
};

// The 260-byte limit (129 characters fit, 130 do not), missing keys and values,
// the default value, no type check, no expansion, and unterminated data.
TEST_F(RegistryTest, ReadStringLimitsAndQuirks) {
  PutText(L"fits", std::wstring(129, L'a'));
  PutText(L"tooLong", std::wstring(130, L'b'));
  PutText(L"twoHundred", std::wstring(200, L'c'));
  PutText(L"expand", L"%SystemRoot%\\x", REG_EXPAND_SZ);
  Put(L"binary", REG_BINARY, L"bytes", 12);
  Put(L"unterminated", REG_BINARY, L"abcd", 6);
  EXPECT_EQ(std::wstring(129, L'a'), Read(L"fits"));
  EXPECT_EQ(L"", Read(L"tooLong"));
  EXPECT_EQ(L"", Read(L"twoHundred"));
  EXPECT_EQ(L"%SystemRoot%\\x", Read(L"expand"));
  EXPECT_EQ(L"bytes", Read(L"binary"));
  EXPECT_EQ(L"abc", Read(L"unterminated"));
  EXPECT_EQ(L"", Read(L"absent"));
  EXPECT_EQ(L"", Read(nullptr));  // no default value yet
  EXPECT_EQ(L"", ReadRegString(HKEY_CURRENT_USER, (subkey_ + L"\\NoSuchKey").c_str(), L"fits"));

  PutText(nullptr, L"default text");
  EXPECT_EQ(L"default text", Read(nullptr));
  EXPECT_EQ(L"default text", Read(L""));
  EXPECT_EQ(L"default text", ReadRegString(key_.get(), L"", nullptr));  // an open key as root
}

// Any 8-byte value is read whatever its type; other sizes and missing values give 0.
TEST_F(RegistryTest, ReadQwordTakesExactlyEightBytes) {
  const ULONGLONG big = 0x0123456789ABCDEFull;
  const DWORD small = 0x12345678;
  const BYTE nine[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  Put(L"qword", REG_QWORD, &big, 8);
  Put(L"binary8", REG_BINARY, &big, 8);
  Put(L"text8", REG_SZ, L"abc", 8);  // 3 characters and the terminator
  Put(L"dword", REG_DWORD, &small, 4);
  Put(L"binary9", REG_BINARY, nine, 9);
  for (const wchar_t* name : {L"qword", L"binary8"})
    EXPECT_EQ(big, ReadRegQword(HKEY_CURRENT_USER, subkey_.c_str(), name)) << name;
  EXPECT_EQ(0x0000006300620061ull, ReadRegQword(HKEY_CURRENT_USER, subkey_.c_str(), L"text8"));
  for (const wchar_t* name : {L"dword", L"binary9", L"absent"})
    EXPECT_EQ(0u, ReadRegQword(HKEY_CURRENT_USER, subkey_.c_str(), name)) << name;
  EXPECT_EQ(0u, ReadRegQword(HKEY_CURRENT_USER, (subkey_ + L"\\NoSuchKey").c_str(), L"qword"));
}

// Each writer creates the missing key path and stores its own type and bytes;
// a key that cannot be made (name over 255 characters) fails every writer.
TEST_F(RegistryTest, WritersStoreTypeAndBytes) {
  const std::wstring deep = subkey_ + L"\\Level1\\Level2";
  ASSERT_FALSE(RegKeyExists(HKEY_CURRENT_USER, deep.c_str()));
  const BYTE blob[5] = {9, 8, 7, 6, 5};
  EXPECT_TRUE(WriteRegString(HKEY_CURRENT_USER, deep.c_str(), L"text", L"Qm 8"));
  EXPECT_TRUE(WriteRegDword(HKEY_CURRENT_USER, deep.c_str(), L"dword", 0xCAFEF00Du));
  EXPECT_TRUE(WriteRegBinary(HKEY_CURRENT_USER, deep.c_str(), L"binary", blob, sizeof blob));
  EXPECT_TRUE(WriteRegQword(HKEY_CURRENT_USER, deep.c_str(), L"qword", 0x1122334455667788ull));
  EXPECT_TRUE(RegKeyExists(key_.get(), L"Level1\\Level2"));

  using Bytes = std::vector<BYTE>;
  EXPECT_EQ(Get(deep, L"text"), std::make_pair(DWORD{REG_SZ}, Bytes{'Q', 0, 'm', 0, ' ', 0, '8', 0, 0, 0}));
  EXPECT_EQ(Get(deep, L"dword"), std::make_pair(DWORD{REG_DWORD}, Bytes{0x0D, 0xF0, 0xFE, 0xCA}));
  EXPECT_EQ(Get(deep, L"binary"), std::make_pair(DWORD{REG_BINARY}, Bytes{9, 8, 7, 6, 5}));
  EXPECT_EQ(Get(deep, L"qword"),
            std::make_pair(DWORD{REG_BINARY}, Bytes{0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11}));

  const std::wstring badKey = subkey_ + L"\\" + std::wstring(300, L'k');
  EXPECT_FALSE(WriteRegString(HKEY_CURRENT_USER, badKey.c_str(), L"v", L"x"));
  EXPECT_FALSE(WriteRegDword(HKEY_CURRENT_USER, badKey.c_str(), L"v", 1));
  EXPECT_FALSE(WriteRegBinary(HKEY_CURRENT_USER, badKey.c_str(), L"v", blob, sizeof blob));
  EXPECT_FALSE(WriteRegQword(HKEY_CURRENT_USER, badKey.c_str(), L"v", 1));
  EXPECT_FALSE(RegKeyExists(HKEY_CURRENT_USER, badKey.c_str()));
}

}  // namespace
