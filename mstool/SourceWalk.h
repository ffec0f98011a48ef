// What an import is to read.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tool {

enum class SourceKind { Letter, Mbox };

struct SourceFile {
  std::filesystem::path path;
  SourceKind kind = SourceKind::Letter;
  std::uint64_t bytes = 0;
  std::vector<std::string> folder;  // sub-folders below the target, outermost first
  std::string flags;                // of a Maildir member, such as "FS"
  bool isMaildir = false;
};

struct SourceList {
  std::vector<SourceFile> files;
  std::uint64_t bytes = 0;
  std::vector<std::filesystem::path> skipped;     // no letters
  std::vector<std::filesystem::path> unreadable;  // with directories that cannot be listed
};

// Adds a file, or a directory tree whose contents are mirrored: each directory is a sub-folder, a
// Maildir is one folder, an mbox is a sub-folder named after it. Files of a tree that hold no
// letters are skipped; a file named outright is taken for a letter or an mbox in any case. Entries
// come in the order of their names. exclude is left out with all below (the store itself).
void AddSource(const std::filesystem::path& source, const std::filesystem::path& exclude,
               SourceList& list);

// The flags in a Maildir member's name, behind ":2," (or what stands for the colon where file names
// cannot hold one).
std::string MaildirFlags(const std::string& fileName);

}  // namespace tool
