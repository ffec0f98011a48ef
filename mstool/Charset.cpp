#include "Charset.h"

#include <gmime/gmime.h>

#include <array>
#include <cerrno>
#include <utility>

#include "EncodedWords.h"
#include "Text.h"

namespace tool {
namespace {

// The name that the converter knows, widened to the set that is really meant: what calls itself
// Latin-1 has the quotation marks of windows-1252 where Latin-1 has controls.
const char* ConverterName(const std::string& charset) {
  static constexpr std::array<std::pair<const char*, const char*>, 12> kWider = {{
      {"gb2312", "GB18030"},
      {"gbk", "GB18030"},
      {"ks_c_5601-1987", "CP949"},
      {"ks_c_5601", "CP949"},
      {"euc-kr", "CP949"},
      {"shift_jis", "CP932"},
      {"big5", "CP950"},
      {"iso-8859-8-i", "ISO-8859-8"},
      {"iso-8859-8-e", "ISO-8859-8"},
      {"x-mac-cyrillic", "MAC-CYRILLIC"},
      {"unicode-1-1-utf-7", "UTF-7"},
      {"utf8", "UTF-8"},
  }};
  for (const auto& [name, wider] : kWider) {
    if (EqualNoCase(charset, name)) return wider;
  }
  const char* known = g_mime_charset_iconv_name(charset.c_str());
  return EqualNoCase(known, "iso-8859-1") ? "WINDOWS-1252" : known;
}

// A name that nobody knows may be a known one with something appended, such as gb2312_charset.
std::string ShorterName(const std::string& charset) {
  const std::size_t end = charset.find_last_of("_-.:;, ");
  return end == charset.npos ? std::string() : charset.substr(0, end);
}

bool SaysNothing(const std::string& charset) {
  for (const char* name : {"", "us-ascii", "ascii", "ansi_x3.4-1968", "unknown", "x-unknown",
                           "unknown-8bit", "none", "default", "binary"}) {
    if (EqualNoCase(charset, name)) return true;
  }
  return false;
}

class Converter {
 public:
  explicit Converter(const char* from) : m_handle(g_iconv_open("UTF-8", from)) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (IsOpen()) g_iconv_close(m_handle);
  }
  bool IsOpen() const { return m_handle != kInvalid; }

  std::string Convert(std::string_view bytes, bool& complete) {
    std::string in(bytes);  // the converter's interface takes no constant input
    char* next = in.data();
    gsize left = in.size();
    std::string out;
    while (left > 0) {
      if (Step(&next, &left, out) || errno == E2BIG) continue;
      complete = false;
      out += kReplacement;
      ++next;
      --left;
    }
    Step(nullptr, nullptr, out);  // back to the initial state, for sets that shift
    return out;
  }

 private:
  static inline const GIConv kInvalid = reinterpret_cast<GIConv>(-1);

  bool Step(char** next, gsize* left, std::string& out) {
    std::array<char, 4096> buffer;
    char* to = buffer.data();
    gsize room = buffer.size();
    const bool ok = g_iconv(m_handle, next, left, &to, &room) != static_cast<gsize>(-1);
    const int error = errno;
    out.append(buffer.data(), buffer.size() - room);
    errno = error;
    return ok;
  }

  GIConv m_handle;
};

bool IsAscii(std::string_view text) {
  for (const char c : text) {
    if ((static_cast<unsigned char>(c) & 0x80) != 0) return false;
  }
  return true;
}

std::string Unfold(std::string_view raw) {
  std::string line;
  for (const char c : raw) {
    if (c != '\r' && c != '\n') line += c;
  }
  const auto first = line.find_first_not_of(" \t");
  if (first == line.npos) return {};
  return line.substr(first, line.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::string DecodeCharset(std::string_view bytes, const std::string& charset, bool* complete) {
  bool all = true;
  bool& done = complete != nullptr ? *complete : all;
  done = true;
  const bool nameless = SaysNothing(charset);
  if ((nameless || EqualNoCase(charset, "utf-8")) && IsUtf8(bytes)) return std::string(bytes);

  Converter converter(nameless ? "WINDOWS-1252" : ConverterName(charset));
  if (converter.IsOpen()) return converter.Convert(bytes, done);
  if (!nameless) return DecodeCharset(bytes, ShorterName(charset), complete);
  done = false;
  return CleanUtf8(bytes);
}

std::string DecodeHeaderBytes(std::string_view raw, const std::string& textCharset) {
  std::string line = Unfold(raw);
  if (IsAscii(line) || IsUtf8(line)) return line;
  if (!SaysNothing(textCharset)) {
    bool complete = false;
    std::string decoded = DecodeCharset(line, textCharset, &complete);
    if (complete) return decoded;
  }
  return DecodeCharset(line, "");
}

std::string DecodeHeaderText(std::string_view raw, const std::string& textCharset) {
  return CleanUtf8(DecodeWords(DecodeHeaderBytes(raw, textCharset)));
}

}  // namespace tool
