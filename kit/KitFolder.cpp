#include "kit/KitFolder.h"

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "kit/KitFile.h"
#include "platform/Process.h"

namespace {

// Eight characters of 36 letters and digits.
constexpr std::size_t kNameLength = 8;
constexpr std::uint64_t kNames = 36ULL * 36 * 36 * 36 * 36 * 36 * 36 * 36;

std::uint64_t RandomStart() {
  std::uint64_t start = 0;
  platform::RandomBytes(&start, sizeof start);
  return start % kNames;
}

}  // namespace

CKitFolder::CKitFolder(const std::string& path) : m_path(CKitFile::NormalizeFileName(path)) {}

bool CKitFolder::Exists(const std::string& path) {
  return CKitFile::Info(path).kind == platform::FileKind::Directory;
}

std::string CKitFolder::NearestExisting(const std::string& path) {
  std::string place = CKitFile::FullName(path);
  while (!Exists(place)) {
    std::string above = CKitFile::DirectoryName(place);
    if (above.empty() || above == place) break;
    place = std::move(above);
  }
  return place;
}

void CKitFolder::MakePath(const std::string& path) {
  const std::string folder = CKitFile::NormalizeFileName(path);
  if (Exists(folder)) return;
  const std::string parent = CKitFile::DirectoryName(folder);
  if (!parent.empty() && parent != folder) MakePath(parent);
  const platform::Status status = platform::Files().MakeDirectory(folder);
  // Another thread or process may have made it meanwhile.
  if (!status.Ok() && !Exists(folder)) KitCheck(status, "make the directory", folder);
}

bool CKitFolder::MakeFolder(const std::string& path) {
  const platform::Status status = platform::Files().MakeDirectory(path);
  if (status.Why() == platform::Cause::AlreadyExists) return false;
  KitCheck(status, "make the directory", path);
  return true;
}

bool CKitFolder::RemoveFolder(const std::string& path) {
  const platform::Status status = platform::Files().RemoveDirectory(path);
  if (status.Why() == platform::Cause::NotEmpty || status.Why() == platform::Cause::NotFound) {
    return false;
  }
  KitCheck(status, "remove the directory", path);
  return true;
}

// Starts anywhere, so that two processes seldom ask for the same names, then counts, so that one
// never does.
std::string CKitFolder::NewName() {
  static std::atomic<std::uint64_t> next{RandomStart()};
  std::uint64_t number = next.fetch_add(1, std::memory_order_relaxed) % kNames;
  std::string name(kNameLength, '0');
  for (char& c : name) {
    c = "0123456789abcdefghijklmnopqrstuvwxyz"[number % 36];
    number /= 36;
  }
  return name;
}

std::string CKitFolder::UniqueDirectoryName(const std::string& parent) {
  for (;;) {
    std::string path = CKitFile::Join(parent, NewName());
    if (CKitFile::Info(path).kind == platform::FileKind::None) return path;
  }
}

CKitFindFile::CKitFindFile(const std::string& directory) {
  KitCheck(platform::Files().List(directory, m_entries), "list", directory);
  std::sort(m_entries.begin(), m_entries.end(),
            [](const auto& a, const auto& b) { return a.name < b.name; });
}

const platform::DirectoryEntry* CKitFindFile::Next() {
  return m_next < m_entries.size() ? &m_entries[m_next++] : nullptr;
}
