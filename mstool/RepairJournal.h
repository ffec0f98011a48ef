// The journal of repair requests, as text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

struct JournalEntry {
  std::string time;  // local, "2005-03-07 14:02:09.041"; "" when the entry is not whole
  std::string text;  // the reason, or all bytes of an entry that is not whole
};

// In the order of the file. Every byte belongs to an entry: what is cut, or was never one, is an
// entry without a time.
std::vector<JournalEntry> ParseJournal(std::string_view bytes);

// The entries of the store's journal; none when there is no journal. Raises XKitFile when it cannot
// be read.
std::vector<JournalEntry> ReadJournal(const std::string& directory);

// Whether the store has one.
bool HasJournal(const std::string& directory);

}  // namespace tool
