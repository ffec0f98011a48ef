#include "EncodedWords.h"

#include <glib.h>

#include <memory>
#include <optional>

#include "Base64.h"
#include "Charset.h"
#include "Glib.h"
#include "Text.h"

namespace tool {
namespace {

struct Word {
  std::string charset;
  std::string bytes;
  std::size_t end = 0;  // behind it in the line
};

int HexValue(char c) {
  return g_ascii_isxdigit(c) != 0 ? g_ascii_xdigit_value(c) : -1;
}

std::string DecodeQ(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escape = text[i] == '=' && i + 2 < text.size() && HexValue(text[i + 1]) >= 0 &&
                        HexValue(text[i + 2]) >= 0;
    if (escape) {
      bytes += static_cast<char>(HexValue(text[i + 1]) * 16 + HexValue(text[i + 2]));
      i += 2;
    } else {
      bytes += text[i] == '_' ? ' ' : text[i];
    }
  }
  return bytes;
}

bool IsCharsetName(std::string_view name) {
  return !name.empty() && name.find_first_of(" \t\"<>()") == name.npos;
}

std::optional<Word> WordAt(std::string_view line, std::size_t at) {
  if (line.substr(at, 2) != "=?") return std::nullopt;
  const std::size_t charsetEnd = line.find('?', at + 2);
  if (charsetEnd == line.npos || charsetEnd + 2 >= line.size() || line[charsetEnd + 2] != '?') {
    return std::nullopt;
  }
  std::string_view charset = line.substr(at + 2, charsetEnd - at - 2);
  if (!IsCharsetName(charset)) return std::nullopt;
  charset = charset.substr(0, charset.find('*'));  // a language may follow

  const std::size_t begin = charsetEnd + 3;
  const std::size_t end = line.find("?=", begin);
  if (end == line.npos) return std::nullopt;
  const std::string_view text = line.substr(begin, end - begin);
  switch (line[charsetEnd + 1]) {
    case 'b':
    case 'B':
      return Word{std::string(charset), DecodeBase64(text), end + 2};
    case 'q':
    case 'Q':
      return Word{std::string(charset), DecodeQ(text), end + 2};
    default:
      return std::nullopt;
  }
}

// Calls plain(text) for what is no encoded word and decoded(text, written, words) for each run of
// words, with its text, how it is written in the line, and how many words it has.
template <class Plain, class Decoded>
void TakeApart(std::string_view line, const Plain& plain, const Decoded& decoded) {
  std::size_t from = 0;
  for (std::size_t at = line.find("=?"); at != line.npos; at = line.find("=?", at)) {
    std::optional<Word> word = WordAt(line, at);
    if (!word) {
      at += 2;
      continue;
    }
    plain(line.substr(from, at - from));
    std::string text;
    std::size_t end = word->end;
    std::size_t words = 1;
    for (;; ++words) {
      end = word->end;
      const std::size_t next = line.find_first_not_of(" \t", end);
      std::optional<Word> follower = next != line.npos ? WordAt(line, next) : std::optional<Word>();
      if (follower && EqualNoCase(follower->charset, word->charset)) {
        follower->bytes.insert(0, word->bytes);
        word = std::move(follower);
        continue;
      }
      text += CleanUtf8(DecodeCharset(word->bytes, word->charset));
      if (!follower) break;
      word = std::move(follower);
    }
    decoded(text, line.substr(at, end - at), words);
    at = from = end;
  }
  plain(line.substr(from));
}

}  // namespace

std::string DecodeWords(std::string_view line) {
  std::string text;
  TakeApart(
      line, [&](std::string_view plain) { text += plain; },
      [&](const std::string& decoded, std::string_view, std::size_t) { text += decoded; });
  return text;
}

std::string JoinWords(std::string_view line) {
  std::string joined;
  TakeApart(
      line, [&](std::string_view plain) { joined += plain; },
      [&](const std::string& decoded, std::string_view written, std::size_t words) {
        if (words == 1) {
          joined += written;
          return;
        }
        const GText encoded(
            g_base64_encode(reinterpret_cast<const guchar*>(decoded.data()), decoded.size()));
        joined += std::string("=?utf-8?B?") + encoded.get() + "?=";
      });
  return joined;
}

}  // namespace tool
