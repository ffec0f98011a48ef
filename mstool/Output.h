// What the program prints.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tool {

using Json = nlohmann::ordered_json;

// One line of JSON; bytes that are not UTF-8 become U+FFFD.
std::string JsonText(const Json& value);
// Prints one whole JSON object that begins with "format": 1.
void PrintJson(const Json& members);

// A JSON object that is written as it comes, for lists of any length. Its first members and the
// objects in its lists are small values; nothing of what was written is kept.
class JsonStream {
 public:
  // Opens the object with these members (an object itself).
  void BeginObject(const Json& members);
  void EndObject();
  // Inside an object.
  void Member(const char* key, const Json& value);
  // Inside an object: a member whose value is the object that comes next.
  void Key(const char* key);
  void BeginArray(const char* key);
  void EndArray();
  // Inside an array.
  void Value(const Json& value);
  // Ends the line and fails when standard output took not everything.
  void Finish();

 private:
  void Comma();
  bool m_first = true;  // in the innermost object or array
};

// Columns as wide as their longest text on a terminal; the last one is not padded.
class Table {
 public:
  enum class Align { Left, Right };
  explicit Table(std::vector<Align> columns) : m_columns(std::move(columns)) {}
  void Row(std::vector<std::string> cells) { m_rows.push_back(std::move(cells)); }
  void Print() const;

 private:
  std::vector<Align> m_columns;
  std::vector<std::vector<std::string>> m_rows;
};

// Local date and time, "2024-03-01 09:30"; "" for 0.
std::string DateText(std::uint32_t seconds);
// "17 B", "4.2 KB", "1.3 GB".
std::string SizeText(std::uint64_t bytes);

void Print(const std::string& line);
// Whether a person rather than a program reads what is printed.
bool PrintsOnTerminal();
// Raises an error when standard output is closed or full.
void FlushOutput();

}  // namespace tool
