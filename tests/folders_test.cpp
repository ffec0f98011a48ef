// Folders as a client sees them, and as they lie on the disk.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "support/Engine.h"
#include "support/FaultyFiles.h"
#include "support/OpenStore.h"
#include "support/Skip.h"

#include "ms/Source/FolderSupport.h"
#include "platform/Profile.h"

namespace {

// Notes every event as kind, sign and ID: "F+2" is folder 2 added, "D*5" letter 5 changed.
class Recorder : public CMSDocumentListener, public CMSFolderListener {
 public:
  void OnAttachStore(CMSMessageStore&) override {}
  void OnDocumentRemoved(const CMSDocument& d) override { Note("D-", d.ID()); }
  void OnDocumentAdded(const CMSDocument& d) override { Note("D+", d.ID()); }
  void OnDocumentChanged(const CMSDocument& d) override { Note("D*", d.ID()); }
  void OnFolderRemoved(const CMSFolder& f) override { Note("F-", f.ID()); }
  void OnFolderAdded(const CMSFolder& f) override { Note("F+", f.ID()); }
  void OnFolderChanged(const CMSFolder& f) override { Note("F*", f.ID()); }
  std::string Take() { return std::exchange(m_events, ""); }

 private:
  void Note(const char* what, unsigned long id) { m_events += what + std::to_string(id) + " "; }
  std::string m_events;
};

constexpr long kMarked = docflag::Incoming | docflag::MarkedUnread;

// A store with the folders A (ID 2) and B (ID 3) under its root.
class Folders : public testing::Test {
 protected:
  Folders() { Listen(); }
  void Listen() {
    store.AddListener(static_cast<CMSFolderListener*>(&events));
    store.AddListener(static_cast<CMSDocumentListener*>(&events));
  }
  // Closes the store, lets change work on the files, and opens it again.
  void Reopen(const std::function<void()>& change, bool readOnly = false) {
    root = a = b = {};
    store = {};
    change();
    store = OpenStore(dir.Path(), readOnly);
    root = store.Root(), a = store.GetFolder(2), b = store.GetFolder(3);
    Listen();
  }
  // Overwrites a number in a folder's record. Nothing was deleted yet, so they lie in order.
  void Patch(std::size_t id, std::size_t field, std::uint32_t value) {
    std::string bytes = ReadBytes(dir / "folders3.db");
    const LittleU32 number(value);
    const std::size_t head = sizeof(CMSContainerHead), size = head + sizeof(CMSFolderData);
    std::memcpy(bytes.data() + sizeof(CMSFileHeader) + (id - 1) * size + head + field, &number, 4);
    WriteBytes(dir / "folders3.db", bytes);
  }
  std::string InFile(const std::string& id) const {
    return platform::ReadProfileString(dir / "ms3.db", "ExtraFolderData", id, "", 100);
  }
  // The same once the store has written what it still owes the file.
  std::string Cache(const char* id) {
    std::string read = store.GetCustomData("extrafolderdata ", id);
    EXPECT_EQ(InFile(id), read);
    return read;
  }
  bool Reported(const std::string& text) const {
    const std::string journal = ReadBytes(dir / "fixme.dat");
    return journal.find(" The reason is: CMSFolder::" + text + "\r\n") != std::string::npos;
  }
  CMSDocument NewLetter(CMSFolder& folder, long flags = 0) {
    return folder.CreateDocument("s", "", "", "", "", "", "", "", "", flags, 0);
  }
  // With an attachment of 5 bytes.
  CMSDocument NewUnreadLetter(CMSFolder& folder) {
    CMSDocument letter = NewLetter(folder);
    WriteBytes(dir / "source.txt", "12345");
    letter.AddAttachment((dir / "source.txt").c_str(), false, "a", "a", 0);
    letter.Flag(docflag::Incoming);
    return letter;
  }

  TempDir dir;
  Recorder events;
  CMSMessageStore store = OpenStore(dir.Path());
  CMSFolder root = store.Root();
  CMSFolder a = root.CreateFolder("A", "props", -7), b = root.CreateFolder("B", "", 0);
};

std::string OnlyFile(const CMSDocument& letter) {
  std::list<CMSAttachment> attachments;
  letter.Attachments(attachments);
  return attachments.front().InternalFileName();
}

TEST_F(Folders, Paths_and_lookup_survive_reopening_and_leave_the_root_out) {
  b.Move(a);
  const unsigned long first = b.CreateFolder("same", "", 0).ID();
  b.CreateFolder("same", "", 0);
  EXPECT_FALSE(root.OpenFolder("B"));
  EXPECT_FALSE(root.OpenFolder("a"));
  EXPECT_FALSE(root.Parent());
  Reopen([] {});
  EXPECT_EQ(root.FullName().str() + b.FullName().str() + b.AdvFullName().str(), "A/BA/B");
  EXPECT_EQ(root.OpenFolder("A").Props(), "props");
  EXPECT_EQ(a.Type(), -7);
  EXPECT_EQ(a.OpenFolder("B").OpenFolder("same").ID(), first);
  EXPECT_TRUE(b.Clone(root).IsEmpty());
  const CMSFolder copy = a.Clone(b);
  EXPECT_EQ(copy.FullName().str() + copy.Props().str(), "A/B/Aprops");
  EXPECT_EQ(copy.Type(), -7);
  EXPECT_EQ(root.OpenFolder("B").FullName(), "B");
  EXPECT_FALSE(root.IsEmpty());
  EXPECT_FALSE(CKitFile::Exists(dir / "fixme.dat"));
}

TEST_F(Folders, Refused_changes_leave_everything_as_it_was) {
  b.Move(a);
  CMSDocument letter = NewLetter(a);
  const TempDir otherDir;
  CMSFolder other = OpenStore(otherDir.Path()).Root();
  const std::string before = ReadBytes(dir / "folders3.db"), tooLong(201, 'x');
  events.Take();
  const std::vector<std::function<void()>> refused{
      [&] { a.Name(tooLong); }, [&] { a.CreateFolder("C", tooLong, 0); },
      [&] { a.Move(b); },       [&] { a.Move(a); },
      [&] { root.Move(a); },    [&] { b.DeleteFolder(root); },
      [&] { a.Move(other); },   [&] { a.MoveDocument(letter, other); }};
  for (std::size_t i = 0; i < refused.size(); ++i) EXPECT_EQ(CodeOf(refused[i]), 87) << i;
  b.Move(a);
  a.MoveDocument(letter, a);
  EXPECT_EQ(ReadBytes(dir / "folders3.db"), before);
  EXPECT_EQ(events.Take(), "");
  root.DeleteFolder(a);
  EXPECT_EQ(CodeOf([&] { b.CreateFolder("C", "", 0); }), 6);
  EXPECT_EQ(CodeOf([] { CMSFolder().FullName(); }), 6);
}

TEST_F(Folders, Each_change_sends_its_events_in_order) {
  // With caches to adjust, by nothing: that is no event.
  EXPECT_EQ(a.GetUnreadDocumentCount() + b.GetUnreadDocumentCount(), 0);
  events.Take();
  root.CreateFolder("C", "", 0);
  EXPECT_EQ(events.Take(), "F*1 F+4 ");
  CMSDocument letter = NewLetter(a);
  EXPECT_EQ(events.Take(), "F*2 D+5 ");
  a.MoveDocument(letter, b);
  EXPECT_EQ(events.Take(), "F*2 F*3 D-5 D+5 ");
  b.Move(a);
  EXPECT_EQ(events.Take(), "F*1 F*2 F-3 F*3 ");
  root.DeleteFolder(a);
  EXPECT_EQ(events.Take(), "F*3 D-5 F*2 F-3 F*1 F-2 ");
}

TEST_F(Folders, Files_go_only_after_all_records_and_one_that_stays_is_told) {
  CMSDocument first = NewUnreadLetter(a), second = NewUnreadLetter(a);
  const std::string stays = OnlyFile(first), goes = OnlyFile(second);
  FaultyFiles files;
  files.Fail({.calls = call::kRemove, .path = stays});
  EXPECT_THROW(root.DeleteFolder(a), XKitFile);
  EXPECT_TRUE(CKitFile::Exists(stays) && !CKitFile::Exists(goes));
  EXPECT_FALSE(first || second || a);
  EXPECT_EQ(store.GetFullSize(), 0);
}

TEST_F(Folders, Counters_follow_every_change_and_heal_from_any_bad_entry) {
  EXPECT_EQ(a.GetUnreadDocumentCount() + b.GetUnreadDocumentCount(), 0);
  CMSDocument marked = NewLetter(a, kMarked), unread = NewUnreadLetter(a);
  EXPECT_EQ(Cache("2") + " " + Cache("3"), "2,0 0,0");
  a.MoveDocument(marked, b);
  EXPECT_EQ(Cache("2") + " " + Cache("3"), "1,0 1,0");
  CMSDocument sent = NewLetter(a);
  sent.AddRecipient("", "", "", "", "", "", "", "", "", "", "", "", "", "", recipientflag::Sent, 1);
  a.MoveDocument(sent, b);
  EXPECT_EQ(Cache("2") + " " + Cache("3"), "1,0 1,1");
  b.DeleteDocument(sent);
  unread.Flag(kMarked);
  a.MoveDocument(unread, b);
  EXPECT_EQ(Cache("2") + " " + Cache("3"), "1,0 2,0");  // told twice, moved as one
  b.MoveDocument(unread, a);
  const auto write = [&](const char* id, const char* entry) {
    EXPECT_TRUE(store.WriteCustomData("ExtraFolderData", id, entry));
  };
  for (const char* bad : {"", "3", "3,", "3,-1", "-1,0", "x,1", "3;1", "99999999999,1"}) {
    write("2", bad);
    EXPECT_EQ(a.GetUnreadDocumentCount(), 1) << bad;
    EXPECT_EQ(Cache("2"), "1,0");
  }
  write("2", "");
  CMSDocument passing = NewUnreadLetter(a);
  a.DeleteDocument(passing);
  EXPECT_EQ(Cache("2"), "");  // changes count only what is counted
  write("2", "5,0");
  EXPECT_EQ(a.GetUnreadDocumentCount(), 5);
  write("2", "1,0");
  write("3", "7,7");
  const unsigned long letters[] = {marked.ID(), unread.ID()};
  marked = unread = sent = passing = {};
  Reopen([&] { platform::WriteProfileString(dir / "ms3.db", "Maintenance", "State", "Active"); });
  EXPECT_EQ(Cache("2") + Cache("3"), "");  // what was cut off may have counted wrong
  EXPECT_EQ(b.GetUnreadDocumentCount(), 1);
  marked = store.GetDocument(letters[0]), unread = store.GetDocument(letters[1]);
  EXPECT_EQ(a.GetUnreadDocumentCount(), 1);
  write("2", "0,0");
  a.DeleteDocument(unread);
  EXPECT_EQ(Cache("2"), "-1,0");
  EXPECT_EQ(a.GetUnreadDocumentCount(), 0);
  root.DeleteFolder(a);
  EXPECT_EQ(Cache("2"), "");
  marked = unread = sent = {};
  const auto drop = [&] {
    platform::WriteProfileString(dir / "ms3.db", "ExtraFolderData", "3", nullptr);
  };
  Reopen(drop, true);
  events.Take();
  EXPECT_EQ(b.GetUnreadDocumentCount(), 1);
  EXPECT_EQ(events.Take(), "F*3 ");
  EXPECT_EQ(Cache("3"), "");
  EXPECT_EQ(CodeOf([&] { b.Type(1); }), 19);
}

TEST_F(Folders, Counters_asked_for_in_a_row_share_writes_and_those_of_a_batch_wait_for_its_end) {
  FaultyFiles files;
  constexpr unsigned long kLast = 302;
  {
    CMSBatch batch(store);
    for (unsigned long id = 4; id <= kLast; ++id) root.CreateFolder("f", "", 0);
    EXPECT_EQ(a.GetUnreadDocumentCount(), 0);
    NewLetter(a, kMarked);
    EXPECT_EQ(a.GetUnreadDocumentCount(), 1);
    EXPECT_EQ(InFile("2"), "");
    batch.Commit();
    EXPECT_EQ(InFile("2"), "1,0");
  }
  const unsigned before = files.Count(call::kReplace);
  for (unsigned long id = 3; id <= kLast; ++id) {
    store.GetFolder(id).GetUnreadDocumentCount();
    EXPECT_EQ(InFile("3"), "0,0");  // the first is not kept waiting
  }
  EXPECT_LE(files.Count(call::kReplace) - before, 9U);
  Reopen([&] {
    for (unsigned long id = 3; id <= kLast; ++id) EXPECT_EQ(InFile(std::to_string(id)), "0,0");
  });
}

TEST_F(Folders, Counters_that_cannot_be_written_count_and_keep_the_store_from_closing_clean) {
  NEEDS_POSIX("the system writes the master file itself");
  constexpr auto kWrites = call::kWrite | call::kReplace;
  CMSDocument letter = NewLetter(root, kMarked);
  EXPECT_EQ(a.GetUnreadDocumentCount(), 0);
  FaultyFiles files;
  files.Fail({.calls = kWrites, .forGood = true, .path = "ms3.db"});
  letter.Move(a);
  EXPECT_EQ(std::to_string(a.GetUnreadDocumentCount()) + " " + InFile("2"), "1 0,0");
  files.Heal();
  NewLetter(b);
  EXPECT_EQ(InFile("2"), "1,0");
  files.Fail({.calls = kWrites, .forGood = true, .path = "ms3.db"});
  letter.Move(root);
  EXPECT_EQ(std::to_string(a.GetUnreadDocumentCount()) + " " + InFile("2"), "0 1,0");
  files.Heal();
  files.Fail({.calls = kWrites, .path = "ms3.db"});  // once more: the state could be written
  letter = {};
  Reopen([&] {
    const std::string master = dir / "ms3.db";
    EXPECT_EQ(platform::ReadProfileString(master, "Maintenance", "State", "", 100), "Active");
  });
}

TEST_F(Folders, Ends_of_a_link_that_disagree_are_reported_and_never_deleted) {
  const unsigned long letter = NewLetter(a).ID();
  Reopen([&] {
    Patch(1, offsetof(CMSFolderData, FolderCount), 3);
    Patch(2, offsetof(CMSFolderData, ParentID), 77);
    Patch(2, offsetof(CMSFolderData, DocumentCount), 0);
  });
  std::list<CMSFolder> folders;
  root.Folders(folders);
  EXPECT_EQ(folders, (std::list<CMSFolder>{a, b}));
  root.DeleteFolder(a);
  root.MoveFolder(a, b);
  EXPECT_FALSE(a.IsEmpty());
  std::list<CMSDocument> letters;
  a.Documents(letters);
  root.DeleteDocument(letters.front());
  root.MoveDocument(letters.front(), a);
  EXPECT_EQ(store.GetDocument(letter).ParentID(), 2u);
  for (const char* where :
       {"GetNextFolder", "DeleteFolder", "MoveFolder", "DeleteDocument", "MoveDocument"})
    EXPECT_TRUE(Reported(std::string(where) + " detected mismatch in parent-child IDs")) << where;
  const std::string number = " detected mismatch in real and expected number of ";
  EXPECT_TRUE(Reported("Folders" + number + "subfolders in folder"));
  EXPECT_TRUE(Reported("Documents" + number + "letters in folder"));
  EXPECT_TRUE(Reported("IsEmpty" + number + "subobjects"));
}

// Over more than one of its steps, with what a walk over handles finds.
TEST_F(Folders, A_list_shows_what_a_walk_does_and_lets_letters_be_changed_meanwhile) {
  const auto set = [](const std::string& subject) { return subject.empty() ? "none" : subject; };
  for (std::size_t i = 0; i < 150; ++i) {
    CMSDocument letter = NewLetter(i % 3 == 2 ? b : a, static_cast<long>(i) << 16);
    letter.Name(std::string(i % 2 == 0 ? i : 200 + i, static_cast<char>('a' + i % 26)).c_str());
    letter.CreationData("07.03.2024 09:31");
  }
  const auto listed = [&] {
    std::vector<std::string> lines;
    a.ForEachSummary([&](const CMSDocumentSummary& letter) {
      lines.push_back(KitFormat("%lu %ld %lu ", letter.ID, letter.Flag, letter.CreationTime) +
                      set(std::string(letter.Subject)));
      store.GetDocument(letter.ID).RegNum(1);
    });
    return lines;
  };
  const auto walked = [&] {
    std::vector<std::string> lines;
    CMSDocument letter;
    for (auto place = a.GetFirstDocumentPosition(); a.GetNextDocument(letter, place);)
      lines.push_back(KitFormat("%lu %ld %lu ", letter.ID(), letter.Flag(), letter.CreationTime()) +
                      set(letter.Name().str()));
    return lines;
  };
  EXPECT_EQ(listed().size(), 100u);
  EXPECT_EQ(listed(), walked());
  EXPECT_FALSE(CKitFile::Exists(dir / "fixme.dat"));
  Reopen([&] {
    std::string records = ReadBytes(dir / "docs3.db"), keys = ReadBytes(dir / "docs3.idx");
    records[48 + 12] = 99;      // the first letter names another parent
    keys[16 + 9 * 3] = '\xFF';  // the fourth has no record
    WriteBytes(dir / "docs3.db", records), WriteBytes(dir / "docs3.idx", keys);
  });
  EXPECT_EQ(listed().size(), 99u);
  EXPECT_TRUE(Reported("GetNextDocument detected mismatch in parent-child IDs"));
  EXPECT_EQ(listed(), walked());
}

TEST_F(Folders, Parents_in_a_circle_end_paths_moves_and_deletions) {
  b.Move(a);
  Reopen([&] { Patch(2, offsetof(CMSFolderData, ParentID), 3); });
  StoreOf(b).Relations().Add({3, static_cast<int>(CMSObjectType::Folder), 2});
  CMSFolder moved = root.CreateFolder("moved", "", 0);
  EXPECT_EQ(b.FullName(), "A/B");
  moved.Move(b);
  EXPECT_EQ(moved.Parent(), b);
  a.DeleteFolder(b);
  EXPECT_TRUE(a && !moved);
}

TEST_F(Folders, A_tree_of_10000_levels_is_named_and_deleted) {
  CMSFolder folder = a;
  for (int i = 1; i < 10000; ++i) folder = folder.CreateFolder("f", "", 0);
  EXPECT_EQ(folder.FullName().size(), 19999u);
  root.DeleteFolder(a);
  EXPECT_FALSE(folder);
  EXPECT_EQ(root.GetFolderCount(), 1);
}

}  // namespace
