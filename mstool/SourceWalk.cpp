#include "SourceWalk.h"

#include <algorithm>
#include <fstream>
#include <system_error>

#include "Mbox.h"
#include "Text.h"

namespace tool {
namespace fs = std::filesystem;
namespace {

bool IsDirectory(const fs::path& path) {
  std::error_code ignored;  // what cannot be looked at is no directory to walk
  return fs::is_directory(path, ignored);
}

// "tmp" and "new" may be missing where a version control system or an archive kept no empty
// directories.
bool IsMaildir(const fs::path& directory) {
  return IsDirectory(directory / "cur") ||
         (IsDirectory(directory / "new") && IsDirectory(directory / "tmp"));
}

bool BeginsAsMbox(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::string line;
  std::string next;
  if (!std::getline(in, line)) return false;
  std::getline(in, next);
  return IsFromLine(line) || (line.starts_with("From ") && !FieldName(next).empty());
}

bool HasMboxName(const std::string& name) {
  return EndsWithNoCase(name, ".mbox") || EndsWithNoCase(name, ".mbx");
}

std::string MboxFolder(const std::string& name) {
  const std::size_t end = HasMboxName(name) ? name.rfind('.') : name.size();
  return end > 0 ? name.substr(0, end) : name;
}

class Walker {
 public:
  Walker(const fs::path& exclude, SourceList& list) : m_exclude(exclude), m_list(list) {}

  void AddNamed(const fs::path& path) {
    const std::string name = path.filename().string();
    const bool mbox = HasMboxName(name) || (!EndsWithNoCase(name, ".eml") && BeginsAsMbox(path));
    Add(path, mbox ? SourceKind::Mbox : SourceKind::Letter, {}, false);
  }

  void WalkDirectory(const fs::path& directory, const std::vector<std::string>& folder,
                     bool holdsMembers) {
    const bool maildir = !holdsMembers && IsMaildir(directory);
    for (const fs::directory_entry& entry : Entries(directory)) {
      const fs::path& path = entry.path();
      std::error_code error;
      if (entry.is_directory(error) && !entry.is_symlink(error)) {
        Enter(path, folder, maildir);
      } else if (entry.is_regular_file(error)) {
        AddFound(path, folder, holdsMembers);
      } else {
        m_list.skipped.push_back(path);
      }
    }
  }

 private:
  std::vector<fs::directory_entry> Entries(const fs::path& directory) {
    std::vector<fs::directory_entry> entries;
    std::error_code error;
    fs::directory_iterator next(directory, error);
    for (; !error && next != fs::directory_iterator(); next.increment(error)) {
      entries.push_back(*next);
    }
    if (error) m_list.unreadable.push_back(directory);
    std::sort(entries.begin(), entries.end());
    return entries;
  }

  void Enter(const fs::path& path, std::vector<std::string> folder, bool inMaildir) {
    std::error_code error;
    if (!m_exclude.empty() && fs::equivalent(path, m_exclude, error)) return;
    const std::string name = path.filename().string();
    if (inMaildir && name == "tmp") return;
    const bool members = inMaildir && (name == "cur" || name == "new");
    if (!members) AppendFolders(name, inMaildir, folder);
    WalkDirectory(path, folder, members);
  }

  // Inside a Maildir, ".A.B" is the sub-folder B of A.
  static void AppendFolders(const std::string& name, bool inMaildir,
                            std::vector<std::string>& folder) {
    if (!inMaildir || name.size() < 2 || name.front() != '.') {
      folder.push_back(CleanUtf8(name));
      return;
    }
    for (std::size_t at = 1; at <= name.size();) {
      const std::size_t end = std::min(name.find('.', at), name.size());
      if (end > at) folder.push_back(CleanUtf8(name.substr(at, end - at)));
      at = end + 1;
    }
  }

  void AddFound(const fs::path& path, const std::vector<std::string>& folder, bool isMember) {
    const std::string name = path.filename().string();
    if (isMember && name.front() != '.') {
      Add(path, SourceKind::Letter, folder, true);
    } else if (EndsWithNoCase(name, ".eml")) {
      Add(path, SourceKind::Letter, folder, false);
    } else if (HasMboxName(name) || BeginsAsMbox(path)) {
      Add(path, SourceKind::Mbox, folder, false);
    } else {
      m_list.skipped.push_back(path);
    }
  }

  void Add(const fs::path& path, SourceKind kind, std::vector<std::string> folder, bool isMember) {
    const std::string name = path.filename().string();
    if (kind == SourceKind::Mbox) folder.push_back(CleanUtf8(MboxFolder(name)));
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    const std::uint64_t bytes = error ? 0 : size;
    m_list.bytes += bytes;
    m_list.files.push_back(
        {path, kind, bytes, std::move(folder), isMember ? MaildirFlags(name) : "", isMember});
  }

  fs::path m_exclude;
  SourceList& m_list;
};

}  // namespace

std::string MaildirFlags(const std::string& fileName) {
  std::string name = fileName;
  if (EndsWithNoCase(name, ".eml")) name.resize(name.size() - 4);
  const std::size_t at = name.rfind("2,");
  if (at == name.npos || at == 0) return {};
  const bool marked = std::string_view(":;!_").find(name[at - 1]) != std::string_view::npos;
  return marked ? name.substr(at + 2) : std::string();
}

void AddSource(const fs::path& source, const fs::path& exclude, SourceList& list) {
  Walker walker(exclude, list);
  if (!IsDirectory(source)) {
    walker.AddNamed(source);
    return;
  }
  const fs::path name = fs::weakly_canonical(source).filename();
  const bool isMembers = (name == "cur" || name == "new") && IsMaildir(source / "..");
  walker.WalkDirectory(source, {}, isMembers);
}

}  // namespace tool
