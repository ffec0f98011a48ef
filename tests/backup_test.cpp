// Backups: what is copied, recognised, replaced and left alone, whatever happened in between.
#include "ms/Source/Archiver.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "ms/Source/ObjectAccess.h"
#include "ms/Source/Records.h"
#include "tests/support/FaultyFiles.h"
#include "tests/support/LetterBook.h"
#include "tests/support/LogSink.h"
#include "tests/support/OpenStore.h"
#include "tests/support/TempDir.h"

namespace {

using Status = CMSArchiver::CStatus;

// All folders and letters, each with its path, but for their IDs.
void Describe(const CMSFolder& folder, std::multiset<std::string>& found) {
  const std::string path = folder.FullName();
  found.insert(KitFormat("%s|%ld|%s", path.c_str(), folder.Type(), folder.Props().c_str()));
  std::list<CMSDocument> letters;
  folder.Documents(letters);
  for (const CMSDocument& letter : letters) {
    std::set<std::string> fields;
    for (const auto& [name, value] : crash::LetterBook::Read(letter))
      if (name != "parent" && name != "body")
        fields.insert(name.substr(name.find(' ') + 1) + "=" + value + "\n");
    std::string text = path + "\n";
    for (const std::string& field : fields) text += field;
    found.insert(text);
  }
  std::list<CMSFolder> folders;
  folder.Folders(folders);
  for (const CMSFolder& one : folders) Describe(one, found);
}

std::multiset<std::string> Everything(CMSMessageStore store) {
  std::multiset<std::string> found;
  Describe(store.Root(), found);
  return found;
}
std::multiset<std::string> Everything(const std::string& directory) {
  return Everything(OpenStore(directory, true));
}

struct Callback : CMSArchiver::CStatusCallback {
  bool OnProgress(const Status& status) override {
    last = status;
    return stopAfter == 0 || ++calls < stopAfter;
  }
  int OnError(const Status& status, unsigned long detail) override {
    errors += KitFormat("%u %u %lu;", status.Phase, status.Error, detail);
    texts += status.ErrorText;
    if (beforeAnswer) beforeAnswer();
    return answer;
  }
  std::string Counts() const {
    return KitFormat("%u copied, %u replaced, %u moved, %u unchanged, %u failed, %u removed",
                     last.Copied, last.Replaced, last.Moved, last.Unchanged, last.Failed,
                     last.Removed);
  }
  Status last;
  unsigned calls = 0, stopAfter = 0;
  std::string errors, texts;
  int answer = 1;
  std::function<void()> beforeAnswer;
};

class BackupTest : public testing::Test {
 protected:
  BackupTest() : source(OpenStore(dir / "source")) {
    inbox = source.Root().CreateFolder("INBOX", "p", 2);
    lists = inbox.CreateFolder("lists", "", 0);
    for (int i = 0; i < 4; ++i) Letter(i % 2 == 0 ? inbox : lists, KitFormat("letter %d", i));
  }

  CMSDocument Letter(CMSFolder& folder, const std::string& subject) {
    const std::string file = dir / "text.txt";
    WriteBytes(file, "text of " + subject);
    const CKitString minute(KitFormat("07.03.2024 09:%02d", ++letters));
    CMSDocument letter = folder.CreateDocument(subject, "", minute, "", "", "", "", "", "sender",
                                               docflag::Incoming, 5);
    letter.AddAttachment(file, false, "text", "text", attachmentflag::Body);
    letter.AddRecipient("", "PACK" + subject.substr(subject.size() - 1), "", "", "", "", "", "",
                        "reader", "", "", "", "", "", recipientflag::Sent, 0);
    letter.Flag(letter.Flag() | docflag::Complete);
    return letter;
  }
  CMSDocument Find(const std::string& subject, CMSFolder folder) {
    CMSDocument letter;
    for (auto place = folder.GetFirstDocumentPosition(); folder.GetNextDocument(letter, place);)
      if (letter.Name() == subject) return letter;
    return {};
  }

  void ExpectKept(const std::multiset<std::string>& wanted) {
    const auto found = Everything(dir / "backup");
    EXPECT_TRUE(std::includes(found.begin(), found.end(), wanted.begin(), wanted.end()));
  }

  // What the callback counted.
  std::string Backup(std::uint32_t options = 0, const std::string& target = "backup") {
    Callback callback;
    CMSArchiver archiver;
    archiver.SetStatusCallback(&callback);
    CMSBackupSettings settings;
    settings.Options = options;
    settings.CountRule = true;
    settings.LettersPerPromise = 2;
    archiver.Backup(source, (dir / target).c_str(), &settings, nullptr);
    return callback.Counts() + callback.errors;
  }
  void ExpectEqual() { EXPECT_EQ(Everything(dir / "backup"), Everything(source)); }

  TempDir dir;
  int letters = 0;
  CMSMessageStore source;
  CMSFolder inbox, lists;
};

std::string Nothing(unsigned unchanged, unsigned removed = 0) {
  return KitFormat("0 copied, 0 replaced, 0 moved, %u unchanged, 0 failed, %u removed", unchanged,
                   removed);
}

}  // namespace

TEST_F(BackupTest, Keeps_what_the_source_has_deleted_until_asked_to_mirror) {
  Backup();
  const auto all = Everything(source);
  inbox.DeleteFolder(lists);
  CMSDocument gone = Find("letter 0", inbox);
  inbox.DeleteDocument(gone);
  EXPECT_EQ(Backup(), Nothing(1));
  EXPECT_EQ(Everything(dir / "backup"), all);
  EXPECT_EQ(Backup(kBackupMirror | kBackupPlanOnly), Nothing(1, 3));
  EXPECT_EQ(Backup(kBackupMirror), Nothing(1, 3));
  ExpectEqual();
}

// As when another thread is making letters meanwhile.
TEST_F(BackupTest, Keeps_no_letter_that_was_given_up_before_it_was_whole) {
  CMSDocument whole = Letter(inbox, "whole"), given = Letter(inbox, "given up"),
              changed = Letter(inbox, "changed");
  Backup();
  const auto all = Everything(dir / "backup");
  for (CMSDocument* letter : {&given, &changed}) letter->Flag(docflag::Incoming);
  Backup();
  inbox.DeleteDocument(whole);
  inbox.DeleteDocument(given);
  changed.Name("of another subject");
  changed.Flag(docflag::Incoming | docflag::Complete);
  const std::string expected = "0 copied, 1 replaced, 0 moved, 4 unchanged, 0 failed, 1 removed";
  EXPECT_EQ(Backup(kBackupPlanOnly), expected);
  EXPECT_EQ(Backup(), expected);
  EXPECT_EQ(Everything(dir / "backup").size(), all.size() - 1);
  EXPECT_EQ(Backup(), Nothing(5));
}

TEST_F(BackupTest, Recognises_letters_without_its_map) {
  Letter(inbox, "letter 0");  // one that is there twice, but for its time
  Backup();
  const std::string map = ReadBytes(dir / "backup/archive3.map");
  ASSERT_EQ(map.size(), 16U + 9 * 32);  // root's two, five letters; begun and done
  std::filesystem::remove(dir / "backup/archive3.map");
  EXPECT_EQ(Backup(), Nothing(5));
  for (std::size_t length = 0; length < map.size(); length += 13) {
    WriteBytes(dir / "backup/archive3.map", map.substr(0, length));
    EXPECT_EQ(Backup(), Nothing(5)) << length;
  }
  for (std::size_t i = 0; i < map.size(); i += 7) {
    std::string damaged = map;
    damaged[i] = static_cast<char>(damaged[i] ^ 0x10);
    WriteBytes(dir / "backup/archive3.map", damaged);
    EXPECT_EQ(Backup(), Nothing(5)) << i;
  }
  ExpectEqual();
}

TEST_F(BackupTest, Loses_nothing_when_another_store_is_backed_up_to_the_same_place) {
  Backup();
  const auto first = Everything(source);
  const CMSMessageStore kept = source;
  source = OpenStore(dir / "other");
  inbox = source.Root().CreateFolder("Post", "", 0);
  lists = inbox.CreateFolder("INBOX", "", 0);
  for (int i = 0; i < 4; ++i) Letter(i == 0 ? inbox : lists, KitFormat("other %d", i));
  EXPECT_EQ(Backup(kBackupMirror),
            "4 copied, 0 replaced, 0 moved, 0 unchanged, 0 failed, 0 removed");
  source = kept;
  EXPECT_EQ(Backup(kBackupMirror), Nothing(4));
  ExpectKept(first);
  EXPECT_EQ(Everything(dir / "backup").size(), first.size() + 6);
}

TEST_F(BackupTest, A_restored_store_goes_on_with_its_backup) {
  Backup();
  CMSDocument gone = Find("letter 0", inbox);
  inbox.DeleteDocument(gone);  // kept in the backup, and not to be lost there
  source = OpenStore(dir / "backup");
  EXPECT_EQ(Backup(kBackupAddOnly, "restored"),
            "4 copied, 0 replaced, 0 moved, 0 unchanged, 0 failed, 0 removed");
  EXPECT_FALSE(std::filesystem::exists(dir / "restored/archive3.map"));
  const auto all = Everything(source);
  EXPECT_EQ(Everything(dir / "restored"), all);
  // Into a store that has other things, and an old state of one letter: only added to.
  EXPECT_EQ(Backup(kBackupAddOnly, "restored"), Nothing(4));

  inbox = lists = {};
  source = OpenStore(dir / "restored");
  inbox = source.Root().OpenFolder(CKitString("INBOX"));
  Find("letter 2", inbox).SetActionFlag(0x40000);
  // Nothing tells the letter that changed in between from one that was deleted: both are kept. From
  // then on all is as before.
  EXPECT_EQ(Backup(), "1 copied, 0 replaced, 0 moved, 3 unchanged, 0 failed, 0 removed");
  Find("letter 2", inbox).SetActionFlag(0x80000);
  EXPECT_EQ(Backup(), "0 copied, 1 replaced, 0 moved, 3 unchanged, 0 failed, 0 removed");
  EXPECT_EQ(Everything(dir / "backup").size(), Everything(source).size() + 1);
  ExpectKept(Everything(source));
  ExpectKept(all);
}

TEST_F(BackupTest, Can_be_interrupted_anywhere_and_goes_on) {
  for (unsigned calls = 1; calls < 13; ++calls) {  // 4 letters listed, compared, copied
    const std::string target = dir / KitFormat("backup%u", calls);
    Callback callback;
    callback.stopAfter = calls;
    CMSArchiver archiver;
    archiver.SetStatusCallback(&callback);
    EXPECT_THROW(archiver.Backup(source, target.c_str(), nullptr, nullptr),
                 CMSArchiver::XInterrupted);
    callback.stopAfter = 0;
    archiver.Backup(source, target.c_str(), nullptr, nullptr);
    EXPECT_EQ(callback.last.Copied, calls <= 8 ? 4U : 12 - calls) << calls;
    EXPECT_EQ(Everything(target), Everything(source));
  }
}

TEST_F(BackupTest, Tells_of_letters_that_cannot_be_copied_and_spares_their_earlier_copies) {
  Backup();
  const auto before = Everything(dir / "backup");
  std::filesystem::remove(std::string(Find("letter 0", inbox).Body().InternalFileName()));
  CMSDocument fresh = Letter(inbox, "letter 9");
  std::filesystem::remove(std::string(fresh.Body().InternalFileName()));

  Callback callback;
  CMSArchiver archiver;
  archiver.SetStatusCallback(&callback);
  archiver.Backup(source, (dir / "backup").c_str(), nullptr, nullptr);
  EXPECT_EQ(callback.Counts(), "1 copied, 0 replaced, 0 moved, 3 unchanged, 1 failed, 0 removed");
  EXPECT_EQ(callback.errors,
            KitFormat("2 196 %lu;2 196 %lu;", Find("letter 0", inbox).ID(), fresh.ID()));
  EXPECT_NE(callback.texts.find("text.txt"), std::string::npos);
  EXPECT_EQ(Everything(dir / "backup").size(), before.size() + 1);
  ExpectKept(before);

  callback.answer = 2;
  EXPECT_THROW(archiver.Backup(source, (dir / "backup").c_str(), nullptr, nullptr),
               CMSArchiver::XInterrupted);
  callback.answer = 4;
  callback.beforeAnswer = [&] {
    WriteBytes(Find("letter 0", inbox).Body().InternalFileName(), "text of letter 0");
  };
  archiver.Backup(source, (dir / "backup").c_str(), nullptr, nullptr);
  EXPECT_EQ(callback.last.Failed, 0U);
  // Nobody to tell: the failure ends what was otherwise done to the end.
  std::filesystem::remove(std::string(Find("letter 2", inbox).Body().InternalFileName()));
  Letter(inbox, "letter 7");
  try {
    CMSArchiver().Backup(source, (dir / "backup").c_str(), nullptr, nullptr);
    FAIL();
  } catch (const XKitStatus& error) {
    EXPECT_EQ(error.Code(), 196);
  }
  EXPECT_EQ(Everything(dir / "backup").size(), before.size() + 2);
}

TEST_F(BackupTest, Is_made_when_it_is_due_and_has_room_enough) {
  CMSArchiver archiver;
  std::uint64_t total = 0;
  for (CMSFolder folder : {inbox, lists}) {
    std::list<CMSDocument> found;
    folder.Documents(found);
    for (const CMSDocument& letter : found) total += letter.GetRawStorageSize();
  }
  const auto due = [&](unsigned count, unsigned more) {
    CMSBackupSettings settings;
    settings.CountRule = count != 0;
    settings.Count = count;
    settings.SizeRule = more != 0;
    settings.Size = static_cast<unsigned>(total) - 1 + more;
    return archiver.IsBackupNeeded(source, &settings);
  };
  EXPECT_TRUE(archiver.IsBackupNeeded(source, nullptr) && due(4, 0) && due(0, 1) && due(5, 1));
  EXPECT_FALSE(due(5, 0) || due(0, 2) || due(0, 0));
  EXPECT_FALSE(archiver.IsBackupNeeded(OpenStore(dir / "empty"), nullptr));
  CMSBackupSettings never;
  EXPECT_THROW(archiver.Backup(source, (dir / "backup").c_str(), &never, nullptr),
               CMSArchiver::XInterrupted);
  EXPECT_FALSE(std::filesystem::exists(dir / "backup"));

  // Room: asked again as long as the answer is 4.
  Callback callback;
  archiver.SetStatusCallback(&callback);
  FaultyFiles files;
  files.SetFreeSpace(4 * total);
  EXPECT_THROW(archiver.Backup(source, (dir / "backup").c_str(), nullptr, nullptr),
               CMSArchiver::XInterrupted);
  EXPECT_EQ(callback.errors, "1 35 5;");
  callback.answer = 4;
  callback.beforeAnswer = [&, asked = 0]() mutable {
    if (++asked == 2) files.SetFreeSpace(4 * total + 1);
  };
  archiver.Backup(source, (dir / "backup").c_str(), nullptr, nullptr);
  EXPECT_EQ(callback.errors, "1 35 5;1 35 5;1 35 5;");
  ExpectEqual();
}

TEST_F(BackupTest, Packs_the_oldest_out) {
  CMSBackupSettings settings;
  settings.CountRule = settings.Pack = true;
  settings.PackSize = static_cast<std::uint32_t>(2 * Find("letter 0", inbox).GetRawStorageSize());
  CMSArchiver().Backup(source, (dir / "packed").c_str(), &settings, nullptr);
  CMSMessageStore packed = OpenStore(dir / "packed");
  EXPECT_EQ(packed.GetDocumentCount(), 2U);
  CMSFolder packedInbox = packed.Root().OpenFolder(CKitString("INBOX"));
  EXPECT_TRUE(Find("letter 2", packedInbox));
  EXPECT_TRUE(Find("letter 3", packedInbox.OpenFolder(CKitString("lists"))));
}

#ifndef _WIN32  // there is no fork
#endif

TEST_F(BackupTest, Mirrors_only_a_source_that_it_knows_for_sure) {
  Backup();
  const auto all = Everything(dir / "backup");
  inbox = lists = {};
  source = OpenStore(dir / "made again");  // the same folders under the same IDs
  inbox = source.Root().CreateFolder("INBOX", "p", 2);
  EXPECT_EQ(Backup(kBackupMirror), Nothing(0));
  Letter(inbox, "letter 8");
  Backup(kBackupMirror);
  ExpectKept(all);
}

TEST_F(BackupTest, Replaces_only_what_may_be_an_earlier_state) {
  for (const char* subject : {"one", "two"})
    inbox.CreateDocument(subject, "", "", "", "", "", "", "", "s", docflag::Complete, 0);
  Backup();
  const auto first = Everything(dir / "backup");
  Find("one", inbox).SetActionFlag(0x40000);  // without a date, known by subject and sender
  EXPECT_EQ(Backup(), "0 copied, 1 replaced, 0 moved, 5 unchanged, 0 failed, 0 removed");
  Find("letter 0", inbox).Name("");  // by its time and sender
  EXPECT_EQ(Backup(), "0 copied, 1 replaced, 0 moved, 5 unchanged, 0 failed, 0 removed");
  CMSDocument other = Find("two", inbox);
  other.Name("quite another");  // nothing in common but the ID, which may be issued again
  EXPECT_EQ(Backup(), "1 copied, 0 replaced, 0 moved, 5 unchanged, 0 failed, 0 removed");
  EXPECT_EQ(Everything(dir / "backup").size(), first.size() + 1);
}

// Two equal letters, backed up folder by folder: neither takes the other's copy.
TEST_F(BackupTest, Partial_backups_leave_the_rest_alone) {
  struct Filter : CMSArchiver::CBackupFilter {
    bool IsBackupNeeded(const CMSFolder& folder) override {
      return folder.IsRoot() || folder.Name() == name;
    }
    bool IsBackupNeeded(const CMSDocument&) override { return true; }
    CKitString name;
  } filter;
  CMSFolder root = source.Root();
  lists.Move(root);
  Find("letter 1", lists).Clone(inbox, false);
  CMSArchiver archiver;
  archiver.SetBackupFilter(&filter);
  for (const char* name : {"INBOX", "lists", "INBOX", "lists"}) {
    filter.name = name;
    archiver.Backup(source, (dir / "backup").c_str(), nullptr, nullptr);
  }
  ExpectEqual();
  // Renamed folders outnumber the letters that are looked after.
  inbox.Name("Post");
  lists.Name("Lists");
  filter.name = "Lists";
  archiver.Backup(source, (dir / "backup").c_str(), nullptr, nullptr);
  EXPECT_EQ(Backup(kBackupMirror), Nothing(5));
  ExpectEqual();
}

TEST_F(BackupTest, Takes_letters_of_misplaced_folders_along) {
  LogSink quiet;
  const auto all = Everything(source).size();
  for (const std::uint32_t parent : {static_cast<std::uint32_t>(lists.ID()), 4711U}) {
    CMSFieldAccess::Write(lists, [&](CMSFolderData& record) { record.ParentID = parent; });
    const std::string target = KitFormat("backup%u", parent);
    EXPECT_EQ(Backup(0, target), "4 copied, 0 replaced, 0 moved, 0 unchanged, 0 failed, 0 removed");
    EXPECT_EQ(Everything(dir / target).size(), all);
  }
}
