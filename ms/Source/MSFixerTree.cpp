#include "MSFixerTree.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "MSFixerJob.h"
#include "StoreFiles.h"
#include "kit/Hash64.h"
#include "kit/KitFile.h"
#include "kit/KitFolder.h"

namespace MSF {
namespace {

constexpr std::uint32_t kNobody = 0xFFFFFFFF;
constexpr char kStoredSeparator = '\\';
constexpr std::array kMarks{"fixme.dat",    "ms3.db.new",     "archive3.map",
                            "archive3.new", "archive3.start", storefiles::kGuard};

bool IsStoresOwn(std::string_view name) {
  const auto is = [&](const char* own) { return name == own; };
  if (std::any_of(kMarks.begin(), kMarks.end(), is)) return true;
  constexpr std::string_view kTemporary = ".tmp";
  if (name.ends_with(kTemporary)) name.remove_suffix(kTemporary.size());
  return std::any_of(storefiles::kRequired.begin(), storefiles::kRequired.end(), is);
}

// Directories of a whole set that was put aside, and of files that were.
bool IsKeptAside(std::string_view name) {
  return name == kSavedDirectory ||
         (name.starts_with('~') && (name.ends_with(".REP") || name.ends_with(".BAD")));
}

std::uint64_t HashOf(const std::string& stored) {
  return CHash64().Add(stored).Value();
}

}  // namespace

CFileTree::CFileTree(const std::string& storeDirectory, std::function<void(std::uint64_t)> goOn)
    : m_directory(storeDirectory) {
  Walk(m_directory, "", [&](const std::string& stored) {
    m_entries.push_back({HashOf(stored), kNobody});
    if (m_entries.size() % 256 == 0) goOn(m_entries.size());
  });
  std::sort(m_entries.begin(), m_entries.end());
}

void CFileTree::Walk(const std::string& directory, const std::string& stored,
                     const Visit& visit) const {
  CKitFindFile entries(directory);
  while (const platform::DirectoryEntry* entry = entries.Next()) {
    const std::string name = stored.empty() ? entry->name : stored + kStoredSeparator + entry->name;
    if (entry->kind == platform::FileKind::Directory) {
      if (!stored.empty() || !IsKeptAside(entry->name))
        Walk(CKitFile::Join(directory, entry->name), name, visit);
    } else if (entry->kind == platform::FileKind::File) {
      if (!stored.empty() || !IsStoresOwn(entry->name)) visit(name);
    }
  }
}

const CFileTree::CEntry* CFileTree::Find(const std::string& stored) const {
  const CEntry wanted{HashOf(stored), kNobody};
  const auto found = std::lower_bound(m_entries.begin(), m_entries.end(), wanted);
  return found != m_entries.end() && found->hash == wanted.hash ? &*found : nullptr;
}

CFileTree::CEntry* CFileTree::Find(const std::string& stored) {
  return const_cast<CEntry*>(std::as_const(*this).Find(stored));
}

CFileTree::Claim CFileTree::Take(const std::string& stored, std::uint32_t slot,
                                 std::uint32_t& owner) {
  CEntry* const entry = Find(stored);
  if (entry == nullptr) return Claim::Missing;
  owner = entry->owner;
  if (owner != kNobody) return Claim::Taken;
  entry->owner = slot;
  return Claim::Made;
}

void CFileTree::Pass(const std::string& stored, std::uint32_t slot) {
  if (CEntry* const entry = Find(stored)) entry->owner = slot;
}

std::vector<std::string> CFileTree::Unclaimed() const {
  std::vector<std::string> names;
  const auto isFree = [](const CEntry& entry) { return entry.owner == kNobody; };
  if (std::none_of(m_entries.begin(), m_entries.end(), isFree)) return names;
  Walk(m_directory, "", [&](const std::string& stored) {
    const CEntry* const entry = Find(stored);
    if (entry != nullptr && isFree(*entry)) names.push_back(stored);
  });
  return names;
}

}  // namespace MSF
