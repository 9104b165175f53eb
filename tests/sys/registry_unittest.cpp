#include "sys/registry.h"

#include <gtest/gtest.h>

// What an existing installation's values read as: at most 129 characters
// (a 260-byte buffer), any type, unexpanded, cut at the first NUL; the
// default value by a null or empty name; empty when missing or too long.
TEST(ReadRegString, LimitsAndQuirks) {
  const wchar_t* subkey = L"Software\\QmSysTests";
  CKey key;
  ASSERT_EQ(ERROR_SUCCESS, key.Create(HKEY_CURRENT_USER, subkey));
  auto put = [&](const wchar_t* name, DWORD type, const std::wstring& text, size_t chars) {
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExW(key.get(), name, 0, type, reinterpret_cast<const BYTE*>(text.c_str()),
                                              static_cast<DWORD>(chars * sizeof(wchar_t))));
  };
  const std::wstring fits(129, L'a'), tooLong(130, L'b');
  put(L"fits", REG_SZ, fits, 130);
  put(L"tooLong", REG_SZ, tooLong, 131);
  put(L"expand", REG_EXPAND_SZ, L"%SystemRoot%\\x", 15);
  put(L"binary", REG_BINARY, L"bytes", 6);
  put(L"unterminated", REG_BINARY, L"abcd", 3);
  const struct { const wchar_t* name; std::wstring text; } cases[] = {
      {L"fits", fits}, {L"tooLong", L""}, {L"expand", L"%SystemRoot%\\x"}, {L"binary", L"bytes"},
      {L"unterminated", L"abc"}, {L"absent", L""}, {nullptr, L""}};
  for (const auto& c : cases) EXPECT_EQ(ReadRegString(HKEY_CURRENT_USER, subkey, c.name), c.text) << c.name;
  EXPECT_EQ(ReadRegString(HKEY_CURRENT_USER, L"Software\\QmSysTests\\NoSuchKey", L"fits"), L"");
  put(nullptr, REG_SZ, L"default text", 13);
  EXPECT_EQ(ReadRegString(HKEY_CURRENT_USER, subkey, nullptr), L"default text");
  EXPECT_EQ(ReadRegString(HKEY_CURRENT_USER, subkey, L""), L"default text");
  key.Close();
  ::RegDeleteTreeW(HKEY_CURRENT_USER, subkey);
}
