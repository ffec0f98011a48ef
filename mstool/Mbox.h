// Letters in one file, each introduced by a line that begins with "From ".
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <string_view>

namespace tool {

// The name of the header field that a line begins with; empty when it begins with none.
std::string_view FieldName(std::string_view line);

// Whether a line looks like one that a mail program puts in front of a letter: "From ", somebody,
// a time of day. (Text in a letter may begin with "From " too.)
bool IsFromLine(std::string_view line);

// Cuts an mbox into its letters, holding one at a time. A letter whose Content-Length leads to the
// next From line or to the end of the file is taken whole, whatever lines are in it; otherwise the
// next From line that follows a blank line, or that a header follows, ends it.
class MboxReader {
 public:
  // The stream is read from its start and must support seeking.
  explicit MboxReader(std::istream& in) : m_in(in) {}

  // The next letter without its From line and without the blank line in front of the next one;
  // false at the end. offset is where it begins.
  bool Next(std::string& letter, std::uint64_t& offset);

 private:
  bool ReadLine(std::string& line);
  bool TakeWhole(std::string& letter, std::uint64_t length);
  bool StartsLetter(std::string_view line, bool afterBlank);
  void Rewind(std::uint64_t at);

  std::istream& m_in;
  std::uint64_t m_at = 0;
};

}  // namespace tool
