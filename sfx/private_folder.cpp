#include "sfx/private_folder.h"

#include <sddl.h>

#include <cwchar>
#include <vector>

namespace {

constexpr wchar_t kFolderPrefix[] = L"QmkSfx";
constexpr DWORD kRandomBytes = 8;
constexpr int kAttempts = 8;

struct LocalMemoryTraits {
  using type = HLOCAL;
  static type Invalid() { return nullptr; }
  static void Close(type memory) { ::LocalFree(memory); }
};
using UniqueLocalMemory = UniqueAny<LocalMemoryTraits>;

// The running user's SID as text ("S-1-5-21-..."); empty on failure.
std::wstring CurrentUserSid() {
  UniqueHandle token;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.put())) return std::wstring();
  DWORD size = 0;
  ::GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
  std::vector<BYTE> buffer(size);
  if (size == 0 || !::GetTokenInformation(token.get(), TokenUser, buffer.data(), size, &size))
    return std::wstring();
  wchar_t* text = nullptr;
  if (!::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid, &text)) return std::wstring();
  UniqueLocalMemory owner(text);
  return text;
}

std::wstring RandomName(CryptoProvider& crypto) {
  BYTE bytes[kRandomBytes] = {};
  if (!crypto.Random(bytes, sizeof bytes)) return std::wstring();
  static const wchar_t kHexDigits[] = L"0123456789abcdef";
  std::wstring name = kFolderPrefix;
  for (BYTE b : bytes) {
    name += kHexDigits[b >> 4];
    name += kHexDigits[b & 0xF];
  }
  return name;
}

void DeleteLater(const std::wstring& path) {
  ::MoveFileExW(path.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
}

// Everything below folder, then folder itself. Links to elsewhere are removed,
// never followed.
void DeleteTree(const std::wstring& folder) {
  WIN32_FIND_DATAW found;
  UniqueFindHandle find(::FindFirstFileW((folder + L"\\*").c_str(), &found));
  if (find) {
    do {
      if (std::wcscmp(found.cFileName, L".") == 0 || std::wcscmp(found.cFileName, L"..") == 0) continue;
      std::wstring path = folder + L"\\" + found.cFileName;
      const DWORD attributes = found.dwFileAttributes;
      if ((attributes & FILE_ATTRIBUTE_DIRECTORY) && !(attributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
        DeleteTree(path);
      } else if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
        if (!::RemoveDirectoryW(path.c_str())) DeleteLater(path);
      } else {
        ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        if (!::DeleteFileW(path.c_str())) DeleteLater(path);
      }
    } while (::FindNextFileW(find.get(), &found));
  }
  find.reset();
  // Scheduled after its contents, so the restart empties it first.
  if (!::RemoveDirectoryW(folder.c_str())) DeleteLater(folder);
}

}  // namespace

bool PrivateTempFolder::Create(CryptoProvider& crypto) {
  wchar_t temp[MAX_PATH + 1] = {};
  DWORD length = ::GetTempPathW(MAX_PATH + 1, temp);
  std::wstring user = CurrentUserSid();
  if (length == 0 || length > MAX_PATH || user.empty()) return false;
  std::wstring base(temp, length);
  if (base.back() != L'\\') base += L'\\';
  // Protected (P): nothing inherited; full access for the system, the
  // administrators and this user, passed on to every file and folder inside.
  std::wstring sddl = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;" + user + L")";
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1, &descriptor, nullptr))
    return false;
  UniqueLocalMemory descriptorOwner(descriptor);
  SECURITY_ATTRIBUTES security = {sizeof security, descriptor, FALSE};
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::wstring name = RandomName(crypto);
    if (name.empty()) return false;
    std::wstring candidate = base + name;
    if (::CreateDirectoryW(candidate.c_str(), &security)) {
      path_ = candidate;
      return true;
    }
    if (::GetLastError() != ERROR_ALREADY_EXISTS) return false;
  }
  return false;
}

void PrivateTempFolder::Remove() {
  if (path_.empty()) return;
  DeleteTree(path_);
  path_.clear();
}
