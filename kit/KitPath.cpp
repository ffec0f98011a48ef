// Paths as text.
#include "kit/KitFile.h"

namespace {

using platform::IsSeparator;
using platform::Separator;

// The part of a path that names where it starts and whose separators mean more than "and below it":
// the root, a drive ("C:", "C:\"), or a server's double separator. Empty for a relative path.
std::string RootOf(const std::string& path, std::size_t& rest) {
  std::string root;
  rest = 0;
  if (Separator() == '\\' && path.size() >= 2 && path[1] == ':') {
    root = path.substr(0, 2);
    rest = 2;
  } else if (Separator() == '\\' && path.size() >= 2 && IsSeparator(path[0]) &&
             IsSeparator(path[1])) {
    root = Separator();
    rest = 1;
  }
  if (rest < path.size() && IsSeparator(path[rest])) root += Separator();
  return root;
}

// Where the last component begins.
std::size_t NameStart(const std::string& path) {
  std::size_t start = path.size();
  while (start > 0 && !IsSeparator(path[start - 1])) --start;
  return start;
}

// Where the extension of a name begins; its length when it has none.
std::size_t ExtensionStart(const std::string& name) {
  const auto point = name.rfind('.');
  const auto letter = name.find_first_not_of('.');
  return point == std::string::npos || letter > point ? name.size() : point;
}

}  // namespace

std::string CKitFile::NormalizeFileName(const std::string& path) {
  std::size_t at = 0;
  std::string result = RootOf(path, at);
  const std::size_t rootSize = result.size();
  while (at < path.size()) {
    std::size_t end = at;
    while (end < path.size() && !IsSeparator(path[end])) ++end;
    const std::string part = path.substr(at, end - at);
    if (!part.empty() && part != ".") {
      if (result.size() > rootSize) result += Separator();
      result += part;
    }
    at = end + 1;
  }
  return result.empty() && !path.empty() ? "." : result;
}

std::string CKitFile::FullName(const std::string& path) {
  return NormalizeFileName(platform::FullPath(path));
}

std::string CKitFile::BaseName(const std::string& path) {
  const std::string name = path.substr(NameStart(path));
  return name.substr(0, ExtensionStart(name));
}

std::string CKitFile::Extension(const std::string& path) {
  const std::string name = path.substr(NameStart(path));
  return name.substr(ExtensionStart(name));
}

std::string CKitFile::DirectoryName(const std::string& path) {
  std::size_t rootEnd = 0;
  if (RootOf(path, rootEnd).size() > rootEnd) ++rootEnd;  // its separator
  std::size_t end = NameStart(path);
  while (end > rootEnd && IsSeparator(path[end - 1])) --end;
  return path.substr(0, end);
}

std::string CKitFile::Join(const std::string& directory, const std::string& name) {
  if (directory.empty() || IsSeparator(directory.back())) return directory + name;
  return directory + Separator() + name;
}
