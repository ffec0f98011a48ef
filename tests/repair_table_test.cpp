// The damage table: for each kind of damage what a scan tells, and what a repair leaves.
#include <algorithm>
#include <functional>
#include <iterator>
#include <sstream>
#include <utility>

#include "support/RepairFixture.h"

#include "platform/Profile.h"

namespace {

namespace fs = std::filesystem;
using storecheck::kGreatestID, storecheck::kHead, storecheck::kKinds, storecheck::kNone;
using storecheck::Letters, storecheck::Attachments, storecheck::Recipients, storecheck::Folders;

constexpr std::size_t kSlots = 100;
constexpr std::size_t kUsed[] = {2, 2, 1, 10};
// Fields of records, from the beginning of the slot.
constexpr std::size_t kKey = 8, kParent = kHead, kLetterFlag = kHead + 721, kPath = kHead + 20;
constexpr std::uint32_t kComplete = 8, kIncoming = 0x10;

// What is left of folders, letters, attachments and recipients; or the four record files byte for
// byte: as they were before the damage, or before the repair when that has nothing to mend.
const std::string kSame;
const std::string kAll = "10 2 2 1";

// A row is a damage, or several, and what comes of it:
//   Poke(Letters, 0, kKey, 0).Tells("invalid MSID", kAll);
class RepairTable : public RepairFixture {
 public:
  using Check = std::function<bool(CMSMessageStore&)>;
  RepairTable() {
    EXPECT_TRUE(fixer.RepairMS(path.c_str()));
    m_healthy = ReadFiles();
  }
  // The first damage of a row begins with a healthy store.
  template <class Body>
  RepairTable& Damage(const std::string& name, Body body) {
    if (m_row.empty()) Restore(m_healthy);
    m_row += "; " + name;
    body();
    return *this;
  }
  template <class Body>
  RepairTable& Edit(const std::string& file, const std::string& name, Body body) {
    return Damage(file + " " + name, [&] { RepairFixture::Edit(file, body); });
  }
  RepairTable& Poke(std::size_t kind, std::size_t slot, std::size_t at, std::uint32_t value) {
    return Edit(kKinds[kind].db, Text("slot ", slot, " at ", at, " = ", value),
                [&](auto& bytes) { storecheck::PutU32(bytes, kKinds[kind].At(slot) + at, value); });
  }
  RepairTable& Header(std::size_t kind, std::size_t field, std::uint32_t value) {
    return Edit(kKinds[kind].db, Text("header field ", field, " = ", value),
                [&](auto& bytes) { storecheck::PutU32(bytes, 4 * field, value); });
  }
  RepairTable& Byte(const std::string& file, std::size_t at, unsigned value) {
    return Edit(file, Text("byte ", at, " = ", value),
                [&](auto& bytes) { bytes.at(at) = static_cast<char>(value); });
  }
  RepairTable& Cut(const std::string& file, std::size_t size) {
    return Edit(file, Text("cut to ", size), [&](auto& bytes) { bytes.resize(size); });
  }
  RepairTable& Field(std::size_t kind, std::size_t slot, std::size_t at, std::string text,
                     std::size_t width) {
    text.resize(width);
    return Edit(kKinds[kind].db, Text("slot ", slot, " at ", at, " = ", text),
                [&](auto& bytes) { bytes.replace(kKinds[kind].At(slot) + at, width, text); });
  }
  RepairTable& Master(const std::string& line, const std::string& other) {
    return Edit("ms3.db", other,
                [&](auto& bytes) { bytes.replace(bytes.find(line + "\r\n"), line.size(), other); });
  }

  // found: parts of what a scan finds, with "|" between them; "": it finds nothing to mend.
  void Tells(const std::string& found, const std::string& left = kSame, const Check& check = {}) {
    SCOPED_TRACE(std::exchange(m_row, ""));
    const Files damaged = ReadFiles();
    EXPECT_EQ(fixer.ScanMS(path.c_str()), found.empty());
    EXPECT_EQ(fixer.Error(), "");
    EXPECT_TRUE(ReadFiles() == damaged);
    const std::string told = Findings();
    std::istringstream parts(found);
    for (std::string part; std::getline(parts, part, '|');)
      EXPECT_NE(told.find(part), told.npos) << part << "\n" << told;

    ASSERT_TRUE(fixer.RepairMS(path.c_str())) << fixer.Error();
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), std::ssize(fixer.Findings()))
        << told << Findings();
    Files repaired = ReadFiles();
    for (std::size_t i = 0; i < kKinds.size() && left == kSame; ++i) {
      const std::string file = kKinds[i].db;
      EXPECT_TRUE(repaired.at(file) == (found.empty() ? damaged : m_healthy).at(file)) << file;
    }
    EXPECT_TRUE(fixer.ScanMS(path.c_str())) << Findings();
    EXPECT_TRUE(fixer.RepairMS(path.c_str()) && fixer.Findings().empty());
    EXPECT_EQ(fixer.ReportDirectory(), "");
    // The last ID comes down again when the objects that had it are gone.
    repaired["ms3.db"] = ReadBytes(path + "/ms3.db");
    EXPECT_TRUE(ReadFiles() == repaired);
    for (const std::string& one : CheckStore(path)) ADD_FAILURE() << one << "\n" << told;
    CMSMessageStore store = OpenStore(path);
    const Walk walk(store);
    EXPECT_EQ(Text(walk.folders, " ", walk.letters, " ", walk.attachments, " ", walk.recipients),
              left == kSame ? kAll : left)
        << told;
    EXPECT_TRUE(!check || check(store)) << told;
  }
  // Neither job does anything but say why.
  void Refused(const std::string& what, const std::string& separator, const std::string& details) {
    SCOPED_TRACE(std::exchange(m_row, ""));
    const Files before = ReadFiles();
    for (const bool scans : {true, false}) {
      events.events.clear();
      EXPECT_FALSE(scans ? fixer.ScanMS(path.c_str()) : fixer.RepairMS(path.c_str()));
      EXPECT_EQ(fixer.Error(), "message store file corrupted (" + what + separator + details + ")");
      EXPECT_TRUE(separator.empty() ||
                  events.events.find("MS |Repairing MS - " + what + " (" + details +
                                     "). Exception is thrown.|2") != std::string::npos)
          << events.events;
      EXPECT_TRUE(ReadFiles() == before);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.Path()), {}), 1);  // no report
  }

  template <class... Parts>
  static std::string Text(const Parts&... parts) {
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
  }

  Files m_healthy;
  std::string m_row;
};

}  // namespace

TEST_F(RepairTable, Header_fields) {
  for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
    const std::string file = kKinds[kind].db;
    const auto used = static_cast<std::uint32_t>(kUsed[kind]);
    for (const auto value : {0U, 49U, kNone}) Header(kind, 2, value).Tells(file + " file header");
    for (const auto value : {0U, 99U, 101U, kNone})
      Header(kind, 5, value).Tells(Text(file, " total object count ", value, " -> 100"));
    for (const auto value : {0U, 100U, kNone})
      Header(kind, 6, value).Tells(Text(file, " used object count ", value, " -> ", used));
    for (const auto value : {kNone, 100U, 99U, used + 1})
      Header(kind, 7, value).Tells(file + " free chain");
    for (const auto value : {1U, kNone}) Header(kind, 8, value).Tells(file + " file header");
    for (const auto field : {9U, 10U, 11U}) Header(kind, field, 6).Tells("");  // harmless

    const std::string copy = CKitFile::Join(path, file) + ".tmp";
    const std::string size = "DB file record size mismatch is detected";
    const std::string small = "DB file is too small";
    Header(kind, 0, 0x45674B20)
        .Refused("DB file signature is invalid", ": ", copy + ", 0x45674B20");
    Header(kind, 1, 4).Refused("DB file version is invalid", ": ", copy + ", 0x4");
    Header(kind, 3, 8).Refused(size, ": ", copy);
    for (const auto by : {1U, kNone})
      Header(kind, 4, kKinds[kind].record + by).Refused(size, ": ", copy);
    for (const auto length : {0U, 1U, 47U}) Cut(file, length).Refused(small, ": ", copy);
    Damage("no " + file, [&] { fs::remove(path + "/" + file); }).Refused(small, ": ", copy);
  }
  // What the header takes for free is free, and what hung on it is lost.
  Header(Letters, 7, 0).Tells("lost object|docs3.db free chain", "10 1 1 0");
  Header(Attachments, 7, 0).Tells("document body 10 -> 0", "10 2 1 1");
  Header(Recipients, 7, 0).Tells("recipient count 1 -> 0", "10 2 2 0");
  Header(Folders, 7, 8).Tells("[F-0000000E:00000009] lost object", "9 2 2 1");
}

TEST_F(RepairTable, Links_of_free_chains) {
  for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
    const std::size_t first = kUsed[kind], middle = 50, last = kSlots - 1;
    const std::string found = kKinds[kind].db + std::string(" free chain");
    for (const std::size_t slot : {first, middle, last})
      for (const std::size_t value : {first + 2, slot, std::size_t{0}, kSlots})
        for (const auto link : {0U, 4U})
          Poke(kind, slot, link, static_cast<std::uint32_t>(value)).Tells(found);
    for (const std::size_t slot : {first, middle}) Poke(kind, slot, 4, kNone).Tells(found);
    Poke(kind, middle, 0, kNone).Tells(found);
  }
  // The last one looks used then, by an object that is nothing.
  Poke(Letters, kSlots - 1, 0, kNone).Tells("partially created document|free chain");
  Poke(Attachments, kSlots - 1, 0, kNone).Tells("invalid MSID|lost object|free chain");
  Poke(Recipients, kSlots - 1, 0, kNone).Tells("invalid MSID|lost object|free chain");
  Poke(Folders, kSlots - 1, 0, kNone).Tells("invalid MSID|free chain", "11 2 2 1");
  // A used one with a link is free.
  for (const auto link : {0U, 4U}) {
    Poke(Letters, 0, link, 5).Tells("lost object|docs3.db free chain", "10 1 1 0");
    Poke(Attachments, 0, link, 5).Tells("document body 10 -> 0", "10 2 1 1");
    Poke(Recipients, 0, link, 5).Tells("recipient count 1 -> 0", "10 2 2 0");
    Poke(Folders, 8, link, 5).Tells("lost object|folder count", "9 2 2 1");
  }
}

TEST_F(RepairTable, Invalid_and_duplicate_ids) {
  const std::size_t slots[] = {0, 0, 0, 9};  // the fullest ones, and the innermost folder
  for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
    const std::string left = kind == Letters ? "10 2 1 0" : kAll;
    for (const auto id : {0U, kGreatestID + 1, kNone, 1U})
      Poke(kind, slots[kind], kKey, id).Tells("invalid MSID object found", left);
    Poke(kind, slots[kind], kKey, kGreatestID).Tells("entries, others", left);
  }
  const std::string twice = "duplicate MSID object found ";
  // Children follow the one that gets another ID, whichever of them they were of.
  Poke(Letters, 1, kKey, 9)
      .Tells(twice + "[D-00000009:00000001] -> [D-00000010:00000001]", "10 2 1 1",
             [](auto& s) { return s.GetDocument(16).GetAttachmentCount() == 1; });
  Poke(Letters, 1, kKey, 3)
      .Tells(twice + "[F-00000003:00000002] -> [F-00000010:00000002]", "10 2 1 1",
             [](auto& s) { return s.GetFolder(16).GetDocumentCount() == 2; });
  Poke(Attachments, 0, kKey, 15)
      .Tells(twice + "[A-0000000F:00000001] -> [A-00000010:00000001]", kAll,
             [](auto& s) { return s.GetDocument(9).Body().ID() == 15; });
  Poke(Attachments, 0, kKey, 12)
      .Tells(twice + "[D-0000000C:00000001] -> [D-00000010:00000001]", kAll,
             [](auto& s) { return s.GetDocument(16).GetAttachmentCount() == 1; });
  // It has its parent's ID, and so none of its own.
  Poke(Recipients, 0, kKey, 9)
      .Tells(twice + "[D-00000009:00000000] -> [D-00000010:00000000]", "10 2 2 0");
  Poke(Folders, 9, kKey, 13)
      .Tells(twice + "[F-0000000D:00000009] -> [F-00000010:00000009]", kAll,
             [](auto& s) { return s.GetFolder(16).FullName() == "INBOX/a/b"; });
  // None is left for the one that needs another.
  Poke(Letters, 1, kKey, kGreatestID).Poke(Recipients, 0, kKey, 0);
  Refused("object ID took invalid value 0xFFFFFFFF", "", "");
}

TEST_F(RepairTable, Parents) {
  const auto role = [](unsigned long id, long type) {
    return [=](CMSMessageStore& s) { return s.GetDocument(id).Parent().Type() == type; };
  };
  const auto isSaved = [&](CMSMessageStore&) {
    return ReadBytes(path + "/ALIEN/text.txt") == "text";
  };
  for (const auto none : {0U, 4711U, 9U, 10U, kNone}) {
    Poke(Letters, 0, kParent, none)
        .Tells("[D-00000009:00000000] lost object ", kAll, role(9, MSF::kRoleWmRoot));
    Poke(Folders, 8, kParent, none).Tells("[F-0000000D:00000008] lost object ", kAll, [](auto& s) {
      return s.GetFolder(14).FullName() == "a/b";
    });
  }
  for (const auto none : {0U, 4711U, 3U, 10U, 11U, kNone}) {
    Poke(Attachments, 0, kParent, none)
        .Tells("[A-0000000A:00000000] lost object ", "10 2 1 1", isSaved);
    Poke(Recipients, 0, kParent, none).Tells("[R-0000000B:00000000] lost object ", "10 2 2 0");
  }
  Poke(Attachments, 0, kParent, 12).Tells("attachment count 1 -> 2", kAll);
  Poke(Recipients, 0, kParent, 12).Tells("recipient count 0 -> 1", kAll);
  Poke(Letters, 0, kParent, 14).Tells("document count 2 -> 1", kAll);
  Poke(Folders, 9, kParent, 3).Tells("folder count 1 -> 2", kAll);
  // Circles: of one, of two and of three.
  Poke(Folders, 8, kParent, 13).Tells("[F-0000000D:00000008] lost object ", kAll);
  Poke(Folders, 8, kParent, 14).Tells("[F-0000000D:00000008] lost object ", kAll);
  Poke(Folders, 2, kParent, 14).Tells("[F-00000003:00000002] lost object ", kAll);
  for (const auto parent : {1U, 5U, kNone})
    Poke(Folders, 0, kParent, parent)
        .Tells("predefined folder absent -> Root", "11 2 2 1", [](auto& s) {
          return s.Root().OpenFolder(CKitString("INBOX")).GetDocumentCount() == 2;
        });
  const auto lose = [&](std::uint32_t flag) -> RepairTable& {
    return Poke(Letters, 1, kParent, 4711).Poke(Letters, 1, kLetterFlag, kComplete | flag);
  };
  lose(0x1090).Tells("lost object", kAll, role(12, MSF::kRoleAudit));
  lose(0x90).Tells("lost object", kAll, role(12, MSF::kRoleTrash));
  lose(0x10).Tells("lost object", kAll, role(12, MSF::kRoleWmRoot));
  lose(0).Tells("lost object", kAll, role(12, MSF::kRoleInbox));
  Poke(Letters, 0, kLetterFlag, kIncoming)
      .Tells(
          "[D-00000009:00000000] partially created document  -> deleted\n|"
          "[A-0000000A:00000000] lost object [D-00000009] -> deleted\n",
          "10 1 1 0", isSaved);
  Poke(Folders, 2, kHead + 12, 0).Tells("predefined folder absent -> INBOX", "11 2 2 1");
  Poke(Folders, 9, kHead + 12, 2).Tells("");  // a second inbox is a folder like others
}

TEST_F(RepairTable, Counts) {
  struct {
    std::size_t kind, slot, at;
    const char* what;
    unsigned right;
  } const counts[] = {{Letters, 0, 4, "[D-00000009] document body", 10},
                      {Letters, 1, 4, "[D-0000000C] document body", 0},
                      {Letters, 0, 752, "[D-00000009] attachment count", 1},
                      {Letters, 0, 756, "[D-00000009] recipient count", 1},
                      {Letters, 0, 760, "[D-00000009] object size", 4},
                      {Folders, 2, 4, "[F-00000003] document count", 2},
                      {Folders, 2, 8, "[F-00000003] folder count", 1}};
  for (const auto& one : counts)
    for (const auto value : {99U, kNone})
      Poke(one.kind, one.slot, kHead + one.at, value)
          .Tells(Text(one.what, " ", value, " -> ", one.right, "\n"));
  EXPECT_NE(events.events.find("MS |Repairing MS - document body mismatch is detected "
                               "([D-00000009], 99 -> 10)|1\n"),
            std::string::npos);
  Poke(Letters, 0, kHead + 4, 15).Tells("document body 15 -> 10");
  Poke(Letters, 0, kLetterFlag, kComplete | kIncoming | 1).Tells("document flag 25 -> 24");
  Poke(Attachments, 0, kHead + 12, 5).Tells("object size 4 -> 5", kAll);
  Master("Size=9", "Size=5").Tells("store size 5 -> 9");
  Master("Size=9", "Size=none").Tells("store size none -> 9");
  // These are no reason for a repair, but one puts them right.
  Master("LastID=15", "LastID=3").Tells("");
  Master("State=Closed", "State=Active").Tells("");
  Master("RepairRequest=", "RepairRequest=1").Tells("");
  Master("LastRegNumber=77", "LastRegNumber=3").Tells("");
  EXPECT_EQ(platform::ReadProfileInt(path + "/ms3.db", "RegInfo", "LastRegNumber", 0), 77);
}

TEST_F(RepairTable, Derived_files) {
  for (std::size_t i = 4; i < storecheck::kFiles.size(); ++i) {
    const std::string file = storecheck::kFiles[i];
    Damage("no " + file, [&] { fs::remove(path + "/" + file); });
    EXPECT_TRUE(MSF::CFixer::IsRequiresRepair(path.c_str()));
    Tells(file + " file missing -> rebuilt");
    if (file == "ms3.db") continue;
    const std::size_t header = file == "rltns3.db" ? 12 : 16, bytes = m_healthy.at(file).size();
    const std::size_t entry = file == "rltns3.db" ? 13 : file == "packets3.db" ? 18 : 9;
    const std::size_t all = (bytes - header) / entry;
    const auto counts = [&](std::size_t stored) {
      return Text(file, " file ", stored, " entries -> ", all, " entries");
    };
    for (const std::size_t size : {std::size_t{0}, header - 1, bytes - 1})
      Cut(file, size).Tells(file + " file no such file -> ");
    for (std::size_t at = 0; at < header; at += 4)
      Byte(file, at, 3).Tells(file + " file no such file -> ");
    for (const auto version : {0U, 1U}) Byte(file, 4, version).Tells("");
    for (const auto state : {1U, 0xFFU}) Byte(file, header, state).Tells(counts(all - 1));
    for (std::size_t at = 1; at < entry; at += 4)
      Byte(file, header + at, 0x5A).Tells(counts(all) + ", others");
    const std::string first = m_healthy.at(file).substr(header + 1, entry - 1);
    Edit(file, "live", [&](auto& text) { text += '\0' + first; }).Tells(counts(all + 1));
    Edit(file, "deleted", [&](auto& text) { text += '\7' + first; }).Tells("");
  }
}

TEST_F(RepairTable, Cut_record_files) {
  const char* const left[] = {"10 0 0 0", "10 2 0 1", "10 2 2 0", "8 2 2 1"};
  for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
    const storecheck::Kind& k = kKinds[kind];
    for (const std::size_t slots : {std::size_t{0}, kUsed[kind], kSlots - 1})
      for (const std::size_t more :
           {std::size_t{0}, std::size_t{1}, kHead, k.Slot() / 2, k.Slot() - 1})
        Cut(k.db, k.At(slots) + more)
            .Tells(Text("total object count 100 -> ", slots), slots == 0 ? left[kind] : kAll);
    for (std::size_t slots = 1; slots < kSlots; ++slots) {
      Cut(k.db, k.At(slots));
      SCOPED_TRACE(std::exchange(m_row, ""));
      EXPECT_TRUE(fixer.RepairMS(path.c_str()));
      for (const std::string& one : CheckStore(path)) ADD_FAILURE() << one;
    }
  }
  Cut("docs3.db", kKinds[Letters].At(1)).Tells("lost object", "10 1 1 1");
  Cut("attach3.db", kKinds[Attachments].At(1) + 9)
      .Tells("[D-0000000C] attachment count 1 -> 0", "10 2 1 1");
  Cut("folders3.db", kKinds[Folders].At(2) + 9)
      .Tells("absent -> INBOX|[D-00000009:00000000] lost object [F-00000003]", "8 2 2 1");
  Cut("docs3.db", kKinds[Letters].At(kSlots) + 9).Tells("docs3.db file");
  Cut("rcpt3.db", kKinds[Recipients].At(kSlots + 3)).Tells("total object count 100 -> 103", kAll);
}

TEST_F(RepairTable, Texts_without_end) {
  for (std::size_t kind = 0; kind < kKinds.size(); ++kind)
    for (const auto& [at, width] : kKinds[kind].texts)
      Field(kind, 0, kHead + at, std::string(width, 'x'), width).Tells("text without end", kAll);
}

TEST_F(RepairTable, Attachment_paths) {
  const auto own = [&](std::size_t slot) {
    const std::string& bytes = m_healthy.at("attach3.db");
    return storecheck::TextAt(bytes.substr(kKinds[Attachments].At(slot)), {kPath, 260});
  };
  const auto put = [&](std::size_t slot, const std::string& name) -> RepairTable& {
    return Field(Attachments, slot, kPath, name, 260);
  };
  const std::string mended = "[A-0000000A] attachment file ";
  const auto hold = [](const std::string& first, const std::string& second) {
    return [=](CMSMessageStore& s) {
      return ReadBytes(s.GetAttachment(10).InternalFileName()) == first &&
             ReadBytes(s.GetAttachment(15).InternalFileName()) == second;
    };
  };
  for (const char* name : {"", "docs3.db", "..\\text.txt", "a\\..\\..\\x", ".\\x", "a\\\\x", "\\x",
                           "C:x", "a\\", "../store/docs3.db"})
    put(0, name).Tells(mended, kAll, [](auto& s) {
      return (s.GetAttachment(10).Flag() & attachmentflag::FileRemoved) != 0;
    });
  // Close enough to a file that nobody else has.
  for (const char first : {'\\', '/', '.', '\1', '#'})
    put(0, first + own(0).substr(1)).Tells(mended, kSame, hold("text", "other"));
  put(0, "####" + own(0).substr(4)).Tells(mended + "####", kSame, hold("text", "other"));
  put(0, own(0).substr(0, 8) + "/text.txt").Tells("", kSame, hold("text", "other"));
  // Too far from any: a missing file, which no repair brings back.
  put(0, "#####" + own(0).substr(5)).Tells("", kSame, hold("", "other"));
  // One file for two: it is the one's whose size it has, and the other one gets a copy.
  put(1, own(0)).Tells("[A-0000000F] attachment file ", kAll, hold("text", "text"));
  put(0, own(1)).Tells(mended, kAll, hold("other", "other"));
  // A lost one does not take it along.
  put(1, own(0)).Poke(Attachments, 1, kParent, 4711).Tells("lost object", "10 2 1 1", [](auto& s) {
    return ReadBytes(s.GetAttachment(10).InternalFileName()) == "text";
  });
}
