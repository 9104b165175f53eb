#include "sys/registry.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Every case works below its own scratch key of the current user, removed
// afterwards, so the shared prefix keeps no trace.
class RegistryTest : public testing::Test {
 protected:
  void SetUp() override {
    subkey_ = L"Software\\QmSysTests\\Registry" + std::to_wstring(::GetCurrentProcessId());
    ASSERT_EQ(ERROR_SUCCESS, key_.Create(HKEY_CURRENT_USER, subkey_.c_str()));
  }
  void TearDown() override {
    key_.Close();
    ::RegDeleteTreeW(HKEY_CURRENT_USER, subkey_.c_str());
    ::RegDeleteKeyW(HKEY_CURRENT_USER, subkey_.c_str());
    ::RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\QmSysTests");
  }

  // Stores raw data of any type and size, bypassing the helpers under test.
  void Put(const wchar_t* name, DWORD type, const void* data, DWORD size) {
    ASSERT_EQ(ERROR_SUCCESS,
              ::RegSetValueExW(key_.get(), name, 0, type, static_cast<const BYTE*>(data), size));
  }
  void PutText(const wchar_t* name, const std::wstring& text, DWORD type = REG_SZ) {
    Put(name, type, text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  }
  // Type and bytes of a stored value, read back with the raw API.
  struct Stored {
    LONG status = ERROR_FILE_NOT_FOUND;
    DWORD type = REG_NONE;
    std::vector<BYTE> bytes;
  };
  Stored Get(const std::wstring& subkey, const wchar_t* name) {
    Stored stored;
    CKey key;
    if (key.Open(HKEY_CURRENT_USER, subkey.c_str(), KEY_READ) != ERROR_SUCCESS) return stored;
    DWORD size = 0;
    stored.status = ::RegQueryValueExW(key.get(), name, nullptr, &stored.type, nullptr, &size);
    if (stored.status != ERROR_SUCCESS) return stored;
    stored.bytes.resize(size);
    stored.status = ::RegQueryValueExW(key.get(), name, nullptr, &stored.type,
                                       stored.bytes.empty() ? nullptr : stored.bytes.data(), &size);
    stored.bytes.resize(size);
    return stored;
  }

  std::wstring subkey_;
  CKey key_;
};

// The 260-byte data limit: 129 characters and the terminator fit, one more does not.
TEST_F(RegistryTest, ReadStringKeepsTheByteLimit) {
  const std::wstring fits(129, L'a');
  const std::wstring tooLong(130, L'b');
  PutText(L"fits", fits);
  PutText(L"tooLong", tooLong);
  PutText(L"twoHundred", std::wstring(200, L'c'));
  PutText(L"short", L"C:\\Program Files\\Quillmark 8");

  EXPECT_EQ(fits, ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), L"fits"));
  EXPECT_EQ(L"", ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), L"tooLong"));
  EXPECT_EQ(L"", ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), L"twoHundred"));
  EXPECT_EQ(L"C:\\Program Files\\Quillmark 8",
            ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), L"short"));
}

// A missing value or key reads as empty; a null or empty name reads the default value.
TEST_F(RegistryTest, ReadStringMissingAndDefault) {
  EXPECT_EQ(L"", ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), L"absent"));
  EXPECT_EQ(L"", ReadRegString(HKEY_CURRENT_USER, (subkey_ + L"\\NoSuchKey").c_str(), L"x"));
  EXPECT_EQ(L"", ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), nullptr));  // no default yet

  PutText(nullptr, L"default text");
  EXPECT_EQ(L"default text", ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), nullptr));
  EXPECT_EQ(L"default text", ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), L""));
  // An open key works as root with an empty subkey path.
  EXPECT_EQ(L"default text", ReadRegString(key_.get(), L"", nullptr));
}

// The type is not checked and expandable text is returned as stored.
TEST_F(RegistryTest, ReadStringIgnoresTheType) {
  PutText(L"expand", L"%SystemRoot%\\x", REG_EXPAND_SZ);
  const std::wstring binaryText = L"bytes";
  Put(L"binary", REG_BINARY, binaryText.c_str(),
      static_cast<DWORD>((binaryText.size() + 1) * sizeof(wchar_t)));

  EXPECT_EQ(L"%SystemRoot%\\x", ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), L"expand"));
  EXPECT_EQ(L"bytes", ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), L"binary"));
}

// Data stored without a terminator still comes back as a bounded string.
TEST_F(RegistryTest, ReadStringOfUnterminatedData) {
  Put(L"shortRaw", REG_BINARY, L"abcd", 6);
  EXPECT_EQ(L"abc", ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), L"shortRaw"));
}

// Any 8-byte value is read whatever its type; other sizes and missing values give 0.
TEST_F(RegistryTest, ReadQwordTakesExactlyEightBytes) {
  const ULONGLONG big = 0x0123456789ABCDEFull;
  Put(L"qword", REG_QWORD, &big, 8);
  Put(L"binary8", REG_BINARY, &big, 8);
  const wchar_t threeChars[] = L"abc";  // 3 characters and the terminator: 8 bytes
  Put(L"text8", REG_SZ, threeChars, 8);
  const DWORD small = 0x12345678;
  Put(L"dword", REG_DWORD, &small, 4);
  const BYTE nine[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  Put(L"binary9", REG_BINARY, nine, 9);

  EXPECT_EQ(big, ReadRegQword(HKEY_CURRENT_USER, subkey_.c_str(), L"qword"));
  EXPECT_EQ(big, ReadRegQword(HKEY_CURRENT_USER, subkey_.c_str(), L"binary8"));
  ULONGLONG textBytes = 0;
  memcpy(&textBytes, threeChars, 8);
  EXPECT_EQ(textBytes, ReadRegQword(HKEY_CURRENT_USER, subkey_.c_str(), L"text8"));
  EXPECT_EQ(0u, ReadRegQword(HKEY_CURRENT_USER, subkey_.c_str(), L"dword"));
  EXPECT_EQ(0u, ReadRegQword(HKEY_CURRENT_USER, subkey_.c_str(), L"binary9"));
  EXPECT_EQ(0u, ReadRegQword(HKEY_CURRENT_USER, subkey_.c_str(), L"absent"));
  EXPECT_EQ(0u, ReadRegQword(HKEY_CURRENT_USER, (subkey_ + L"\\NoSuchKey").c_str(), L"qword"));
}

// Each writer creates the missing key path and stores its own type and size.
TEST_F(RegistryTest, WritersStoreTypeAndSize) {
  const std::wstring deep = subkey_ + L"\\Level1\\Level2";
  ASSERT_FALSE(RegKeyExists(HKEY_CURRENT_USER, deep.c_str()));

  EXPECT_TRUE(WriteRegString(HKEY_CURRENT_USER, deep.c_str(), L"text", L"Quillmark 8"));
  EXPECT_TRUE(WriteRegString(HKEY_CURRENT_USER, deep.c_str(), L"empty", L""));
  EXPECT_TRUE(WriteRegDword(HKEY_CURRENT_USER, deep.c_str(), L"dword", 0xCAFEF00Du));
  const BYTE blob[5] = {9, 8, 7, 6, 5};
  EXPECT_TRUE(WriteRegBinary(HKEY_CURRENT_USER, deep.c_str(), L"binary", blob, sizeof blob));
  EXPECT_TRUE(WriteRegQword(HKEY_CURRENT_USER, deep.c_str(), L"qword", 0x1122334455667788ull));
  EXPECT_TRUE(WriteRegString(HKEY_CURRENT_USER, deep.c_str(), nullptr, L"default"));

  Stored text = Get(deep, L"text");
  ASSERT_EQ(ERROR_SUCCESS, text.status);
  EXPECT_EQ(static_cast<DWORD>(REG_SZ), text.type);
  ASSERT_EQ(24u, text.bytes.size());  // 11 characters and the terminator
  EXPECT_EQ(0, memcmp(text.bytes.data(), L"Quillmark 8", 24));

  Stored empty = Get(deep, L"empty");
  EXPECT_EQ(static_cast<DWORD>(REG_SZ), empty.type);
  EXPECT_EQ(2u, empty.bytes.size());

  Stored dword = Get(deep, L"dword");
  EXPECT_EQ(static_cast<DWORD>(REG_DWORD), dword.type);
  ASSERT_EQ(4u, dword.bytes.size());
  EXPECT_EQ((std::vector<BYTE>{0x0D, 0xF0, 0xFE, 0xCA}), dword.bytes);

  Stored binary = Get(deep, L"binary");
  EXPECT_EQ(static_cast<DWORD>(REG_BINARY), binary.type);
  EXPECT_EQ((std::vector<BYTE>{9, 8, 7, 6, 5}), binary.bytes);

  Stored qword = Get(deep, L"qword");
  EXPECT_EQ(static_cast<DWORD>(REG_BINARY), qword.type);
  EXPECT_EQ((std::vector<BYTE>{0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11}), qword.bytes);
  EXPECT_EQ(0x1122334455667788ull, ReadRegQword(HKEY_CURRENT_USER, deep.c_str(), L"qword"));

  EXPECT_EQ(L"default", ReadRegString(HKEY_CURRENT_USER, deep.c_str(), L""));
}

// Writing again replaces the value, also with another type.
TEST_F(RegistryTest, WritersReplaceExistingValues) {
  ASSERT_TRUE(WriteRegString(HKEY_CURRENT_USER, subkey_.c_str(), L"v", L"first"));
  ASSERT_TRUE(WriteRegString(HKEY_CURRENT_USER, subkey_.c_str(), L"v", L"second"));
  EXPECT_EQ(L"second", ReadRegString(HKEY_CURRENT_USER, subkey_.c_str(), L"v"));

  ASSERT_TRUE(WriteRegDword(HKEY_CURRENT_USER, subkey_.c_str(), L"v", 7));
  Stored stored = Get(subkey_, L"v");
  EXPECT_EQ(static_cast<DWORD>(REG_DWORD), stored.type);
  EXPECT_EQ(4u, stored.bytes.size());
}

// A key that cannot be created makes every writer return FALSE and store nothing.
TEST_F(RegistryTest, WritersFailWhenTheKeyCannotBeMade) {
  // Key names are limited to 255 characters.
  const std::wstring badKey = subkey_ + L"\\" + std::wstring(300, L'k');
  const BYTE blob[2] = {1, 2};

  EXPECT_FALSE(WriteRegString(HKEY_CURRENT_USER, badKey.c_str(), L"v", L"x"));
  EXPECT_FALSE(WriteRegDword(HKEY_CURRENT_USER, badKey.c_str(), L"v", 1));
  EXPECT_FALSE(WriteRegBinary(HKEY_CURRENT_USER, badKey.c_str(), L"v", blob, sizeof blob));
  EXPECT_FALSE(WriteRegQword(HKEY_CURRENT_USER, badKey.c_str(), L"v", 1));
  EXPECT_FALSE(RegKeyExists(HKEY_CURRENT_USER, badKey.c_str()));
}

// RegKeyExists tells present from missing keys, on predefined and open roots.
TEST_F(RegistryTest, KeyExists) {
  EXPECT_TRUE(RegKeyExists(HKEY_CURRENT_USER, subkey_.c_str()));
  EXPECT_TRUE(RegKeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion"));
  EXPECT_FALSE(RegKeyExists(HKEY_CURRENT_USER, (subkey_ + L"\\Missing").c_str()));

  ASSERT_TRUE(WriteRegDword(HKEY_CURRENT_USER, (subkey_ + L"\\Inner").c_str(), L"v", 1));
  EXPECT_TRUE(RegKeyExists(key_.get(), L"Inner"));
  EXPECT_FALSE(RegKeyExists(key_.get(), L"Outer"));
}

// CKey reports the registry's own codes and closes the previous key on reopen.
TEST_F(RegistryTest, KeyOwnerReportsCodes) {
  CKey key;
  EXPECT_FALSE(key);
  EXPECT_EQ(ERROR_FILE_NOT_FOUND, key.Open(HKEY_CURRENT_USER, (subkey_ + L"\\None").c_str(), KEY_READ));
  EXPECT_FALSE(key);
  EXPECT_EQ(ERROR_SUCCESS, key.Create(HKEY_CURRENT_USER, (subkey_ + L"\\Made").c_str()));
  EXPECT_TRUE(key);
  EXPECT_EQ(ERROR_SUCCESS, key.Open(HKEY_CURRENT_USER, subkey_.c_str(), KEY_READ));
  EXPECT_TRUE(key);
  key.Close();
  EXPECT_FALSE(key);
  EXPECT_TRUE(RegKeyExists(HKEY_CURRENT_USER, (subkey_ + L"\\Made").c_str()));
}

}  // namespace
