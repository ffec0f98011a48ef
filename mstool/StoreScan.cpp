#include "StoreScan.h"

#include <functional>

#include "FolderWalk.h"
#include "Interrupt.h"

namespace tool {
namespace {

std::size_t NumberOf(const std::string& text) {
  return text.empty() ? 0 : std::hash<std::string>()(text);
}

std::string SenderOf(const CMSDocument& letter) {
  return letter.SenderUserName().str() + '\0' + letter.ObsoleteSenderNetAddr().str() + '\0' +
         letter.SenderIDWG().str() + '\0' + letter.SenderIDU().str();
}

}  // namespace

// Names are joined with a character that none of them can hold.
StoreContents StoreScanner::Scan(const CMSFolder& top) {
  StoreContents contents;
  std::string path;
  const auto enter = [&](const CMSFolder& folder, std::size_t depth) {
    if (depth != 0) path += '\0' + folder.Name().str();
    ScanFolder(folder, path, contents);
  };
  const auto leave = [&](const CMSFolder&) {
    const auto last = path.rfind('\0');
    path.resize(last == path.npos ? 0 : last);
  };
  WalkFolders(top, enter, leave);
  return contents;
}

void StoreScanner::ScanFolder(const CMSFolder& folder, const std::string& path,
                              StoreContents& contents) {
  const std::uint32_t number =
      m_paths.emplace(path, static_cast<std::uint32_t>(m_paths.size() + 1)).first->second;
  if (!folder.IsRoot()) {
    contents.folders.push_back({static_cast<std::uint32_t>(folder.ID()), number});
  }
  CMSDocument letter;
  for (auto place = folder.GetFirstDocumentPosition(); folder.GetNextDocument(letter, place);) {
    ScanLetter(letter, number, contents);
  }
}

void StoreScanner::ScanLetter(const CMSDocument& letter, std::uint32_t path,
                              StoreContents& contents) {
  StopIfInterrupted();
  LetterRecord record;
  record.id = static_cast<std::uint32_t>(letter.ID());
  record.path = path;
  record.created = static_cast<std::uint32_t>(letter.CreationTime());
  record.sender = NumberOf(SenderOf(letter));
  record.subject = NumberOf(letter.Name());
  record.registration = NumberOf(letter.RegNumber());
  record.digest = DigestOf(letter, [&](std::size_t attachment, const std::string& name) {
    contents.missing.push_back({record.id, attachment, name});
  });
  contents.letters.push_back(record);
  ++m_done;
  if (!m_progress.IsDue()) return;
  m_progress.Draw(
      KitFormat("comparing  %llu of %llu letters", static_cast<unsigned long long>(m_done),
                static_cast<unsigned long long>(m_total)),
      m_done, m_total);
}

std::uint64_t CountLetters(const CMSFolder& top) {
  std::uint64_t count = 0;
  WalkFolders(top, [&](const CMSFolder& folder, std::size_t) {
    count += static_cast<std::uint64_t>(folder.GetDocumentCount());
  });
  return count;
}

}  // namespace tool
