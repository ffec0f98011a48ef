#include "AttachmentFiles.h"

#include <algorithm>
#include <cctype>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "Durability.h"
#include "Rollback.h"
#include "StoreFiles.h"
#include "kit/KitErrors.h"
#include "kit/KitFile.h"
#include "kit/KitFolder.h"
#include "kit/KitString.h"
#include "kit/LogDispatcher.h"
#include "platform/File.h"

namespace attachmentfiles {
namespace {

constexpr char kStoredSeparator = '\\';
constexpr std::string_view kAnySeparator = "\\/";

char Lower(char c) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

bool SameText(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                            [](char x, char y) { return Lower(x) == Lower(y); });
}

bool IsAbsolute(std::string_view stored) {
  if (stored.empty()) return false;
  if (kAnySeparator.find(stored[0]) != std::string_view::npos) return true;
  return stored.size() > 1 && stored[1] == ':' &&
         std::isalpha(static_cast<unsigned char>(stored[0])) != 0;
}

// "/a/b", "C:\\a", "\\\\server\\a": what a platform takes for a path from its root. A relative name
// whose first bytes were damaged looks like the begin of one, but goes on with "\\".
bool IsWholePath(std::string_view name) {
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' '; };
  if (std::any_of(name.begin(), name.end(), isControl)) return false;
  if (name[0] == '/') return name.find('\\') == name.npos;
  if (name[0] == '\\') return name.size() > 2 && name[1] == '\\' && name[2] != '\\';
  return name.size() > 2 && kAnySeparator.find(name[2]) != name.npos;
}

std::vector<std::string> Parts(std::string_view path) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find_first_of(kAnySeparator, begin), path.size());
    parts.emplace_back(path.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

// The components of a store-relative name; none at all when one of them is no plain name.
std::vector<std::string> Components(std::string_view stored) {
  std::vector<std::string> parts = Parts(stored);
  const auto isPlain = [](const std::string& part) {
    return !part.empty() && part != "." && part != "..";
  };
  if (!std::all_of(parts.begin(), parts.end(), isPlain)) parts.clear();
  return parts;
}

std::string Below(const std::string& directory, const std::vector<std::string>& parts,
                  std::size_t count) {
  std::string path = directory;
  for (std::size_t i = 0; i < count; ++i) path = CKitFile::Join(path, parts[i]);
  return path;
}

bool Climbs(std::string_view path) {
  const auto parts = Parts(path);
  return std::find(parts.begin(), parts.end(), "..") != parts.end();
}

// A client's own path that means here what it meant where it was stored: another platform's would
// be taken from the current directory.
bool IsClients(const std::string& name) {
  const std::string plain = CKitFile::NormalizeFileName(name);
  return platform::FullPath(plain) == plain && !Climbs(name);
}

// Whether one of the first components is a link. What lies behind one is not the store's, whoever
// put it there.
bool HasLink(const std::string& directory, const std::vector<std::string>& parts,
             std::size_t count) {
  for (std::size_t depth = 1; depth <= count; ++depth) {
    platform::FileInfo info;
    // Whatever keeps this process from looking keeps it from more; the call that follows says so.
    if (!platform::Files().GetInfo(Below(directory, parts, depth), info).Ok()) return false;
    if (info.isLink) return true;
    if (info.kind == platform::FileKind::None) return false;
  }
  return false;
}

// A damaged name must not cost the store one of its databases.
bool IsStoreFile(const std::vector<std::string>& parts) {
  if (parts.size() != 1) return false;
  return std::any_of(storefiles::kRequired.begin(), storefiles::kRequired.end(),
                     [&](const char* name) { return SameText(parts[0], name); });
}

// A stored name without the store's directory, however it came to have it: the checks are made of
// what is inside.
std::string Relative(const std::string& storeDirectory, const std::string& stored) {
  if (!IsAbsolute(stored)) return stored;
  return attachmentfiles::ToStored(storeDirectory, CKitFile::NormalizeFileName(stored));
}

// A file that goes again unless Keep is called.
class CUnfinishedFile {
 public:
  explicit CUnfinishedFile(std::string path) : m_path(std::move(path)) {}
  CUnfinishedFile(const CUnfinishedFile&) = delete;
  CUnfinishedFile& operator=(const CUnfinishedFile&) = delete;
  ~CUnfinishedFile() {
    if (m_path.empty()) return;
    RunOrLog(
        [this] {
          const platform::Status status = platform::Files().Remove(m_path);
          if (status.Why() != platform::Cause::NotFound)
            KitCheck(status, "remove the unfinished file", m_path);
        },
        "ms\\Source\\AttachmentFiles", 1);
  }
  const std::string& Path() const { return m_path; }
  void Keep() { m_path.clear(); }

 private:
  std::string m_path;
};

std::unique_ptr<platform::File> OpenToSync(const std::string& path) {
  std::unique_ptr<platform::File> file;
  const platform::OpenOptions options{platform::Access::ReadWrite,
                                      platform::Disposition::OpenExisting, platform::Sharing::All};
  KitCheck(platform::Files().Open(path, options, file), "open", path);
  return file;
}

void Book(std::unique_ptr<platform::File> file, const std::string& path,
          CMSDurability& durability) {
  durability.FileWritten(std::move(file), path);
  durability.DirectoryChanged(CKitFile::DirectoryName(path));
}

void MakeDirectoryOf(const std::string& path, CMSDurability& durability) {
  const std::string directory = CKitFile::DirectoryName(path);
  if (CKitFolder::Exists(directory)) return;
  CKitFolder::MakePath(directory);
  durability.DirectoryChanged(CKitFile::DirectoryName(directory));
}

}  // namespace

std::string ToStored(const std::string& storeDirectory, const std::string& path) {
  std::size_t length = storeDirectory.size();
  if (length > 0 && platform::IsSeparator(storeDirectory[length - 1])) --length;  // a root
  const bool inside = path.size() > length + 1 && platform::IsSeparator(path[length]) &&
                      SameText(std::string_view(path).substr(0, length), storeDirectory);
  if (!inside) return path;
  std::string stored = path.substr(length + 1);
  for (char& c : stored) {
    if (platform::IsSeparator(c)) c = kStoredSeparator;
  }
  return stored;
}

std::string ToFull(const std::string& storeDirectory, const std::string& stored) {
  std::string name = Relative(storeDirectory, stored);
  if (IsAbsolute(name)) return IsClients(name) ? name : std::string();
  const auto parts = Components(name);
  if (parts.empty() || IsStoreFile(parts) || HasLink(storeDirectory, parts, parts.size()))
    return {};
  return CKitFile::NormalizeFileName(Below(storeDirectory, parts, parts.size()));
}

Place PlaceOf(const std::string& storeDirectory, const std::string& stored) {
  const std::string name = Relative(storeDirectory, stored);
  if (!IsAbsolute(name)) return Components(name).size() > 1 ? Place::Inside : Place::Nowhere;
  return IsWholePath(name) ? Place::Outside : Place::Nowhere;
}

std::string Canonical(const std::string& storeDirectory, const std::string& stored) {
  std::string name = Relative(storeDirectory, stored);
  std::replace(name.begin(), name.end(), '/', kStoredSeparator);
  return name;
}

std::string NameWithoutFile(std::uint32_t id, const std::string& name) {
  return KitFormat("n%08x%c", id, kStoredSeparator) + name;
}

// Making the folder tells whether its name was taken. All that needs memory comes before it.
std::string MakePlace(const std::string& storeDirectory, const std::string& name,
                      CMSDurability& durability) {
  std::string directory, path;
  do {
    directory = CKitFile::Join(storeDirectory, CKitFolder::NewName());
    path = CKitFile::Join(directory, name);
  } while (!CKitFolder::MakeFolder(directory));
  Rollback undo([&] { CKitFolder::RemoveFolder(directory); });
  durability.DirectoryChanged(storeDirectory);
  undo.Disarm();
  return path;
}

SourceInfo Describe(const std::string& source) {
  const platform::FileInfo info = CKitFile::Info(source);
  if (info.kind != platform::FileKind::File) {
    throw XKitFile(XKitFile::Cause::NotFound, 0, source,
                   "cannot take in '" + source + "': there is no such file");
  }
  if (info.length > std::numeric_limits<std::int32_t>::max()) {
    throw XKitStatus(kit::kStatusInvalidArgument,
                     KitFormat("the file '%s' has %llu bytes, an attachment holds at most %d",
                               source.c_str(), static_cast<unsigned long long>(info.length),
                               std::numeric_limits<std::int32_t>::max()));
  }
  SourceInfo result;
  result.attributes = static_cast<std::int32_t>(info.attributes);
  result.length = static_cast<std::int32_t>(info.length);
  if (info.modified > 0 && info.modified <= std::numeric_limits<std::uint32_t>::max()) {
    result.modified = static_cast<std::uint32_t>(info.modified);
  }
  return result;
}

std::uint64_t Length(const std::string& path) {
  if (path.empty()) return 0;
  const platform::FileInfo info = CKitFile::Info(path);
  return info.kind == platform::FileKind::File ? info.length : 0;
}

void CopyIn(const std::string& source, const std::string& target, CMSDurability& durability) {
  MakeDirectoryOf(target, durability);
  // What is there already goes only once its successor has reached the medium as a whole.
  const bool replaces = CKitFile::Exists(target);
  const std::string made =
      replaces ? CKitFolder::UniqueDirectoryName(CKitFile::DirectoryName(target)) : target;
  CUnfinishedFile unfinished(made);
  CKitFile::Copy(source, made);
  CKitFile::SetAttributes(made, platform::attribute::Archive);
  auto file = OpenToSync(made);
  if (replaces) {
    KitCheck(file->Sync(), "sync", made);
    durability.FileGoes(target);
    KitCheck(platform::Files().Replace(made, target), "replace", target);
  }
  unfinished.Keep();
  Book(std::move(file), target, durability);
}

void CreateEmpty(const std::string& target, CMSDurability& durability) {
  std::unique_ptr<platform::File> file;
  const platform::OpenOptions options{platform::Access::ReadWrite,
                                      platform::Disposition::CreateAlways, platform::Sharing::All};
  KitCheck(platform::Files().Open(target, options, file), "create", target);
  Book(std::move(file), target, durability);
}

void Remove(const std::string& storeDirectory, const std::string& stored,
            CMSDurability& durability) {
  const std::string name = Relative(storeDirectory, stored);
  if (IsAbsolute(name)) {
    if (IsClients(name)) CKitFile::RemoveEx(name);  // no directory of the store owes for it
    return;
  }
  const auto parts = Components(name);
  if (parts.empty() || IsStoreFile(parts)) return;
  if (HasLink(storeDirectory, parts, parts.size() - 1)) return;  // a link to the file itself goes
  const std::string path = Below(storeDirectory, parts, parts.size());
  durability.FileGoes(CKitFile::NormalizeFileName(path));
  bool changed = CKitFile::RemoveEx(path);
  std::size_t depth = parts.size() - 1;
  // Up to the first that stays, whatever keeps it.
  while (depth > 0 && platform::Files().RemoveDirectory(Below(storeDirectory, parts, depth)).Ok()) {
    changed = true;
    --depth;
  }
  if (changed) durability.DirectoryChanged(Below(storeDirectory, parts, depth));
}

void Remove(const std::string& storeDirectory, const std::vector<std::string>& stored,
            CMSDurability& durability) {
  std::optional<XKitFile> failure;
  for (const std::string& name : stored) {
    try {
      Remove(storeDirectory, name, durability);
    } catch (const XKitFile& error) {
      if (!failure) failure = error;
    }
  }
  if (failure) throw XKitFile(*failure);
}

}  // namespace attachmentfiles
