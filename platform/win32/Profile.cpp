// The system's own private-profile functions. They look for a bare file name in the system
// directory, so a path without a directory is led to the current one first.
#include "platform/Profile.h"

#include <vector>

#include "platform/File.h"
#include "platform/win32/Handle.h"

namespace platform {
namespace {

std::string FullPath(const std::string& path) {
  const DWORD size = ::GetFullPathNameA(path.c_str(), 0, nullptr, nullptr);
  std::string full(size, '\0');
  const DWORD length = ::GetFullPathNameA(path.c_str(), size, full.data(), nullptr);
  if (length == 0 || length >= size) return path;
  full.resize(length);
  return full;
}

}  // namespace

std::string ReadProfileString(const std::string& path, const std::string& section,
                              const std::string& key, const std::string& fallback,
                              std::size_t capacity) {
  if (capacity == 0) return {};
  std::vector<char> buffer(capacity);
  const DWORD length =
      ::GetPrivateProfileStringA(section.c_str(), key.c_str(), fallback.c_str(), buffer.data(),
                                 static_cast<DWORD>(capacity), FullPath(path).c_str());
  return std::string(buffer.data(), length);
}

int ReadProfileInt(const std::string& path, const std::string& section, const std::string& key,
                   int fallback) {
  return static_cast<int>(
      ::GetPrivateProfileIntA(section.c_str(), key.c_str(), fallback, FullPath(path).c_str()));
}

bool WriteProfileString(const std::string& path, const char* section, const char* key,
                        const char* value) {
  if (section == nullptr) return false;
  return ::WritePrivateProfileStringA(section, key, value, FullPath(path).c_str()) != 0;
}

bool WriteProfileSection(const std::string& path, const char* section, const char* lines) {
  if (section == nullptr || lines == nullptr) return false;
  return ::WritePrivateProfileSectionA(section, lines, FullPath(path).c_str()) != 0;
}

// The first call has the system write out what it keeps of the file; it answers 0 also when it did.
// The second waits for the medium.
bool FlushProfile(const std::string& path) {
  const std::string full = FullPath(path);
  ::WritePrivateProfileStringA(nullptr, nullptr, nullptr, full.c_str());
  std::unique_ptr<File> file;
  const OpenOptions options{Access::ReadWrite, Disposition::OpenExisting, Sharing::All};
  const Status opened = Files().Open(full, options, file);
  return opened.Ok() ? file->Sync().Ok() : opened.Why() == Cause::NotFound;
}

}  // namespace platform
