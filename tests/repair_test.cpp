// Scans and repairs of damaged stores.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <sstream>

#include "support/FaultyFiles.h"
#include "support/LogSink.h"
#include "support/OpenStore.h"
#include "support/TempDir.h"
#include "support/Walk.h"

#include "ms/Source/MSFixer.h"
#include "ms/Source/MaintenanceLog.h"
#include "ms/Source/Records.h"
#include "ms/Source/Roles.h"
#include "platform/Profile.h"
#include "platform/Time.h"

namespace {

namespace fs = std::filesystem;
using MSF::CFixer;

constexpr const char* kRecordFiles[] = {"docs3.db", "attach3.db", "rcpt3.db", "folders3.db"};

// 1 root, 2 to 8 predefined; in INBOX letter 9 with attachment 10 and recipient 11, and letter 12;
// folder 13 in INBOX with folder 14.
class Repair : public testing::Test {
 protected:
  Repair() {
    CMSMessageStore store = OpenStore(path);
    CMSFolder root = store.Root();
    for (const auto& role : MSF::kFolderRoles) root.CreateFolder(role.name, role.props, role.type);
    CMSFolder inbox = root.OpenFolder(CKitString("INBOX"));
    WriteBytes(dir / "text.txt", "text");
    CMSDocument letter = inbox.CreateDocument("one", "", "", "", "", "", "", "", "",
                                              docflag::Complete | docflag::Incoming, 77);
    letter.AddAttachment(dir / "text.txt", false, "t", "t", attachmentflag::Body);
    letter.AddRecipient("", "PACKET", "", "", "", "", "", "", "r", "", "", "", "", "", 0, 0);
    inbox.CreateDocument("two", "", "", "", "", "", "", "", "", docflag::Complete, 5);
    inbox.CreateFolder("a", "", 0).CreateFolder("b", "", 0);
  }

  // The record with that ID (or with any, from a slot), to be changed; put back as it goes.
  template <class T>
  void Edit(const char* file, std::uint32_t id, void (*change)(CMSContainerHead&, T&)) {
    std::string bytes = ReadBytes(path + "/" + file);
    constexpr std::size_t kSlot = sizeof(CMSContainerHead) + sizeof(T);
    for (std::size_t at = sizeof(CMSFileHeader); at + kSlot <= bytes.size(); at += kSlot) {
      CMSContainerHead head;
      T record;
      std::memcpy(&head, &bytes[at], sizeof head);
      std::memcpy(&record, &bytes[at + sizeof head], sizeof record);
      if (head.key != id || !head.InUse()) continue;
      change(head, record);
      std::memcpy(&bytes[at], &head, sizeof head);
      std::memcpy(&bytes[at + sizeof head], &record, sizeof record);
      return WriteBytes(path + "/" + file, bytes);
    }
    FAIL() << "no record " << id;
  }
  void EditHeader(const char* file, void (*change)(CMSFileHeader&)) {
    std::string bytes = ReadBytes(path + "/" + file);
    CMSFileHeader header;
    std::memcpy(&header, bytes.data(), sizeof header);
    change(header);
    std::memcpy(bytes.data(), &header, sizeof header);
    WriteBytes(path + "/" + file, bytes);
  }

  std::map<std::string, std::string> Files() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(path))
      if (entry.is_regular_file()) files[entry.path()] = ReadBytes(entry.path());
    return files;
  }

  // Scans, which must find something and change nothing; repairs, after which a scan finds nothing
  // and a repair changes nothing. Answers the findings, a line each.
  std::string Mend() {
    const auto before = Files();
    EXPECT_FALSE(fixer.ScanMS(path.c_str()));
    EXPECT_EQ(fixer.Error(), "");
    EXPECT_EQ(Files(), before);
    EXPECT_TRUE(fixer.RepairMS(path.c_str())) << fixer.Error();
    std::string found;
    for (const auto& one : fixer.Findings())
      found += one.Object + " " + one.What + " " + one.Stored + " -> " + one.Found + "\n";
    EXPECT_TRUE(fixer.ScanMS(path.c_str())) << found;
    EXPECT_TRUE(fixer.RepairMS(path.c_str()) && fixer.Findings().empty());
    EXPECT_EQ(fixer.ReportDirectory(), "");
    return found;
  }
  CMSDocument Letter(unsigned long id) { return OpenStore(path).GetDocument(id); }

  // In memory, where there is such a place: a repair waits for the medium often.
  TempDir dir{fs::exists("/dev/shm") ? "/dev/shm" : ""};
  const std::string path = dir / "store";
  LogSink events;
  CFixer fixer;
};

void SetFlag(CMSDocumentData& record, long flag) {
  record.ParentID = 4711;
  record.Flag = static_cast<std::int32_t>(flag | docflag::Complete);
}

}  // namespace

TEST_F(Repair, A_healthy_store_keeps_every_byte_and_gets_no_report) {
  EXPECT_TRUE(fixer.ScanMS(path.c_str()));
  const auto before = Files();
  std::ostringstream log;
  EXPECT_EQ(fixer.SetLog(&log), nullptr);
  platform::SetClock([] { return platform::Instant{1709801340, 0}; });
  EXPECT_TRUE(fixer.RepairMS(path.c_str()));
  platform::SetClock(nullptr);
  for (const char* file : kRecordFiles)
    EXPECT_EQ(ReadBytes(path + "/" + file), before.at(path + "/" + file)) << file;
  EXPECT_EQ(Files().size(), before.size());
  EXPECT_EQ(fixer.ReportDirectory(), "");

  const platform::LocalTime t = platform::ToLocal({1709801340, 0});
  const std::string time =
      KitFormat("%02d-%02d-%04d %02d:%02d", t.day, t.month, t.year, t.hour, t.minute);
  const std::string stars(63, '*');
  const std::string report = path + KitFormat("~%02d%02d%04d.REP/", t.day, t.month, t.year);
  const std::string text = log.str();
  EXPECT_EQ(text.find("\n" + stars + "\n\n" + time +
                      "     MESSAGE STORE MAINTAINANCE LOG STARTS HERE\n\n" + stars +
                      "\n\nMESSAGE STORE DIRECTORY = \"" + path +
                      "\"\nBACKUP DIRECTORY        = \"" + report +
                      "\"\nOBJECTIVE               = .: repair :.\n\n"
                      "\n>>> creating temporary DB files\n\n\tcopying \"" +
                      path + "/docs3.db\" to \"" + path + "/docs3.db.tmp\"\n"),
            0U);
  std::size_t at = 0;
  for (const char* step :
       {"creating temporary DB files", "mounting message store",
        "object statistics:", "rolling back uncommited transactions", "checking msids",
        "searching for predefined folders", "recreating predefined folders", "checking references",
        "fixing data", "fixing master db", "rebuilding indexes", "dealing off DB repair requests",
        "unmounting message store", "Replacing DB files"}) {
    const auto place = text.find(std::string("\n>>> ") + step + "\n\n", at);
    ASSERT_NE(place, std::string::npos) << step;
    at = place;
  }
  EXPECT_NE(
      text.find("\t-------------------------------\n\t\tSI: 45674B21\n\t\tVE: 00000005\n\t\tDO: "
                "00000030\n\t\tKS: 00000004\n\t\tDS: 000002FC\n\t\tTC: 00000064\n\t\tUC: "
                "00000002\n\t\tFI: 00000002\n\t\tDC: 00000000\n\t\tR1: 00000001\n\t\tR2: "
                "00000000\n\t\tR3: 00000000\n\t\tAT: 00000064\n\t\tAU: 00000002\n\t\tAF: "
                "00000062\n"),
      std::string::npos);
  EXPECT_NE(text.find("\tfolders     : 10\n\tdocuments   : 2\n\tattachments : 1\n\trecipients  : "
                      "1\n"),
            std::string::npos);
  EXPECT_NE(text.find("\tINBOX     [F-00000003:00000002]\n"), std::string::npos);
  EXPECT_NE(text.find("\tremoving backup directory\n\tdeleting \"" + report + "docs3.db\"\n"),
            std::string::npos);
  EXPECT_TRUE(text.ends_with("\n\n\n###\n\n" + stars + "\n\n" + time +
                             "     MESSAGE STORE MAINTAINANCE LOG ENDS HERE\n\n" + stars + "\n\n"));
  EXPECT_NE(events.events.find("MS |MS repair is starting (" + path + ")|0\n"), std::string::npos);
  EXPECT_NE(events.events.find("MS |MS repair is finished (" + path + ")|0\n"), std::string::npos);
  // What only the layout has.
  EXPECT_EQ(MSF::GetIDString(CFixer::COID{31, static_cast<MSF::EObjectType>(9)}), "[X-0000001F]");
  std::ostringstream other;
  MSF::CMaintenanceLog(&other).JobBegin(7, "d", "");
  EXPECT_NE(other.str().find("BACKUP DIRECTORY        = \"[none]\"\nOBJECTIVE               = .: "
                             "unknown :.\n\n"),
            std::string::npos);
}

TEST_F(Repair, Wrong_counts_bodies_and_sizes_are_put_right) {
  Edit<CMSDocumentData>("docs3.db", 9, [](CMSContainerHead&, CMSDocumentData& r) {
    r.BodyID = 99, r.Size = 5, r.AttachmentCount = 7, r.RecipientCount = 0;
    std::memset(r.SenderUserName, 'x', sizeof r.SenderUserName);
  });
  Edit<CMSFolderData>("folders3.db", 3, [](CMSContainerHead&, CMSFolderData& r) {
    r.DocumentCount = 9, r.FolderCount = -1;
  });
  EXPECT_EQ(Mend(),
            "[D-00000009] text without end  -> \n"
            "[D-00000009] document body 99 -> 10\n[D-00000009] object size 5 -> 4\n"
            "[D-00000009] attachment count 7 -> 1\n[D-00000009] recipient count 0 -> 1\n"
            "[F-00000003] document count 9 -> 2\n[F-00000003] folder count 4294967295 -> 1\n");
  EXPECT_NE(events.events.find("MS |Repairing MS - document body mismatch is detected "
                               "([D-00000009], 99 -> 10)|1\n"),
            std::string::npos);
  const std::string master = path + "/ms3.db";
  EXPECT_EQ(platform::ReadProfileInt(master, "RegInfo", "LastRegNumber", 0), 77);
  EXPECT_EQ(platform::ReadProfileInt(master, "MessageStore", "LastID", 0), 14);
  EXPECT_EQ(platform::ReadProfileInt(master, "MessageStore", "Size", 0), 4);
  EXPECT_EQ(Letter(9).Body().ID(), 10U);
}

TEST_F(Repair, Lost_objects_go_where_their_flags_say) {
  const auto lose = [&](void (*change)(CMSContainerHead&, CMSDocumentData&)) {
    Edit<CMSDocumentData>("docs3.db", 12, change);
    Mend();
    return Letter(12).Parent().Type();
  };
  using D = CMSDocumentData;
  EXPECT_EQ(lose([](CMSContainerHead&, D& r) { SetFlag(r, 0x1080); }), MSF::kRoleAudit);
  EXPECT_EQ(lose([](CMSContainerHead&, D& r) { SetFlag(r, 0x90); }), MSF::kRoleTrash);
  EXPECT_EQ(lose([](CMSContainerHead&, D& r) { SetFlag(r, 0x10); }), MSF::kRoleWmRoot);
  EXPECT_EQ(lose([](CMSContainerHead&, D& r) { SetFlag(r, 0); }), MSF::kRoleInbox);
  // A folder below its own descendant, and one below nothing.
  Edit<CMSFolderData>("folders3.db", 13,
                      [](CMSContainerHead&, CMSFolderData& r) { r.ParentID = 14; });
  EXPECT_NE(Mend().find("[F-0000000D:00000008] lost object"), std::string::npos);
  CMSMessageStore store = OpenStore(path);
  EXPECT_EQ(store.GetFolder(14).FullName(), "a/b");
}

TEST_F(Repair, An_incomplete_letter_goes_and_its_file_is_kept_aside) {
  Edit<CMSDocumentData>("docs3.db", 9,
                        [](CMSContainerHead&, CMSDocumentData& r) { r.Flag = 0x10; });
  const std::string found = Mend();
  EXPECT_NE(found.find("[D-00000009:00000000] partially created document  -> deleted\n"),
            std::string::npos);
  EXPECT_NE(found.find("[A-0000000A:00000000] lost object [D-00000009] -> deleted\n"),
            std::string::npos);
  EXPECT_EQ(ReadBytes(path + "/ALIEN/text.txt"), "text");
  CMSMessageStore store = OpenStore(path);
  EXPECT_FALSE(store.GetDocument(9) || store.GetAttachment(10) ||
               store.FindRecipient("PACKET", true));
  EXPECT_EQ(store.GetDocumentCount(), 1U);
}

TEST_F(Repair, Invalid_and_duplicate_ids_are_replaced_and_children_follow) {
  Edit<CMSDocumentData>("docs3.db", 12, [](CMSContainerHead& h, CMSDocumentData&) { h.key = 9; });
  Edit<CMSFolderData>("folders3.db", 14, [](CMSContainerHead& h, CMSFolderData&) { h.key = 0; });
  const std::string found = Mend();
  EXPECT_NE(
      found.find("duplicate MSID object found [D-00000009:00000001] -> [D-0000000F:00000001]"),
      std::string::npos)
      << found;
  EXPECT_NE(found.find("invalid MSID object found [F-00000000:00000009] -> [F-0000000E:00000009]"),
            std::string::npos)
      << found;
  EXPECT_EQ(Letter(15).GetAttachmentCount(), 1);
  EXPECT_EQ(Letter(9).GetAttachmentCount(), 0);
}

TEST_F(Repair, A_root_that_is_none_is_made_anew) {
  Edit<CMSFolderData>("folders3.db", 1,
                      [](CMSContainerHead&, CMSFolderData& r) { r.ParentID = 5; });
  EXPECT_NE(Mend().find("predefined folder absent -> Root"), std::string::npos);
  CMSMessageStore store = OpenStore(path);
  EXPECT_EQ(store.Root().OpenFolder(CKitString("INBOX")).GetDocumentCount(), 2);
}

TEST_F(Repair, Headers_chains_and_derived_files_are_rebuilt) {
  EditHeader("docs3.db", [](CMSFileHeader& h) { h.TC = 3, h.UC = 9, h.FI = 1, h.DC = 4; });
  std::string folders = ReadBytes(path + "/folders3.db");
  WriteBytes(path + "/folders3.db", folders.substr(0, folders.size() - 7));
  for (const char* file : {"attach3.idx", "rltns3.db"}) fs::remove(path + "/" + file);
  WriteBytes(path + "/packets3.db", "rubbish");
  const std::string found = Mend();
  for (const char* what : {"total object count 3 -> 100", "used object count 9 -> 1", "free chain",
                           "total object count 100 -> 99"})
    EXPECT_NE(found.find(what), std::string::npos) << what << "\n" << found;
  // One entry that says something else, in a file that is well made.
  std::string index = ReadBytes(path + "/docs3.idx");
  index[21] ^= 1;
  WriteBytes(path + "/docs3.idx", index);
  EXPECT_NE(Mend().find("docs3.idx file 1 entries -> 1 entries, others"), std::string::npos);
  EXPECT_TRUE(OpenStore(path).FindRecipient("PACKET", true));
  CMSMessageStore store = OpenStore(path);
  Walk walk(store);
  // A slot that the header takes for the first free one is free, whatever it says itself.
  EXPECT_EQ(walk.letters, 1U);
  store.Root()
      .OpenFolder(CKitString("INBOX"))
      .CreateDocument("", "", "", "", "", "", "", "", "", 0, 0);
}

TEST_F(Repair, What_cannot_be_repaired_stays_untouched) {
  EditHeader("rcpt3.db", [](CMSFileHeader& h) { h.DS = h.DS + 1; });
  const auto before = Files();
  struct Callback : CFixer::CCallback {
    bool OnProgress(const CFixer::CProgress&) override { return --left > 0; }
    void OnError(int, int, const char* text) override { error = text; }
    int left = 1000;
    std::string error;
  } callback;
  fixer.SetCallback(&callback);
  std::ostringstream log;
  fixer.SetLog(&log);
  EXPECT_FALSE(fixer.RepairMS(path.c_str()));
  EXPECT_NE(fixer.Error().find("message store file corrupted (DB file record size mismatch"),
            0U - 1);
  EXPECT_EQ(callback.error, fixer.Error());
  EXPECT_NE(log.str().find("\n\n\n[ERROR]\n\n" + fixer.Error()), std::string::npos);
  EXPECT_EQ(Files(), before);
  EditHeader("rcpt3.db", [](CMSFileHeader& h) { h.DS = h.DS - 1; });
  // Stopped anywhere, in use, or on a disk that fails at any step before the new files are moved.
  const auto healthy = Files();
  for (int calls = 1; calls < 12; ++calls) {
    callback.left = calls;
    EXPECT_FALSE(fixer.RepairMS(path.c_str()));
    EXPECT_EQ(Files(), healthy) << calls;
  }
  fixer.SetCallback(nullptr);
  {
    const CMSMessageStore open = OpenStore(path);
    EXPECT_FALSE(fixer.RepairMS(path.c_str()));
    WriteBytes(path + "/docs3.db.tmp", "of another job");
    EXPECT_FALSE(fixer.ScanMS(path.c_str()));
  }
  for (unsigned nth = 1; nth < 40; ++nth) {
    FaultyFiles files;
    files.Fail({.calls = call::kCopy | call::kWrite | call::kAppend | call::kTruncate | call::kSync,
                .nth = nth,
                .cause = platform::Cause::NoSpace});
    if (!fixer.RepairMS(path.c_str())) {
      for (const char* file : kRecordFiles)
        EXPECT_EQ(ReadBytes(path + "/" + file), healthy.at(path + "/" + file)) << nth;
      EXPECT_EQ(std::distance(fs::directory_iterator(dir / "."), {}), 2) << nth;  // no report
    }
  }
  // Cut off while the new files take their places.
  for (unsigned nth = 1; nth <= 11; ++nth) {
    {
      FaultyFiles files;
      files.Fail({.calls = call::kReplace | call::kRemove, .nth = nth, .forGood = true});
      fixer.RepairMS(path.c_str());
    }
    EXPECT_TRUE(fixer.RepairMS(path.c_str()));
    EXPECT_EQ(Letter(9).GetAttachmentCount(), 1) << nth;
  }
}

// Whatever bytes change: a job never crashes, and what it repairs is sound.
TEST_F(Repair, Random_damage_is_repaired_or_refused) {
  const auto files = Files();
  unsigned repaired = 0;
  for (unsigned seed = 1; seed <= 100; ++seed) {
    SCOPED_TRACE(seed);
    for (const auto& [name, bytes] : files) WriteBytes(name, bytes);
    std::mt19937 random(seed);
    for (unsigned changes = 1 + random() % 8; changes > 0; --changes) {
      const char* file = kRecordFiles[random() % 4];
      std::string bytes = ReadBytes(path + "/" + file);
      const std::size_t slots = 48 + random() % (12 * 800);
      bytes[std::min(slots, bytes.size() - 1)] = static_cast<char>(random());
      WriteBytes(path + "/" + file, bytes);
    }
    if (!fixer.RepairMS(path.c_str())) continue;
    ++repaired;
    EXPECT_TRUE(fixer.ScanMS(path.c_str()));
    CMSMessageStore store = OpenStore(path);
    const Walk walk(store);
    EXPECT_GE(walk.folders, 8U);
    EXPECT_EQ(walk.letters, store.GetDocumentCount());
  }
  EXPECT_EQ(repaired, 100U);
}
