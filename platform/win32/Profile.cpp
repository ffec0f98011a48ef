// The system's own private-profile functions. They look for a bare file name in the system
// directory, so a path without a directory is led to the current one first.
//
// Names and values are bytes to this library and text to the system. It keeps them in the file in
// the code page of the machine, so the wide calls, which paths need, are given what those bytes
// mean in that code page. Bytes that mean nothing in it could not be read back: they are refused.
#include "platform/Profile.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/File.h"
#include "platform/win32/Patience.h"
#include "platform/win32/Wide.h"

namespace platform {
namespace {

std::wstring ProfilePath(const std::string& path) {
  return win32::WidePath(FullPath(path));
}

std::wstring ToWide(std::string_view text) {
  if (text.empty()) return {};
  const int size = static_cast<int>(text.size());
  const int needed = ::MultiByteToWideChar(CP_ACP, 0, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(needed), L'\0');
  ::MultiByteToWideChar(CP_ACP, 0, text.data(), size, wide.data(), needed);
  return wide;
}

std::string ToBytes(std::wstring_view wide) {
  if (wide.empty()) return {};
  const int size = static_cast<int>(wide.size());
  const int needed =
      ::WideCharToMultiByte(CP_ACP, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<std::size_t>(needed), '\0');
  ::WideCharToMultiByte(CP_ACP, 0, wide.data(), size, text.data(), needed, nullptr, nullptr);
  return text;
}

// A text to be written, which may be absent.
class Written {
 public:
  explicit Written(const char* text) {
    if (text != nullptr) Set(text);
  }
  // Zero characters are part of it.
  explicit Written(std::string_view text) { Set(text); }
  bool Lasts() const { return m_lasts; }
  const wchar_t* OrNull() const { return m_wide ? m_wide->c_str() : nullptr; }

 private:
  void Set(std::string_view text) {
    m_wide = ToWide(text);
    m_lasts = ToBytes(*m_wide) == text;
  }
  std::optional<std::wstring> m_wide;
  bool m_lasts = true;
};

// With both of the zero characters that end the last line; the caller's text ends in one more.
std::string_view AllLines(const char* lines) {
  const char* end = lines;
  while (*end != '\0') end += std::string_view(end).size() + 1;
  return {lines, static_cast<std::size_t>(end - lines)};
}

}  // namespace

std::string ReadProfileString(const std::string& path, const std::string& section,
                              const std::string& key, const std::string& fallback,
                              std::size_t capacity, ProfileWriter /*writer*/) {
  if (capacity == 0) return {};
  std::vector<wchar_t> buffer(capacity);
  const DWORD length = ::GetPrivateProfileStringW(
      ToWide(section).c_str(), ToWide(key).c_str(), ToWide(fallback).c_str(), buffer.data(),
      static_cast<DWORD>(capacity), ProfilePath(path).c_str());
  return ToBytes({buffer.data(), length}).substr(0, capacity - 1);
}

int ReadProfileInt(const std::string& path, const std::string& section, const std::string& key,
                   int fallback) {
  return static_cast<int>(::GetPrivateProfileIntW(ToWide(section).c_str(), ToWide(key).c_str(),
                                                  fallback, ProfilePath(path).c_str()));
}

bool WriteProfileString(const std::string& path, const char* section, const char* key,
                        const char* value) {
  if (section == nullptr) return false;
  const Written in(section), name(key), text(value);
  if (!in.Lasts() || !name.Lasts() || !text.Lasts()) return false;
  const std::wstring file = ProfilePath(path);
  const auto write = [&] {
    return ::WritePrivateProfileStringW(in.OrNull(), name.OrNull(), text.OrNull(), file.c_str());
  };
  return win32::WithPatience(file, file, write).Ok();
}

// The system has no call for several of them.
bool WriteProfileKeys(const std::string& path, const std::string& section,
                      const std::vector<ProfileKey>& keys) {
  return std::all_of(keys.begin(), keys.end(), [&](const ProfileKey& key) {
    return WriteProfileString(path, section.c_str(), key.name.c_str(),
                              key.value ? key.value->c_str() : nullptr);
  });
}

bool WriteProfileSection(const std::string& path, const char* section, const char* lines) {
  if (section == nullptr || lines == nullptr) return false;
  const Written in(section), body(AllLines(lines));
  if (!in.Lasts() || !body.Lasts()) return false;
  const std::wstring file = ProfilePath(path);
  const auto write = [&] {
    return ::WritePrivateProfileSectionW(in.OrNull(), body.OrNull(), file.c_str());
  };
  return win32::WithPatience(file, file, write).Ok();
}

// The first call has the system write out what it keeps of the file; it answers 0 also when it did.
// The second waits for the medium.
bool FlushProfile(const std::string& path) {
  ::WritePrivateProfileStringW(nullptr, nullptr, nullptr, ProfilePath(path).c_str());
  std::unique_ptr<File> file;
  const OpenOptions options{Access::ReadWrite, Disposition::OpenExisting, Sharing::All};
  const Status opened = Files().Open(path, options, file);
  return opened.Ok() ? file->Sync().Ok() : opened.Why() == Cause::NotFound;
}

}  // namespace platform
