#include "Dates.h"

#include <gmime/gmime.h>

#include <limits>
#include <memory>
#include <regex>
#include <string_view>

namespace tool {
namespace {

// What stands behind is no date any more, and patterns are not searched in texts of any length.
constexpr std::size_t kDateLimit = 200;

// The text with blanks in place of its comments. One at the end is kept, since it can be all that
// names the zone.
std::string WithoutComments(std::string_view text) {
  std::string plain;
  std::string_view last;
  std::size_t depth = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '(') {
      if (depth == 0) last = text.substr(i);
      ++depth;
    } else if (c == ')' && depth > 0) {
      plain += ' ';
      --depth;
    } else if (c == '\\' && depth > 0) {
      ++i;
    } else if (depth == 0) {
      if (c != ' ' && c != '\t') last = {};
      plain += c;
    }
  }
  return plain.append(last);
}

// With one blank at most between words, and none around colons.
std::string WithoutSpareBlanks(std::string_view text) {
  std::string plain;
  bool blank = false;
  for (const char c : text) {
    if (c == ' ' || c == '\t') {
      blank = true;
      continue;
    }
    if (blank && c != ':' && !plain.empty() && plain.back() != ':') plain += ' ';
    plain += c;
    blank = false;
  }
  return plain;
}

// With the zone's name, at the end, in capitals and, where it is told by the half of the day, the
// hour told by 24.
std::string WithPlainTime(std::string text) {
  static const std::regex kHalfDay(R"((\d{1,2})(:\d\d(?::\d\d)?) ?([APap])[Mm]\b)");
  for (std::size_t i = text.size(); i > 0 && g_ascii_isalpha(text[i - 1]) != 0; --i) {
    text[i - 1] = g_ascii_toupper(text[i - 1]);
  }
  std::smatch match;
  if (!std::regex_search(text, match, kHalfDay)) return text;
  const bool afternoon = match[3] == "P" || match[3] == "p";
  const int hour = std::stoi(match[1]) % 12 + (afternoon ? 12 : 0);
  return match.prefix().str() + std::to_string(hour) + match[2].str() + match.suffix().str();
}

struct Release {
  void operator()(GDateTime* time) const { g_date_time_unref(time); }
};
using DateTime = std::unique_ptr<GDateTime, Release>;

// Letters should bear dates of one form; programs that write web feeds as letters give another one.
DateTime Parse(const std::string& text) {
  const bool isIso = text.size() > 10 && text[4] == '-' && text[7] == '-' && text[10] == 'T';
  if (!isIso) return DateTime(g_mime_utils_header_decode_date(text.c_str()));
  const std::unique_ptr<GTimeZone, decltype(&g_time_zone_unref)> utc(g_time_zone_new_utc(),
                                                                     g_time_zone_unref);
  return DateTime(g_date_time_new_from_iso8601(text.c_str(), utc.get()));
}

// The mail library guesses at what it does not understand. It did understand a date when it found
// the time of day that the text tells.
bool TellsTimeOf(const std::string& text, GDateTime* time) {
  static const std::regex kTime(R"((?:\b|T)(\d{1,2}):(\d{1,2})\b)");
  std::smatch match;
  return std::regex_search(text, match, kTime) &&
         std::stoi(match[1]) == g_date_time_get_hour(time) &&
         std::stoi(match[2]) == g_date_time_get_minute(time);
}

}  // namespace

std::optional<std::uint32_t> ReadDate(const std::string& text) {
  const std::string compact = WithoutSpareBlanks(WithoutComments(text)).substr(0, kDateLimit);
  if (compact.empty()) return std::nullopt;
  const std::string plain = WithPlainTime(compact);
  const DateTime time = Parse(plain);
  if (!time || !TellsTimeOf(plain, time.get())) return std::nullopt;
  const gint64 seconds = g_date_time_to_unix(time.get());
  if (seconds <= 0 || seconds > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  return static_cast<std::uint32_t>(seconds);
}

}  // namespace tool
