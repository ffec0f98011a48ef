#include "Output.h"

#include <algorithm>
#include <array>
#include <iostream>

#include "Failure.h"
#include "Text.h"
#include "kit/KitString.h"
#include "platform/Program.h"
#include "platform/Time.h"

namespace tool {

std::string JsonText(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void PrintJson(const Json& members) {
  JsonStream out;
  out.BeginObject({{"format", 1}});
  for (const auto& [key, value] : members.items()) out.Member(key.c_str(), value);
  out.EndObject();
  out.Finish();
}

void JsonStream::Comma() {
  if (!m_first) std::cout << ',';
  m_first = false;
}

void JsonStream::BeginObject(const Json& members) {
  Comma();
  std::string text = JsonText(members);
  text.pop_back();
  std::cout << text;
  if (!std::cout) FlushOutput();  // nobody reads any more
  m_first = members.empty();
}

void JsonStream::EndObject() {
  std::cout << '}';
  m_first = false;
}

void JsonStream::Member(const char* key, const Json& value) {
  Comma();
  std::cout << JsonText(key) << ':' << JsonText(value);
}

void JsonStream::Key(const char* key) {
  Comma();
  std::cout << JsonText(key) << ':';
  m_first = true;
}

void JsonStream::Value(const Json& value) {
  Comma();
  std::cout << JsonText(value);
}

void JsonStream::BeginArray(const char* key) {
  Comma();
  std::cout << JsonText(key) << ":[";
  m_first = true;
}

void JsonStream::EndArray() {
  std::cout << ']';
  m_first = false;
}

void JsonStream::Finish() {
  std::cout << '\n';
  FlushOutput();
}

void Table::Print() const {
  std::vector<std::size_t> widths(m_columns.size(), 0);
  for (const auto& row : m_rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], DisplayWidth(row[i]));
    }
  }
  for (const auto& row : m_rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - DisplayWidth(row[i]), ' ');
      if (i > 0) line += "  ";
      if (m_columns[i] == Align::Right) line += padding;
      line += row[i];
      if (m_columns[i] == Align::Left && i + 1 < row.size()) line += padding;
    }
    tool::Print(line.substr(0, line.find_last_not_of(' ') + 1));
  }
}

std::string DateText(std::uint32_t seconds) {
  if (seconds == 0) return {};
  const platform::LocalTime t = platform::ToLocal({seconds, 0});
  return KitFormat("%04d-%02d-%02d %02d:%02d", t.year, t.month, t.day, t.hour, t.minute);
}

std::string SizeText(std::uint64_t bytes) {
  static constexpr std::array<const char*, 5> kUnits = {"B", "KB", "MB", "GB", "TB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; value >= 999.5 && unit + 1 < kUnits.size(); ++unit) value /= 1000;
  return KitFormat(unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
}

void Print(const std::string& line) {
  std::cout << line << '\n';
}

bool PrintsOnTerminal() {
  return platform::IsTerminal(platform::Stream::Output);
}

void FlushOutput() {
  std::cout.flush();
  if (!std::cout) throw Failure(kExitCannotAccess, "standard output cannot be written");
}

}  // namespace tool
