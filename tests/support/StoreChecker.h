// Checks a store that nobody has open, from the bytes of its files alone: it shares no code with
// what it judges.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <map>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace storecheck {

using Bytes = std::string;
inline constexpr std::uint32_t kNone = 0xFFFFFFFF;
inline constexpr std::uint32_t kGreatestID = 0xFFFFFF00;
inline constexpr std::size_t kHeader = 48;  // of a record file
inline constexpr std::size_t kHead = 12;    // of a slot: previous, next, key

inline std::uint32_t U32(const Bytes& bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;)
    value = value << 8 | static_cast<unsigned char>(bytes.at(at + i));
  return value;
}
inline void PutU32(Bytes& bytes, std::size_t at, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) bytes.at(at + i) = static_cast<char>(value >> 8 * i & 0xFF);
}

// "" of what cannot be read.
inline Bytes ReadWhole(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  Bytes bytes(in.good() ? static_cast<std::size_t>(in.tellg()) : 0, '\0');
  in.seekg(0).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

struct Field {
  std::size_t at;
  std::size_t width;
};
struct Kind {
  const char* name;
  const char* db;
  const char* index;
  std::uint32_t record;  // bytes
  std::uint32_t type;
  std::span<const Field> texts;
  std::size_t Slot() const { return kHead + record; }
  std::size_t At(std::size_t slot) const { return kHeader + slot * Slot(); }
};
enum { Letters, Attachments, Recipients, Folders };
inline constexpr Field kLetterTexts[] = {{8, 101},  {109, 101}, {210, 260}, {474, 17}, {491, 14},
                                         {505, 51}, {556, 51},  {607, 57},  {729, 9}};
inline constexpr Field kAttachmentTexts[] = {{20, 260}, {280, 201}, {481, 260}};
inline constexpr Field kRecipientTexts[] = {{12, 260},  {272, 17},  {289, 10}, {299, 14},
                                            {313, 9},   {322, 100}, {422, 58}, {480, 58},
                                            {538, 256}, {794, 58},  {856, 58}};
inline constexpr Field kFolderTexts[] = {{16, 201}, {217, 201}};
inline constexpr std::array<Kind, 4> kKinds{{
    {"letter", "docs3.db", "docs3.idx", 764, 3, kLetterTexts},
    {"attachment", "attach3.db", "attach3.idx", 741, 1, kAttachmentTexts},
    {"recipient", "rcpt3.db", "rcpt3.idx", 922, 2, kRecipientTexts},
    {"folder", "folders3.db", "folders3.idx", 418, 4, kFolderTexts},
}};
inline const std::array<std::string, 11> kFiles{
    "docs3.db",  "attach3.db",   "rcpt3.db",  "folders3.db", "docs3.idx", "attach3.idx",
    "rcpt3.idx", "folders3.idx", "rltns3.db", "packets3.db", "ms3.db"};

// Up to its end, or the whole field.
inline std::string TextAt(const Bytes& record, const Field& field) {
  const std::string text = record.substr(field.at, field.width);
  return text.substr(0, text.find('\0'));
}

class Checker {
 public:
  explicit Checker(std::filesystem::path directory) : m_directory(std::move(directory)) {
    for (std::size_t kind = 0; kind < kKinds.size(); ++kind) Records(kind);
    for (std::size_t kind = 0; kind < kKinds.size(); ++kind) Objects(kind);
    Tree();
    for (const auto& [id, record] : m_objects[Letters]) Letter(id, record);
    Derived();
    Paths();
    Master();
  }
  const std::vector<std::string>& Findings() const { return m_findings; }

 private:
  using Link = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>;  // parent, type, child

  template <class... Parts>
  void Bad(const Parts&... parts) {
    std::ostringstream text;
    (text << ... << parts);
    m_findings.push_back(text.str());
  }
  template <class... Parts>
  void Expect(bool holds, const Parts&... parts) {
    if (!holds) Bad(parts...);
  }
  Bytes Read(const std::string& name) {
    Expect(std::filesystem::exists(m_directory / name), name, ": missing");
    return ReadWhole(m_directory / name);
  }

  void Records(std::size_t which) {
    const Kind& kind = kKinds[which];
    const Bytes bytes = Read(kind.db);
    if (bytes.size() < kHeader) return Bad(kind.db, ": no header");
    const auto field = [&](std::size_t n) { return U32(bytes, n * 4); };
    const std::uint32_t total = field(5);
    Expect(field(0) == 0x45674B21 && field(1) == 5 && field(2) == kHeader && field(3) == 4 &&
               field(4) == kind.record && field(8) == 0,
           kind.db, ": header");
    if (bytes.size() != kind.At(total)) return Bad(kind.db, ": length for ", total, " slots");
    const std::set<std::size_t> free = FreeSlots(kind, bytes, total);
    Expect(field(6) + free.size() == total, kind.db, ": ", field(6), " in use, ", free.size(),
           " free");
    for (std::size_t slot = 0; slot < total; ++slot) {
      const std::size_t at = kind.At(slot);
      const std::uint32_t key = U32(bytes, at + 8);
      const Bytes record = bytes.substr(at + kHead, kind.record);
      if (free.count(slot) != 0) {
        const bool zero = key == 0 && record.find_first_not_of('\0') == record.npos;
        Expect(zero || (field(9) & 1) == 0, kind.db, ": free slot ", slot, " is not zero");
        continue;
      }
      Expect(U32(bytes, at) == kNone && U32(bytes, at + 4) == kNone, kind.db, ": links of slot ",
             slot);
      Expect(key > 0 && key <= kGreatestID, kind.db, ": key ", key, " in slot ", slot);
      Expect(m_ids.insert(key).second, kind.db, ": key ", key, " is borne twice");
      m_objects[which][key] = record;
      m_entries[which].insert(Packed({key, static_cast<std::uint32_t>(slot)}));
    }
  }
  std::set<std::size_t> FreeSlots(const Kind& kind, const Bytes& bytes, std::uint32_t total) {
    std::set<std::size_t> free;
    std::uint32_t previous = kNone;
    for (std::uint32_t at = U32(bytes, 28); at != kNone; at = U32(bytes, kind.At(previous) + 4)) {
      if (at >= total || !free.insert(at).second || U32(bytes, kind.At(at)) != previous) {
        Bad(kind.db, ": chain breaks at slot ", at);
        break;
      }
      previous = at;
    }
    return free;
  }

  void Objects(std::size_t which) {
    const Kind& kind = kKinds[which];
    for (const auto& [id, record] : m_objects[which]) {
      for (const Field& text : kind.texts)
        Expect(TextAt(record, text).size() < text.width, kind.name, " ", id,
               ": no end of the text at ", text.at);
      const std::uint32_t parent = U32(record, 0);
      if (which == Folders && id == 1) {
        Expect(parent == 0, "the root lies in ", parent);
        continue;
      }
      const auto& parents = m_objects[which == Folders || which == Letters ? Folders : Letters];
      Expect(parents.count(parent) != 0, kind.name, " ", id, ": no parent ", parent);
      m_links.insert({parent, kind.type, id});
    }
  }
  std::uint32_t Children(std::uint32_t parent, std::size_t which) const {
    const std::uint32_t type = kKinds[which].type;
    return static_cast<std::uint32_t>(std::distance(m_links.lower_bound({parent, type, 0}),
                                                    m_links.upper_bound({parent, type, kNone})));
  }
  void Tree() {
    const auto& folders = m_objects[Folders];
    Expect(folders.count(1) != 0, "no root");
    for (const auto& [id, record] : folders) {
      Expect(U32(record, 4) == Children(id, Letters), "folder ", id, ": count of letters");
      Expect(U32(record, 8) == Children(id, Folders), "folder ", id, ": count of folders");
      std::set<std::uint32_t> way;
      std::uint32_t at = id;
      while (at != 1 && folders.count(at) != 0 && way.insert(at).second)
        at = U32(folders.at(at), 0);
      Expect(at == 1, "folder ", id, ": not below the root");
    }
  }
  void Letter(std::uint32_t id, const Bytes& letter) {
    constexpr std::uint32_t kEncrypted = 1, kComplete = 8, kBody = 4;
    std::uint32_t size = 0;
    bool isEncrypted = false;
    const auto& attachments = m_objects[Attachments];
    for (auto link = m_links.lower_bound({id, 1, 0});
         link != m_links.end() && *link < Link{id, 2, 0}; ++link) {
      const Bytes& attachment = attachments.at(std::get<2>(*link));
      size += U32(attachment, 12);
      isEncrypted = isEncrypted || (U32(attachment, 16) & kEncrypted) != 0;
    }
    const std::uint32_t body = U32(letter, 4), flag = U32(letter, 721);
    Expect((flag & kComplete) != 0, "letter ", id, ": not complete");
    Expect(((flag & kEncrypted) != 0) == isEncrypted, "letter ", id, ": bit of encryption");
    Expect(U32(letter, 752) == Children(id, Attachments), "letter ", id, ": count of attachments");
    Expect(U32(letter, 756) == Children(id, Recipients), "letter ", id, ": count of recipients");
    Expect(U32(letter, 760) == size, "letter ", id, ": size");
    m_size += size;
    if (body == 0) return;
    const auto found = attachments.find(body);
    Expect(found != attachments.end() && U32(found->second, 0) == id &&
               (U32(found->second, 16) & kBody) != 0,
           "letter ", id, ": body ", body);
  }

  static Bytes Packed(std::initializer_list<std::uint32_t> values) {
    Bytes bytes(values.size() * 4, '\0');
    std::size_t at = 0;
    for (const std::uint32_t value : values) PutU32(bytes, 4 * at++, value);
    return bytes;
  }
  // header: the signature, then the fields.
  void Entries(const std::string& name, const Bytes& header, std::size_t entry,
               const std::multiset<Bytes>& wanted) {
    const Bytes bytes = Read(name);
    if (bytes.substr(0, header.size()) != header || (bytes.size() - header.size()) % entry != 0)
      return Bad(name, ": form");
    std::multiset<Bytes> live;
    for (std::size_t at = header.size(); at < bytes.size(); at += entry)
      if (bytes[at] == 0) live.insert(bytes.substr(at + 1, entry - 1));
    Expect(live == wanted, name, ": ", live.size(), " entries, not these ", wanted.size());
  }
  void Derived() {
    for (std::size_t kind = 0; kind < kKinds.size(); ++kind)
      Entries(kKinds[kind].index, "IDXF" + Packed({2, 4, 4}), 9, m_entries[kind]);
    std::multiset<Bytes> links, names;
    for (const auto& [parent, type, child] : m_links) links.insert(Packed({parent, type, child}));
    Entries("rltns3.db", "SDXF" + Packed({2, 12}), 13, links);
    for (const auto& [id, record] : m_objects[Recipients]) {
      std::string name = TextAt(record, {12, 12});
      name.resize(13);
      if (name[0] != '\0') names.insert(name + Packed({id}));
    }
    Entries("packets3.db", "IDXF" + Packed({2, 13, 4}), 18, names);
  }

  // Each record that has a file has it for itself, in a directory of the store.
  void Paths() {
    constexpr std::uint32_t kRemoved = 0x80;
    std::set<std::string> taken;
    for (const auto& [id, record] : m_objects[Attachments]) {
      std::string path = TextAt(record, {20, 260});
      std::replace(path.begin(), path.end(), '/', '\\');
      if ((U32(record, 16) & kRemoved) == 0)
        Expect(taken.insert(path).second, "attachment ", id, ": file of another: ", path);
      bool isInside = path.find('\\') != path.npos && path.substr(1, 1) != ":";
      std::istringstream parts(path + "\\");
      for (std::string part; std::getline(parts, part, '\\');)
        isInside = isInside && !part.empty() && part != "." && part != "..";
      Expect(isInside, "attachment ", id, ": path outside of the store: ", path);
    }
  }

  static std::string Plain(std::string text) {
    const std::size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
    text = text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
    for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return text;
  }
  // Of two sections or keys with one name the first counts; case and blanks do not.
  void Master() {
    std::istringstream lines(Read("ms3.db"));
    std::map<std::string, std::string> values;
    std::set<std::string> sections;
    std::string section;
    for (std::string line; std::getline(lines, line);) {
      line = Plain(line);
      const std::size_t equal = line.find('='), end = line.rfind(']');
      if (line.starts_with('[') && end != line.npos) {
        section = line.substr(0, end + 1);
        if (!sections.insert(section).second) section += "again";
      } else if (equal != line.npos && !line.starts_with(';')) {
        values.emplace(section + Plain(line.substr(0, equal)), Plain(line.substr(equal + 1)));
      }
    }
    Expect(values["[maintenance]state"] == "closed", "ms3.db: state");
    Expect(values["[maintenance]repairrequest"] != "1", "ms3.db: request for repair");
    // A signed number of 32 bits, whose upper half stands for the greater IDs.
    const std::string& last = values["[messagestore]lastid"];
    Expect(last.find_first_not_of("0123456789", last.starts_with('-') ? 1 : 0) == last.npos &&
               last.size() < 12 &&
               static_cast<std::uint32_t>(std::strtoll(last.c_str(), nullptr, 10)) >=
                   (m_ids.empty() ? 1 : *m_ids.rbegin()),
           "ms3.db: last ID ", last);
    const std::string& size = values["[messagestore]size"];
    Expect(size == std::to_string(m_size) || (size.empty() && m_size == 0), "ms3.db: size ", size,
           " of ", m_size);
  }

  static constexpr const char* kBlanks = " \t\r\v\f";
  const std::filesystem::path m_directory;
  std::vector<std::string> m_findings;
  std::set<std::uint32_t> m_ids;
  std::array<std::map<std::uint32_t, Bytes>, 4> m_objects;  // records by ID
  std::array<std::multiset<Bytes>, 4> m_entries;            // of the indexes
  std::set<Link> m_links;
  std::uint32_t m_size = 0;
};

}  // namespace storecheck

// What is wrong, a text each; empty when the store is consistent.
inline std::vector<std::string> CheckStore(const std::string& directory) {
  return storecheck::Checker(directory).Findings();
}
