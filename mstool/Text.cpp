#include "Text.h"

#include <algorithm>

#include "CharacterWidth.h"

namespace tool {
namespace {

unsigned char Byte(std::string_view text, std::size_t at) {
  return static_cast<unsigned char>(text[at]);
}

// Bytes of the well-formed character at a place, 0 when there is none.
std::size_t CharacterLength(std::string_view text, std::size_t at) {
  const unsigned char first = Byte(text, at);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || at + length > text.size()) return 0;
  // The second byte excludes over-long forms, surrogates and what lies beyond U+10FFFF.
  const unsigned char second = Byte(text, at + 1);
  const unsigned char low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const unsigned char high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  if (second < low || second > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((Byte(text, at + i) & 0xC0) != 0x80) return 0;
  }
  return length;
}

// Of a well-formed character.
char32_t CodePoint(std::string_view character) {
  static constexpr unsigned char kFirstBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  char32_t code = Byte(character, 0) & kFirstBits[character.size()];
  for (std::size_t i = 1; i < character.size(); ++i) code = code << 6 | (Byte(character, i) & 0x3F);
  return code;
}

// Calls use(character) for each; a byte that is none is handed over as U+FFFD.
template <class Use>
void ForEachCharacter(std::string_view text, const Use& use) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = CharacterLength(text, at);
    use(length == 0 ? kReplacement : text.substr(at, length));
    at += std::max<std::size_t>(length, 1);
  }
}

// The visible picture of a control character, U+2400 and up.
std::string ControlPicture(char32_t code) {
  return {'\xE2', '\x90', static_cast<char>(0x80 | (code == 0x7F ? 0x21 : code))};
}

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool ReversesWriting(char32_t code) {
  return (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

bool ForbiddenInFileName(std::string_view character) {
  static constexpr std::string_view kForbidden = "/\\:*?\"<>|";
  const auto first = static_cast<unsigned char>(character.front());
  return first < 0x20 || first == 0x7F || kForbidden.find(character.front()) != kForbidden.npos;
}

// Names that some systems take for devices, whatever the extension.
bool IsDeviceName(std::string_view name) {
  const std::string_view stem = name.substr(0, name.find('.'));
  for (const std::string_view device : {"CON", "PRN", "AUX", "NUL"}) {
    if (EqualNoCase(stem, device)) return true;
  }
  return stem.size() == 4 && stem[3] >= '0' && stem[3] <= '9' &&
         (EqualNoCase(stem.substr(0, 3), "COM") || EqualNoCase(stem.substr(0, 3), "LPT"));
}

std::string_view TrimEnds(std::string_view name) {
  const auto first = name.find_first_not_of(" .");
  if (first == name.npos) return {};
  return name.substr(first, name.find_last_not_of(" .") - first + 1);
}

}  // namespace

bool IsUtf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = CharacterLength(text, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

std::string CleanUtf8(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  ForEachCharacter(text, [&](std::string_view character) {
    clean += character.front() == '\0' ? kReplacement : character;
  });
  return clean;
}

std::string CutUtf8(std::string_view text, std::size_t maxBytes) {
  if (text.size() <= maxBytes) return std::string(text);
  std::size_t end = maxBytes;
  while (end > 0 && (Byte(text, end) & 0xC0) == 0x80) --end;
  return std::string(text.substr(0, end));
}

std::string SafeFileName(std::string_view name, std::size_t maxBytes) {
  std::string safe;
  ForEachCharacter(name, [&](std::string_view character) {
    safe += ForbiddenInFileName(character) ? "_" : character;
  });
  safe = TrimEnds(safe);
  if (safe.empty()) safe = "file";
  if (IsDeviceName(safe)) safe.insert(0, "_");
  if (safe.size() <= maxBytes) return safe;

  // A very long "extension" is no extension.
  const std::size_t dot = safe.rfind('.');
  std::string extension;
  if (dot != safe.npos && dot != 0 && safe.size() - dot <= maxBytes / 4) {
    extension = safe.substr(dot);
  }
  const std::string stem = CutUtf8(safe, maxBytes - extension.size());
  return std::string(TrimEnds(stem)) + extension;
}

std::string Visible(std::string_view text, bool keepLines) {
  std::string shown;
  shown.reserve(text.size());
  ForEachCharacter(text, [&](std::string_view character) {
    const char32_t code = CodePoint(character);
    const bool kept = keepLines && (code == '\n' || code == '\t');
    if ((code < 0x20 && !kept) || code == 0x7F) {
      shown += ControlPicture(code);
    } else if ((code >= 0x80 && code < 0xA0) || ReversesWriting(code)) {
      shown += kReplacement;
    } else {
      shown += character;
    }
  });
  return shown;
}

std::size_t DisplayWidth(std::string_view text) {
  std::size_t width = 0;
  ForEachCharacter(text, [&](std::string_view character) {
    width += static_cast<std::size_t>(CharacterWidth(CodePoint(character)));
  });
  return width;
}

std::string FitWidth(std::string_view text, std::size_t columns) {
  if (DisplayWidth(text) <= columns) return std::string(text);
  std::string fitted;
  std::size_t width = 0;
  bool full = false;
  ForEachCharacter(text, [&](std::string_view character) {
    width += DisplayWidth(character);
    full = full || width >= columns;
    if (!full) fitted += character;
  });
  return fitted + "…";
}

bool EqualNoCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return Lower(x) == Lower(y); });
}

bool EndsWithNoCase(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && EqualNoCase(text.substr(text.size() - end.size()), end);
}

}  // namespace tool
