// The life of a store: opening, identity, listeners, promises to the medium, threads, closing.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

#include "ms/Source/ObjectAccess.h"
#include "ms/Source/RecordFile.h"
#include "ms/Source/StoreFiles.h"
#include "platform/Profile.h"
#include "support/Engine.h"
#include "support/FaultyFiles.h"
#include "support/OpenStore.h"
#include "support/Skip.h"
#include "support/TempDir.h"

namespace {

using Level = CMSDurabilityLevel;

struct Store : testing::Test {
  TempDir dir;

  std::string State() const {
    return platform::ReadProfileString(dir / "ms3.db", "Maintenance", "State", "", 100);
  }
  std::string Setting(const char* key) const {
    return platform::ReadProfileString(dir / "ms3.db", "MessageStore", key, "", 100);
  }
  CMSMessageStore Open(bool readOnly = false, Level level = Level::Process) {
    return OpenStore(dir.Path(), readOnly, nullptr, level);
  }
  static CMSDocument Letter(CMSFolder folder, long flags = docflag::Complete) {
    return folder.CreateDocument("Subject", "", "", "", "", "", "", "", "", flags, 0);
  }
  static CMSRecipient Address(CMSDocument letter, const std::string& packet) {
    return letter.AddRecipient("", packet, "", "", "", "", "", "", "", "", "", "", "", "", 0, 1);
  }
};

}  // namespace

TEST_F(Store, A_new_directory_becomes_a_store_that_opens_again_as_it_was_left) {
  const std::string path = CKitFile::Join(dir / "deep", "er");
  std::optional<CMSMessageStore> store = OpenStore(path + "//");
  EXPECT_EQ(store->GetMainFolder(), path);
  for (const char* name : storefiles::kRequired)
    EXPECT_TRUE(CKitFile::Exists(CKitFile::Join(path, name))) << name;
  EXPECT_EQ(store->Root().ID(), 1u);
  EXPECT_EQ(store->Root().Name(), "Root");
  const long first = store->ID();
  const CMSFolder folder = store->Root().CreateFolder("A", "", 0);
  EXPECT_EQ(folder.ID(), 2u);
  store.reset();
  // The handle keeps the store open, so nobody else gets in.
  const std::string master = CKitFile::Join(path, "ms3.db");
  EXPECT_EQ(platform::ReadProfileString(master, "Maintenance", "State", "", 9), "Active");
  EXPECT_EQ(CodeOf([&] { OpenStore(path); }), 17);
  {
    const CMSMessageStore again = folder.MS();
    EXPECT_EQ(again.ID(), first);
    EXPECT_EQ(CMSFolder(folder).Name(), "A");
  }
  const_cast<CMSFolder&>(folder) = CMSFolder();
  EXPECT_EQ(platform::ReadProfileString(master, "Maintenance", "State", "", 9), "Closed");
  store = OpenStore(path);
  EXPECT_GT(store->ID(), first);
  EXPECT_EQ(store->Root().OpenFolder("A").ID(), 2u);
  EXPECT_FALSE(store->Root().OpenFolder("Root"));
}

TEST_F(Store, Readers_share_and_exclude_a_writer_and_change_nothing) {
  EXPECT_EQ(CodeOf([&] { OpenStore(dir / "none", true); }), 17);
  EXPECT_FALSE(CKitFolder::Exists(dir / "none"));
  EXPECT_EQ(CodeOf([&] { Open(true); }), 17);
  EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
  CMSDocument letter = Letter(Open().Root());
  EXPECT_THROW(Open(true), CMSDBException);
  letter = CMSDocument();
  CMSMessageStore one = Open(true);
  CMSMessageStore two = Open(true);
  EXPECT_LT(one, two);
  EXPECT_EQ(CodeOf([&] { Open(); }), 17);
  CMSDocument read = one.GetDocument(2);
  EXPECT_EQ(read.Name(), "Subject");
  EXPECT_NE(read, two.GetDocument(2));
  EXPECT_EQ(CodeOf([&] { read.Name("x"); }), 19);
  EXPECT_EQ(CodeOf([&] { one.Root().CreateFolder("x", "", 0); }), 19);
  EXPECT_EQ(CodeOf([&] { one.Root().DeleteDocument(read); }), 19);
  EXPECT_TRUE(two.WriteCustomData("Client", "key", "value"));
  EXPECT_EQ(one.GetCustomData("client", "KEY"), "value");
  platform::WriteProfileString(dir / "ms3.db", "Maintenance", "State", "left over");
  read = {}, one = {}, two = {};
  one = Open(true);
  EXPECT_EQ(State(), "Active");
  one = {};
  EXPECT_EQ(State(), "Closed");
}

// As a client's global store: destroyed when main has returned and much else is gone already.
CMSMessageStore g_store;

TEST_F(Store, A_process_that_ends_closes_its_global_store_and_one_that_dies_leaves_it_active) {
  NEEDS_POSIX("a process cannot be doubled");
  const auto use = [&] {
    g_store = Open(false, Level::Operation);
    Address(Letter(g_store.Root()), "PACKET");
  };
  EXPECT_EXIT((use(), std::exit(0)), testing::ExitedWithCode(0), "");
  EXPECT_EQ(State(), "Closed");
  EXPECT_EXIT((use(), std::_Exit(3)), testing::ExitedWithCode(3), "");
  EXPECT_EQ(State(), "Active");
  EXPECT_EQ(Open(true).GetDocumentCount(), 2u);
}

TEST_F(Store, An_opening_that_overlaps_a_closing_marks_the_store_open_or_finds_it_in_use) {
  FaultyFiles files;
  CMSMessageStore first = Open();
  std::string state = "Active";
  std::function<void()> meanwhile = [&] { first = {}; };
  files.Watch([&](const FaultyFiles::Call& made) {
    if (made.kind != call::kSync || !made.path.ends_with("ms3.db") || State() != state) return;
    if (const auto act = std::exchange(meanwhile, nullptr)) act();
  });
  CMSMessageStore second = Open();
  EXPECT_FALSE(first.IsValid());
  EXPECT_EQ(State(), "Active");
  state = "Closed";
  meanwhile = [&] { EXPECT_EQ(CodeOf([&] { Open(); }), 17); };
  second = {};
  EXPECT_FALSE(meanwhile);
}

TEST_F(Store, Counters_last_and_a_master_file_that_cannot_take_them_leaves_the_store_active) {
  NEEDS_POSIX("the system writes the master file itself");
  WriteBytes(dir / "five", "12345");
  Letter(Open().Root()).AddAttachment(dir / "five", false, "", "", 0);
  EXPECT_EQ(Setting("Size") + " " + Setting("LastID"), "5 3");
  FaultyFiles files;
  {
    CMSMessageStore store = Open();
    EXPECT_EQ(store.GetFullSize(), 5);
    constexpr auto kWrites = call::kWrite | call::kReplace;
    files.Fail({.calls = kWrites, .forGood = true, .path = "ms3.db"});
    EXPECT_EQ(store.Root().CreateFolder("A", "", 0).ID(), 4u);
    files.Heal();
    files.Fail({.calls = kWrites, .path = "ms3.db"});  // once more: the state could be written
  }
  EXPECT_EQ(State(), "Active");
  EXPECT_EQ(Open().Root().CreateFolder("B", "", 0).ID(), 5u);
  EXPECT_EQ(State(), "Closed");
}

TEST_F(Store, Openings_that_fail_at_the_root_folder_do_not_keep_later_stores_from_syncing) {
  FaultyFiles files;
  for (int i = 0; i < 17; ++i) {
    files.Fail({.calls = call::kWrite, .nth = 2, .path = "folders3.db"});
    EXPECT_EQ(CodeOf([&] { Open(false, Level::Operation); }), 6);
    EXPECT_FALSE(CKitFile::Exists(dir / "folders3.db"));
  }
  files.Heal();
  CMSMessageStore store = Open(false, Level::Operation);
  const unsigned before = files.Count(call::kSync);
  store.Root().Type(1);
  EXPECT_EQ(files.Count(call::kSync), before + 1);
}

TEST_F(Store, Stores_of_a_relative_path_stay_where_they_were_opened) {
  const auto here = std::filesystem::current_path();
  WriteBytes(dir / "note.txt", "note");
  for (const char* path : {"x", "."}) {
    std::filesystem::current_path(dir.Path());
    CMSMessageStore store = OpenStore(path);
    const CMSAttachment note = Letter(store.Root()).AddAttachment("note.txt", false, "", "", 0);
    std::filesystem::current_path(here);
    EXPECT_EQ(ReadBytes(note.InternalFileName()), "note");
    const std::string stored = CMSFieldAccess::Text(note, &CMSAttachmentData::InternalFileName);
    EXPECT_EQ(std::count(stored.begin(), stored.end(), '\\'), 1) << stored;
    EXPECT_TRUE(stored.ends_with("\\note.txt")) << stored;
  }
}

TEST_F(Store, A_store_without_any_folder_gets_its_root_at_the_next_opening) {
  Open();
  CMSDurability durability(Level::Process, dir.Path());
  const CMSEngineContext context{g_MSBaseInformer, durability, false};
  EXPECT_TRUE(CMSRecordFile(context, dir.Path(), "folders3", sizeof(CMSFolderData)).Delete(1));
  EXPECT_FALSE(Open(true).Root());
  EXPECT_EQ(Open().Root().Name(), "Root");
}

TEST_F(Store, No_ID_is_ever_issued_twice_whatever_the_master_file_says) {
  unsigned long last = 0;
  for (const char* lie : {"1", "", "-7", "garbage", "4294967295"}) {
    {
      CMSMessageStore store = Open();
      const CMSDocument letter = Letter(store.Root());
      EXPECT_GT(letter.ID(), last);
      last = Address(letter, "P").ID();
      EXPECT_EQ(Setting("LastID"), std::to_string(last));
    }
    platform::WriteProfileString(dir / "ms3.db", "MessageStore", "LastID", lie);
  }
}

TEST_F(Store, Handles_compare_by_object_and_turn_stale_together) {
  CMSMessageStore store = Open();
  EXPECT_TRUE(store.IsSingleOwned());
  CMSFolder root = store.Root();
  CMSDocument a = Letter(root);
  const unsigned long id = a.ID();
  CMSDocument b = store.GetDocument(id);
  EXPECT_EQ(a, b);
  EXPECT_NE(a, Letter(root));
  EXPECT_EQ(CMSDocument(), CMSDocument());
  EXPECT_FALSE(store.GetDocument(root.ID()));
  if constexpr (sizeof id > 4) {
    EXPECT_FALSE(store.GetDocument(id + (1UL << 31 << 1)) || root.OpenFolder(1UL << 31 << 1));
  }
  EXPECT_FALSE(CMSDocument().MS().IsValid());
  root.DeleteDocument(a);
  EXPECT_TRUE(!a && !b && a == b && b.ID() == id);
  EXPECT_FALSE(store.GetDocument(id));
  EXPECT_EQ(CodeOf([&] { (void)b.Name(); }), 6);
  EXPECT_EQ(CodeOf([&] { b.Flag(0); }), 6);
  EXPECT_EQ(CodeOf([&] { root.DeleteDocument(b); }), 6);
  EXPECT_EQ(CodeOf([] { (void)CMSFolder().Name(); }), 6);
  EXPECT_EQ(CodeOf([] { CMSDocument().Name("x"); }), 6);
}

// A deletion between finding a record's number and reading it is no damage.
TEST_F(Store, Letters_that_another_thread_deletes_meanwhile_are_gone_and_not_reported) {
  CMSMessageStore store = Open();
  CMSFolder root = store.Root();
  for (int round = 0; round < 300; ++round) {
    CMSDocument letter = Letter(root);
    std::atomic<bool> reads{false};
    std::thread reader([&reads, letter] {
      EXPECT_EQ(CodeOf([&] {
                  for (;; reads = true) (void)letter.Flag();
                }),
                6);
    });
    while (!reads) std::this_thread::yield();
    root.DeleteDocument(letter);
    reader.join();
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "fixme.dat") &&
               std::filesystem::file_size(dir / "fixme.dat") != 0);
}

// Whoever comes last closes it, whatever it holds: not earlier, and not twice.
TEST_F(Store, The_last_of_many_threads_to_let_a_handle_go_closes_the_store) {
  for (int round = 0; round < 40; ++round) {
    CMSMessageStore store = Open();
    CMSDocument letter = Letter(store.Root());
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
      threads.emplace_back([thread, store = std::optional(store), letter = letter]() mutable {
        const CMSFolder root = store->Root();
        if (thread % 2 == 0) store.reset();
        for (int i = 0; i < 50 * thread; ++i)
          EXPECT_TRUE(letter.Parent() == root && letter.MS().GetDocument(letter.ID()) == letter);
      });
    store = {};
    EXPECT_TRUE(letter.MS().IsValid());
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(State(), "Active");
    letter = {};
    ASSERT_EQ(State(), "Closed");
  }
}

TEST_F(Store, Packets_lead_to_the_first_recipient_in_the_right_direction) {
  {
    CMSMessageStore store = Open();
    CMSDocument out = Letter(store.Root());
    CMSDocument in = Letter(store.Root(), docflag::Incoming);
    const CMSRecipient second = Address(in, "PACKET_NAME_LONG");
    CMSRecipient first = Address(out, "PACKET_NAME_");
    EXPECT_EQ(store.FindRecipient("PACKET_NAME_X", true), second);
    EXPECT_EQ(store.FindRecipient("PACKET_NAME_", false), first);
    for (int i = 0; i < 2; ++i) first.TransEnvFileName("other");  // the second time by itself
    EXPECT_EQ(store.FindRecipient("other", false), first);
    EXPECT_FALSE(store.FindRecipient("PACKET_NAME_", false));
    EXPECT_FALSE(store.FindRecipient("", false));
    EXPECT_FALSE(store.FindRecipient(nullptr, false));
    out.DeleteRecipient(first);
    EXPECT_FALSE(store.FindRecipient("other", false));
  }
  CMSMessageStore store = Open(true);
  EXPECT_TRUE(store.FindRecipient("PACKET_NAME_", true));
}

TEST_F(Store, Each_level_waits_for_just_what_it_promises) {
  constexpr auto kWaits = call::kSync | call::kFlush | call::kSyncVolume;
  FaultyFiles files;
  const auto work = [](CMSMessageStore& store) {
    for (int i = 0; i < 10; ++i) Address(Letter(store.Root()), "P" + std::to_string(i));
  };
  for (const Level level : {Level::Process, Level::Operation, Level::Immediate}) {
    CMSMessageStore store = Open(false, level);
    Address(Letter(store.Root()), "warm");
    const unsigned syncs = files.Count(kWaits);
    work(store);
    const unsigned each = files.Count(kWaits) - syncs;
    unsigned waitedWithin = 0;
    {
      CMSBatch batch(store);
      {
        CMSBatch inner(store);
        work(store);
        inner.Commit();
      }
      waitedWithin = files.Count(kWaits) - syncs - each;
      batch.Commit();
    }
    const unsigned batched = files.Count(kWaits) - syncs - each;
    // One more now and then, when a counter of the master file gains a digit.
    if (level == Level::Process) {
      EXPECT_LE(each + batched, 2u);
    } else if (level == Level::Operation) {
      EXPECT_GE(each, 20u);         // every call waits
      EXPECT_LE(waitedWithin, 1u);  // none within the batch
      EXPECT_LE(batched, 5u);       // then once for each record file touched
    } else {
      EXPECT_GT(waitedWithin, 100u);
    }
  }
}

TEST_F(Store, A_sync_that_fails_ends_all_changes_and_leaves_the_store_marked_open) {
  FaultyFiles files;
  {
    CMSMessageStore store = Open(false, Level::Operation);
    CMSDocument letter = Letter(store.Root());
    files.Fail({.calls = call::kSync, .path = "docs3.db"});
    EXPECT_EQ(CodeOf([&] { letter.Name("changed"); }), 19);
    files.Heal();
    EXPECT_TRUE(store.IsReadOnly());
    EXPECT_EQ(CodeOf([&] { letter.Name("again"); }), 19);
    EXPECT_EQ(CodeOf([&] { store.Root().CreateFolder("x", "", 0); }), 19);
    EXPECT_EQ(CodeOf([&] { CMSBatch(store).Commit(); }), 19);
    EXPECT_EQ(letter.Name(), "changed");
  }
  EXPECT_EQ(State(), "Active");
  EXPECT_EQ(Open().GetDocumentCount(), 1u);
  EXPECT_EQ(State(), "Closed");
}

TEST_F(Store, Listeners_are_attached_called_once_for_each_registration_and_let_go) {
  struct Counter : CMSDocumentListener {
    void OnAttachStore(CMSMessageStore& store) override { log += "@" + std::to_string(store.ID()); }
    void OnDocumentRemoved(const CMSDocument& d) override { log += d ? "?" : "-"; }
    void OnDocumentAdded(const CMSDocument&) override { log += "+"; }
    void OnDocumentChanged(const CMSDocument&) override { log += "*"; }
    std::string log;
  } listener;
  CMSMessageStore store = Open();
  for (int i = 0; i < 2; ++i) store.AddListener(&listener);
  const std::string attached = "@" + std::to_string(store.ID());
  EXPECT_EQ(std::exchange(listener.log, ""), attached + attached);
  CMSFolder root = store.Root();
  CMSDocument letter = Letter(root);
  EXPECT_EQ(std::exchange(listener.log, ""), "++");
  store.RemoveListener(&listener);
  letter.Flag(0);
  root.DeleteDocument(letter);
  EXPECT_EQ(std::exchange(listener.log, ""), "+*-");
  store.RemoveListener(&listener);
  Letter(root);
  EXPECT_EQ(listener.log, "");
}
