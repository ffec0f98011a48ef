#include "RepairJournal.h"

#include "kit/KitFile.h"

namespace tool {
namespace {

constexpr const char* kFile = "fixme.dat";
// Every 9 stands for a digit.
constexpr std::string_view kStamp = "99/99/9999 99:99:99.999";
constexpr std::string_view kMarker = " ======== Request for repair";
constexpr std::string_view kReason = " The reason is: ";
constexpr std::string_view kLineEnd = "\r\n";

bool IsStampAt(std::string_view text, std::size_t at) {
  if (text.size() - at < kStamp.size()) return false;
  for (std::size_t i = 0; i < kStamp.size(); ++i) {
    const char c = text[at + i];
    if (kStamp[i] == '9' ? (c < '0' || c > '9') : c != kStamp[i]) return false;
  }
  return true;
}

// An entry begins with its stamp. One that stands behind a cut line shows by the words after it,
// one that is cut itself by standing at the start of a line.
bool BeginsAt(std::string_view text, std::size_t at) {
  if (!IsStampAt(text, at)) return false;
  return at == 0 || text[at - 1] == '\n' || text.substr(at + kStamp.size()).starts_with(kMarker);
}

std::size_t NextBegin(std::string_view text, std::size_t from) {
  while (from < text.size() && !BeginsAt(text, from)) ++from;
  return from;
}

std::string Sortable(std::string_view stamp) {
  std::string time(stamp.substr(6, 4));
  time.append("-").append(stamp.substr(3, 2)).append("-").append(stamp.substr(0, 2));
  return time.append(stamp.substr(10));
}

// A whole entry, and behind it perhaps the first bytes of one that was cut very early.
void AddPiece(std::string_view piece, std::vector<JournalEntry>& entries) {
  const std::size_t end = piece.rfind(kLineEnd);
  std::string head(kMarker);
  head.append(kLineEnd).append(kReason);
  const std::size_t begin = kStamp.size() + head.size();
  const bool isWhole = IsStampAt(piece, 0) && end != piece.npos && end >= begin &&
                       piece.substr(kStamp.size()).starts_with(head);
  if (!isWhole) {
    entries.push_back({"", std::string(piece)});
    return;
  }
  entries.push_back(
      {Sortable(piece.substr(0, kStamp.size())), std::string(piece.substr(begin, end - begin))});
  const std::string_view rest = piece.substr(end + kLineEnd.size());
  if (!rest.empty()) entries.push_back({"", std::string(rest)});
}

}  // namespace

std::vector<JournalEntry> ParseJournal(std::string_view bytes) {
  std::vector<JournalEntry> entries;
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t next = NextBegin(bytes, at + 1);
    AddPiece(bytes.substr(at, next - at), entries);
    at = next;
  }
  return entries;
}

std::vector<JournalEntry> ReadJournal(const std::string& directory) {
  if (!HasJournal(directory)) return {};
  CKitFile file(
      CKitFile::Join(directory, kFile),
      {platform::Access::Read, platform::Disposition::OpenExisting, platform::Sharing::All});
  std::string bytes(static_cast<std::size_t>(file.Length()), '\0');
  bytes.resize(file.Read(0, bytes.data(), bytes.size()));
  return ParseJournal(bytes);
}

bool HasJournal(const std::string& directory) {
  return CKitFile::Exists(CKitFile::Join(directory, kFile));
}

}  // namespace tool
