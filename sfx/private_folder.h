// The folder the package is unpacked into: new, under the temporary folder,
// with a random name and an access list of its own (the running user, the
// administrators and the system; nothing inherited from the temporary
// folder), so that no other user can read or plant files in it.
#pragma once
#include <string>

#include "sfx/crypto.h"

class PrivateTempFolder {
 public:
  PrivateTempFolder() = default;
  ~PrivateTempFolder() { Remove(); }
  PrivateTempFolder(const PrivateTempFolder&) = delete;
  PrivateTempFolder& operator=(const PrivateTempFolder&) = delete;

  // False when no new folder could be made (no temporary folder, no random
  // numbers, no access list); an existing folder is never taken over.
  bool Create(CryptoProvider& crypto);
  // Empty until created.
  const std::wstring& path() const { return path_; }
  // Deletes the folder with everything in it; what is in use is scheduled for
  // deletion at the next restart. Does nothing when there is no folder.
  void Remove();

 private:
  std::wstring path_;
};
