// What is compared of a store, gathered in one walk.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "LetterPairs.h"
#include "Progress.h"

namespace tool {

struct FolderRecord {
  std::uint32_t id = 0;
  std::uint32_t path = 0;  // see LetterRecord
};

struct MissingFile {
  std::uint32_t letter = 0;
  std::size_t attachment = 0;  // from 1
  std::string name;
};

struct StoreContents {
  std::vector<FolderRecord> folders;  // without the store's root; parents first
  std::vector<LetterRecord> letters;  // folder by folder, by number
  std::vector<MissingFile> missing;
};

// Walks both stores that are to be compared, and so gives equal paths equal numbers.
class StoreScanner {
 public:
  // letters: of both walks, for the progress.
  explicit StoreScanner(std::uint64_t letters) : m_total(letters) {}

  // The folder with all below it; paths begin there. Reads every file. Ended by an interrupt
  // (Failure).
  StoreContents Scan(const CMSFolder& folder);
  void Hide() { m_progress.Hide(); }
  double Seconds() const { return m_progress.Seconds(); }

 private:
  void ScanFolder(const CMSFolder& folder, const std::string& path, StoreContents& contents);
  void ScanLetter(const CMSDocument& letter, std::uint32_t path, StoreContents& contents);

  std::map<std::string, std::uint32_t> m_paths;
  std::uint64_t m_total;
  std::uint64_t m_done = 0;
  Progress m_progress;
};

// Letters in the folder and all below it.
std::uint64_t CountLetters(const CMSFolder& folder);

}  // namespace tool
