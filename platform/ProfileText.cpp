#include "platform/ProfileText.h"

#include <algorithm>

namespace platform {
namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";
constexpr std::string_view kBreak = "\r\n";

std::string_view Trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return text.substr(0, 0);
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string Folded(std::string_view name) {
  std::string folded(Trimmed(name));
  for (char& c : folded) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return folded;
}

std::string_view Unquoted(std::string_view value) {
  const bool quoted = value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
                      value.front() == value.back();
  return quoted ? value.substr(1, value.size() - 2) : value;
}

std::string Joined(std::string_view name, std::string_view value) {
  std::string line(name);
  line += '=';
  line += value;
  return line;
}

}  // namespace

ProfileText::ProfileText(std::string text) : m_text(std::move(text)) {
  Parse();
}

void ProfileText::Parse() {
  m_names.clear();
  m_sections.assign(1, Section{});
  m_names.emplace(std::string(), 0);
  for (std::size_t begin = 0; begin < m_text.size();) {
    const std::size_t feed = m_text.find('\n', begin);
    const bool last = feed == std::string::npos;
    std::size_t end = last ? m_text.size() : feed;
    if (end > begin && m_text[end - 1] == '\r') --end;
    const std::size_t next = last ? m_text.size() : feed + 1;
    ParseLine(begin, end, next);
    begin = next;
  }
}

void ProfileText::ParseLine(std::size_t begin, std::size_t end, std::size_t next) {
  const std::string_view line = Trimmed(std::string_view(m_text).substr(begin, end - begin));
  if (!line.empty() && line.front() == '[' && ParseHeader(line, begin, next)) return;
  if (!line.empty() && line.front() != ';') ParseKey(line, begin, end, next);
  Section& section = m_sections.back();
  section.end = next;
  if (!line.empty()) section.tail = next;
}

// The name reaches to the last bracket, so that a name with a bracket in it is found again.
bool ProfileText::ParseHeader(std::string_view line, std::size_t begin, std::size_t next) {
  const auto close = line.rfind(']');
  if (close == std::string_view::npos) return false;
  m_names.emplace(Folded(line.substr(1, close - 1)), m_sections.size());
  m_sections.push_back({begin, next, next, next, {}});
  return true;
}

void ProfileText::ParseKey(std::string_view line, std::size_t begin, std::size_t end,
                           std::size_t next) {
  const auto equals = line.find('=');
  if (equals == std::string_view::npos) return;
  const std::string_view name = Trimmed(line.substr(0, equals));
  Key key;
  key.line = begin;
  key.name = static_cast<std::size_t>(name.data() - m_text.data());
  key.nameEnd = key.name + name.size();
  key.value = static_cast<std::size_t>(line.data() - m_text.data()) + equals + 1;
  key.end = end;
  key.next = next;
  m_sections.back().keys.emplace(Folded(name), key);
}

const ProfileText::Section* ProfileText::FindSection(std::string_view name) const {
  const auto found = m_names.find(Folded(name));
  return found != m_names.end() ? &m_sections[found->second] : nullptr;
}

const ProfileText::Key* ProfileText::FindKey(std::string_view section, std::string_view key) const {
  const Section* in = FindSection(section);
  if (in == nullptr) return nullptr;
  const auto found = in->keys.find(Folded(key));
  return found != in->keys.end() ? &found->second : nullptr;
}

std::optional<std::string> ProfileText::Find(std::string_view section, std::string_view key) const {
  const Key* found = FindKey(section, key);
  if (found == nullptr) return std::nullopt;
  const std::string_view text(m_text);
  const auto value = Unquoted(Trimmed(text.substr(found->value, found->end - found->value)));
  return std::string(value.substr(0, value.find('\0')));
}

std::string_view ProfileText::BreakBefore(std::size_t offset) const {
  return offset == 0 || m_text[offset - 1] == '\n' ? std::string_view() : kBreak;
}

ProfileText::Edit ProfileText::AppendSection(std::string_view name, std::string_view lines) const {
  Edit edit{m_text.size(), 0, std::string(BreakBefore(m_text.size())), false};
  edit.text += '[';
  edit.text += Trimmed(name);
  edit.text += ']';
  edit.text += kBreak;
  edit.text += lines;
  return edit;
}

// The name keeps the spelling that it has in the file.
std::optional<ProfileText::Edit> ProfileText::ChangeValue(const Key& key,
                                                          std::string_view value) const {
  const std::string_view text(m_text);
  if (Trimmed(text.substr(key.value, key.end - key.value)) == value) return std::nullopt;
  const std::string_view name = text.substr(key.name, key.nameEnd - key.name);
  Edit edit{key.line, key.end - key.line, Joined(name, value), false};
  if (text.substr(edit.offset, edit.length) == edit.text) return std::nullopt;
  const bool plain = key.value == key.line + name.size() + 1;
  edit.inPlace =
      plain && edit.text.size() == edit.length && value.find('\n') == std::string_view::npos;
  return edit;
}

// Blank lines at the end of the section give way.
ProfileText::Edit ProfileText::AppendLines(std::string_view section, std::string_view lines) const {
  const Section* in = FindSection(section);
  if (in == nullptr) return AppendSection(section, lines);
  Edit edit{in->tail, in->end - in->tail, std::string(BreakBefore(in->tail)), false};
  edit.text += lines;
  return edit;
}

ProfileText::Edits ProfileText::SetKeys(std::string_view section,
                                        const std::vector<ProfileKey>& keys) const {
  Edits edits;
  std::string added;
  for (const ProfileKey& key : keys) {
    const Key* found = FindKey(section, key.name);
    if (found == nullptr) {
      if (key.value) added.append(Joined(Trimmed(key.name), *key.value)).append(kBreak);
    } else if (!key.value) {
      edits.push_back({found->line, found->next - found->line, {}, false});
    } else if (auto edit = ChangeValue(*found, *key.value)) {
      edits.push_back(std::move(*edit));
    }
  }
  if (!added.empty()) edits.push_back(AppendLines(section, added));
  std::sort(edits.begin(), edits.end(),
            [](const Edit& a, const Edit& b) { return a.offset < b.offset; });
  return edits;
}

ProfileText::Edits ProfileText::RemoveSection(std::string_view section) const {
  const Section* in = FindSection(section);
  if (in == nullptr || in->begin == in->end) return {};
  return {{in->begin, in->end - in->begin, {}, false}};
}

ProfileText::Edits ProfileText::FillSection(std::string_view section,
                                            const std::vector<std::string_view>& lines) const {
  std::string body;
  for (const std::string_view line : lines) body.append(line).append(kBreak);
  const Section* in = FindSection(section);
  if (in == nullptr && body.empty()) return {};
  if (in == nullptr) return {AppendSection(section, body)};
  const std::size_t length = in->end - in->body;
  if (std::string_view(m_text).substr(in->body, length) == body) return {};
  if (!body.empty()) body.insert(0, BreakBefore(in->body));
  return {{in->body, length, std::move(body), false}};
}

void ProfileText::ApplyInPlace(const Edit& edit) {
  m_text.replace(edit.offset, edit.length, edit.text);
}

std::string ProfileText::Applied(const Edits& edits) const {
  const std::string_view old(m_text);
  std::string text;
  std::size_t kept = 0;
  for (const Edit& edit : edits) {
    text.append(old.substr(kept, edit.offset - kept)).append(edit.text);
    kept = edit.offset + edit.length;
  }
  return text.append(old.substr(kept));
}

}  // namespace platform
