// The text of a private-profile (INI) file, without any input or output.
//
// A text is parsed once; a lookup is two hash searches. A change is first described (as the ranges
// of the text to replace) and then applied, so that the owner can bring the same ranges to the disk
// in between.
//
// Invariant: sections are in the order of their first appearance; the first, nameless one holds the
// lines before the first header. Every section's lines are [body, end), and all of [tail, end) is
// blank.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/Profile.h"

namespace platform {

class ProfileText {
 public:
  // Replaces length characters at offset by text.
  struct Edit {
    std::size_t offset = 0;
    std::size_t length = 0;
    std::string text;
    // Only the value of one key changes, and it keeps its length: no other position moves.
    bool inPlace = false;
  };
  // In the order of their offsets; none when the text says all of it already.
  using Edits = std::vector<Edit>;

  ProfileText() : ProfileText(std::string()) {}
  explicit ProfileText(std::string text);
  const std::string& Text() const { return m_text; }

  // The value as a reader sees it: blanks trimmed, one pair of equal quotes stripped, ended by a
  // zero character.
  std::optional<std::string> Find(std::string_view section, std::string_view key) const;

  // What has to be replaced. No key may be there twice.
  Edits SetKeys(std::string_view section, const std::vector<ProfileKey>& keys) const;
  Edits RemoveSection(std::string_view section) const;
  // Puts lines in the place of all that is in the section. A section that is not there is made for
  // them.
  Edits FillSection(std::string_view section, const std::vector<std::string_view>& lines) const;

  // The edits must come from this text as it stands, or differ from it by others in place.
  void ApplyInPlace(const Edit& edit);
  std::string Applied(const Edits& edits) const;

 private:
  struct Key {
    std::size_t line = 0;  // first character of the line
    std::size_t name = 0;  // first character of the name, and behind its last
    std::size_t nameEnd = 0;
    std::size_t value = 0;  // behind the equals sign
    std::size_t end = 0;    // behind the last character, without the line break
    std::size_t next = 0;   // first character of the next line
  };
  struct Section {
    std::size_t begin = 0;  // first character of the header line
    std::size_t body = 0;
    std::size_t tail = 0;
    std::size_t end = 0;
    std::unordered_map<std::string, Key> keys;  // the first of each folded name
  };

  void Parse();
  void ParseLine(std::size_t begin, std::size_t end, std::size_t next);
  bool ParseHeader(std::string_view line, std::size_t begin, std::size_t next);
  void ParseKey(std::string_view line, std::size_t begin, std::size_t end, std::size_t next);
  const Section* FindSection(std::string_view name) const;
  const Key* FindKey(std::string_view section, std::string_view key) const;
  // The line break that text put in at offset needs in front of it.
  std::string_view BreakBefore(std::size_t offset) const;
  Edit AppendSection(std::string_view name, std::string_view lines) const;
  Edit AppendLines(std::string_view section, std::string_view lines) const;
  std::optional<Edit> ChangeValue(const Key& key, std::string_view value) const;

  std::string m_text;
  std::vector<Section> m_sections;
  std::unordered_map<std::string, std::size_t> m_names;  // the first of each folded name
};

}  // namespace platform
