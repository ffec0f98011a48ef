#include "Mbox.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "Text.h"

namespace tool {
namespace {

bool IsBlankLine(std::string_view line) {
  return line == "\n" || line == "\r\n";
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// "9:15" somewhere.
bool HasTimeOfDay(std::string_view line) {
  for (std::size_t at = line.find(':'); at != line.npos; at = line.find(':', at + 1)) {
    if (at > 0 && at + 2 < line.size() && IsDigit(line[at - 1]) && IsDigit(line[at + 1]) &&
        IsDigit(line[at + 2])) {
      return true;
    }
  }
  return false;
}

// The length that a header field announces; false when this is another field or no number.
bool AnnouncedLength(std::string_view line, std::uint64_t& length) {
  if (!EqualNoCase(FieldName(line), "Content-Length")) return false;
  std::string_view value = line.substr(line.find(':') + 1);
  value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
  return std::from_chars(value.data(), value.data() + value.size(), length).ec == std::errc();
}

void DropLastBlankLine(std::string& letter) {
  if (letter.ends_with("\r\n\r\n")) {
    letter.resize(letter.size() - 2);
  } else if (letter.ends_with("\n\n")) {
    letter.pop_back();
  }
}

}  // namespace

std::string_view FieldName(std::string_view line) {
  std::size_t end = 0;
  while (end < line.size() && line[end] > ' ' && line[end] < '\x7F' && line[end] != ':') ++end;
  const std::size_t colon = line.find_first_not_of(" \t", end);
  return end > 0 && colon != line.npos && line[colon] == ':' ? line.substr(0, end)
                                                             : std::string_view();
}

bool IsFromLine(std::string_view line) {
  if (!line.starts_with("From ")) return false;
  return line.starts_with("From - ") || HasTimeOfDay(line);
}

bool MboxReader::ReadLine(std::string& line) {
  if (!std::getline(m_in, line)) return false;
  m_at += line.size();
  if (!m_in.eof()) {
    line += '\n';
    ++m_at;
  }
  return true;
}

void MboxReader::Rewind(std::uint64_t at) {
  m_in.clear();
  m_in.seekg(static_cast<std::streamoff>(at));
  m_at = at;
}

// Adds the announced bytes when they end where a letter may end.
bool MboxReader::TakeWhole(std::string& letter, std::uint64_t length) {
  const std::uint64_t start = m_at;
  m_in.seekg(0, std::ios::end);
  const auto size = static_cast<std::uint64_t>(m_in.tellg());
  Rewind(start);
  if (length > size - start) return false;

  std::string content(static_cast<std::size_t>(length), '\0');
  m_in.read(content.data(), static_cast<std::streamsize>(length));
  m_at = start + length;
  std::string line;
  do {
    line.clear();
  } while (ReadLine(line) && IsBlankLine(line));
  if (line.empty() || line.starts_with("From ")) {
    Rewind(m_at - line.size());
    letter += content;
    return true;
  }
  Rewind(start);
  return false;
}

bool MboxReader::StartsLetter(std::string_view line, bool afterBlank) {
  if (!line.starts_with("From ")) return false;
  const std::uint64_t here = m_at;
  std::string next;
  ReadLine(next);
  Rewind(here);
  const bool headerFollows = !FieldName(next).empty() || next.starts_with(">From ");
  return IsFromLine(line) ? afterBlank || headerFollows : afterBlank && headerFollows;
}

bool MboxReader::Next(std::string& letter, std::uint64_t& offset) {
  letter.clear();
  offset = m_at;
  std::string line;
  bool first = true;
  bool inHeader = true;
  bool announced = false;
  std::uint64_t length = 0;
  for (bool afterBlank = true; ReadLine(line);) {
    const std::uint64_t lineStart = m_at - line.size();
    if (!first && StartsLetter(line, afterBlank)) {
      Rewind(lineStart);
      break;
    }
    afterBlank = IsBlankLine(line);
    if (first && afterBlank) {
      offset = m_at;
      continue;
    }
    if (first && line.starts_with("From ")) {
      first = false;
      continue;
    }
    first = false;
    letter += line;
    if (!inHeader) continue;
    announced = AnnouncedLength(line, length) || announced;
    inHeader = !afterBlank;
    if (!inHeader && announced && TakeWhole(letter, length)) return true;
  }
  if (offset == m_at) return false;
  DropLastBlankLine(letter);
  return true;
}

}  // namespace tool
