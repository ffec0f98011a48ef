// Stores on disks that fail, and in processes without memory: whatever call or allocation fails,
// once or for good, it is said clearly, nothing is left locked, and nothing acknowledged is lost.
//   MS_FAULT_FULL=1    every call, not just a slice
//   MS_FAULT_SEED      of what is sampled (1)
#ifdef __linux__
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <cstdlib>

#include "ms/Source/Archiver.h"
#include "ms/Source/StoreOf.h"
#include "support/FaultTry.h"

namespace {

using namespace crash;

const bool kAll = FromEnvironment("MS_FAULT_FULL", 0) != 0;

// Work on a place with these files. Under "Attempt" it may fail; whatever it says of the store
// itself it says with expectations.
struct Workload {
  std::string name;
  Files content;
  std::function<void(FaultTry&)> run;
  // Of the place afterwards, on a healthy disk; null: the store is repaired and compared.
  std::function<void(FaultTry&, CrashRun&)> check = {};
};

void RepairAndCompare(FaultTry& made, CrashRun& run) {
  run.Try(ReadTree(made.Dir().Path()), "store", made.before, made.after);
}

// Nobody holds a file any more: the next writer is let in, or learns what is wrong.
void ExpectNoLock(const std::string& store) {
  const LogSink log;
  try {
    OpenStore(store);
  } catch (const CMSDBException& error) {
    EXPECT_FALSE(error.IsInUse()) << error.what();
  } catch (const XKitMsg&) {
  }
}

// After so many failures more of them tell nothing new.
bool IsEnough() {
  return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count() > 20;
}

// True when the trouble came about.
bool Try(const Workload& work, const Trouble& trouble, const FaultTry& unharmed, CrashRun& run) {
  const testing::ScopedTrace trace(__FILE__, __LINE__, work.name + ": " + trouble.Text());
  run.Sequence(work.name + ": " + trouble.Text());
  FaultTry made(work.content, trouble, &unharmed);
  work.run(made);
  const bool isHit = made.HasFailed();
  made.Heal();
  EXPECT_NO_THROW(work.check ? work.check(made, run) : RepairAndCompare(made, run));
  ExpectNoLock(made / "store");
  return isHit;
}

// Every call of every kind (share 1), or some.
void TryDisks(const Workload& work, double share, CrashRun& run) {
  FaultTry unharmed(work.content, {}, nullptr);
  work.run(unharmed);
  // All before the first try, whose calls go by the same way.
  std::array<unsigned, std::size(kKindsOfCalls)> calls;
  for (std::size_t kind = 0; kind < calls.size(); ++kind) calls[kind] = unharmed.Asked(kind);
  std::mt19937 random(FromEnvironment("MS_FAULT_SEED", 1));
  std::uniform_real_distribution<double> chance(0, 1);
  for (std::size_t kind = 0; kind < std::size(kKindsOfCalls); ++kind) {
    for (unsigned nth = 1; nth <= calls[kind]; ++nth) {
      for (const bool forGood : {false, true}) {
        for (const auto cause : {platform::Cause::Io, platform::Cause::NoSpace}) {
          if (!kAll && chance(random) >= share) continue;
          Try(work, {&kKindsOfCalls[kind], nth, forGood, cause}, unharmed, run);
          if (IsEnough()) return;
        }
      }
    }
  }
}

void TryMemory(const Workload& work, unsigned stride, CrashRun& run) {
  FaultTry unharmed(work.content, {}, nullptr);
  work.run(unharmed);
  for (const bool forGood : {false, true}) {
    for (unsigned nth = 1;; nth += kAll ? 1 : stride) {
      if (!Try(work, {nullptr, nth, forGood}, unharmed, run)) break;
      if (IsEnough()) return;
    }
  }
}

// ---- The work.

// The last ID that the store has issued, as its master file says.
unsigned long LastID(const std::string& store) {
  const std::string master = ReadBytes(store + "/ms3.db");
  return std::strtoul(master.c_str() + master.find("LastID=") + 7, nullptr, 10);
}

// What a client does that has met a failure: it looks, and goes on. firstID: the least that its
// letter may have.
void GoOn(FaultTry& made, CMSMessageStore& store, unsigned long firstID) {
  std::optional<LetterBook> live;
  if (made.HasFailed() && made.Attempt([&] { live = LetterBook(store); })) {
    const Outcome outcome = Compare(made.before, made.after, *live);
    EXPECT_EQ(outcome.lost + outcome.torn, "") << "as the client sees it";
  }
  Object later;
  CMSDocument letter;
  made.Attempt([&] {
    letter =
        store.Root().CreateDocument("later", "", "", "", "", "", "", "", "", docflag::Complete, 0);
  });
  for (const char* name : {"path", "number", "address", "idwg", "station", "group", "user"})
    later[name] = "";
  for (const char* name : {"created", "regnum", "size", "body"}) later[name] = "0";
  later["subject"] = "later", later["flag"] = std::to_string(docflag::Complete);
  later["parent"] = "1";
  constexpr unsigned long kMostIDs = 20;  // more than any operation issues
  for (unsigned long id = firstID; !letter && id < firstID + kMostIDs; ++id)
    made.after.Objects().emplace(id, later);
  if (letter) made.before.Objects()[letter.ID()] = made.after.Objects()[letter.ID()] = later;
  made.after.Objects()[0]["two"] = "later";
  made.Attempt([&] {
    if (store.WriteCustomData(LetterBook::kSection, "two", "later"))
      made.before.Objects()[0]["two"] = "later";
  });
}

// What a copy that was withdrawn could leave behind: letters that are not whole, links, sizes,
// counters, files and directories.
std::string TraceOf(const CMSMessageStore& store) {
  CMSFolder target = store.Root().OpenFolder(CKitString("c"));
  std::string trace =
      KitFormat("%u letters, %u links, %lu bytes, %d in the folder, %d of them unread",
                store.GetDocumentCount(), static_cast<unsigned>(StoreOf(target).Relations().Size()),
                static_cast<unsigned long>(store.GetFullSize()), target.GetDocumentCount(),
                target.GetUnreadDocumentCount());
  for (const auto& [name, bytes] : ReadTree(store.GetMainFolder()))
    if (name != "fixme.dat") trace += "\n" + name;  // a refusal is reported, and stays so
  return trace;
}

Workload OperationOf(const Operation& operation, Level level) {
  return {std::string(NameOf(level)) + ", " + operation.name, TheBase().Content(),
          [&operation, level](FaultTry& made) {
            CMSMessageStore store = OpenStore(made / "store", false, nullptr, level);
            made.Note(store);
            CMSFolder folder = store.Root();
            CMSDocument letter = BaseStore::Find(folder.OpenFolder(CKitString("b")), "one");
            const std::string source = made / "source.txt";
            const unsigned long firstID = LastID(made / "store") + 1;
            const bool isClone = &operation == &FindOperation("clone letter");
            const std::string trace = isClone ? TraceOf(store) : "";
            made.Arm();
            const bool isDone = made.Attempt([&] {
              operation.run({store, source, [&] { made.Acknowledge(store); }});
            });
            EXPECT_FALSE(isDone && level != Level::Process && made.HasBrokenPromise());
            isDone ? made.Acknowledge(store) : made.Failed();
            if (isClone && !isDone && !made.IsForGood() && !store.IsReadOnly()) {
              EXPECT_EQ(TraceOf(store), trace);
            }
            if (!made.IsUnharmed() && !made.IsForGood()) GoOn(made, store, firstID);
            made.Attempt([&] {
              store = {};
              folder = {};
              letter = {};
            });
          }};
}

// Operations that leave each other's objects alone.
Workload BatchOf(Level level) {
  return {std::string(NameOf(level)) + ", batch", TheBase().Content(), [level](FaultTry& made) {
            CMSMessageStore store = OpenStore(made / "store", false, nullptr, level);
            made.Note(store);
            const unsigned long firstID = LastID(made / "store") + 1;
            made.Arm();
            const bool isDone = made.Attempt([&] {
              CMSBatch batch(store);
              for (const char* name : {"create letter at once", "add attachment", "move letter",
                                       "delete letter", "compaction"})
                FindOperation(name).run({store, made / "source.txt", [] {}});
              batch.Commit();
            });
            EXPECT_FALSE(isDone && level != Level::Process && made.HasBrokenPromise());
            isDone ? made.Acknowledge(store) : made.Failed();
            if (!made.IsUnharmed() && !made.IsForGood()) GoOn(made, store, firstID);
            made.Attempt([&] { store = {}; });
          }};
}

Workload OpeningOf(bool readOnly) {
  return {readOnly ? "open for reading" : "open", TheBase().Content(), [readOnly](FaultTry& made) {
            if (made.IsUnharmed()) {
              CMSMessageStore store = OpenStore(made / "store", true);
              made.Note(store);
            }
            made.Arm();
            made.Attempt([&] {
              const CMSMessageStore store =
                  OpenStore(made / "store", readOnly, nullptr, Level::Operation);
            });
          }};
}

struct Informer : CMSClientInformer {
  void OnIncompleteStore(const std::list<CKitString>&, const CKitString&) override {}
};

// A store that is not made leaves no half of one in the way of the next.
Workload MakingOf(Level level) {
  return {std::string(NameOf(level)) + ", make",
          {{"store/", ""}},
          [level](FaultTry& made) {
            made.Arm();
            made.Attempt([&] {
              CMSMessageStore store = OpenStore(made / "store", false, nullptr, level);
              store.Root().CreateFolder("first", "", 0);
            });
          },
          [](FaultTry& made, CrashRun&) {
            Informer informer;
            CMSClientInformer* const helper = made.IsForGood() ? &informer : nullptr;
            EXPECT_TRUE(OpenStore(made / "store", false, helper).Root().IsRoot());
            EXPECT_TRUE(MSF::CFixer().RepairMS((made / "store/").c_str()));
            EXPECT_EQ(CheckStore(made / "store"), std::vector<std::string>());
          }};
}

// A store that a walk finds fault with: that must not stay a secret.
Workload ReportOf() {
  Files content = TheBase().Content();
  constexpr std::size_t kCountOfAttachments = 4 + 752;
  Set(content, storecheck::Letters, 0, kCountOfAttachments, 7);
  return {"report", content, [](FaultTry& made) {
            CMSMessageStore store = OpenStore(made / "store", false, nullptr, Level::Operation);
            made.Note(store);
            CMSDocument letter = BaseStore::Find(store.Root().OpenFolder(CKitString("b")), "one");
            bool isTold = true;
            made.Arm();
            if (made.Attempt([&] { EXPECT_EQ(letter.GetAttachmentCount(), 1); }))
              EXPECT_NE(ReadBytes(made / "store/fixme.dat").find("CMSDocument"), std::string::npos);
            else
              isTold = false;
            made.Attempt([&] { letter = {}, store = {}; });
            const std::string master = ReadBytes(made / "store/ms3.db");
            // Without memory it may not have come to see anything.
            EXPECT_TRUE(isTold || made.IsOfMemory() || master.find("State=Active") != master.npos);
          }};
}

// The next one finishes what a repair that failed has begun, or does it all.
Workload RepairOf(const Damage& damage) {
  Files content = TheBase().Content();
  damage.make(content);
  return {std::string("repair, ") + damage.name, content, [](FaultTry& made) {
            const std::string store = made / "store/";
            bool isRepaired = true;
            MSF::CFixer fixer;
            made.Arm();
            made.Attempt([&] { isRepaired = fixer.RepairMS(store.c_str()); });
            if (!isRepaired) made.CheckText(fixer.Error());
            if (!made.IsUnharmed()) return;
            CMSMessageStore repaired = OpenStore(made / "store", true);
            made.Note(repaired);
          }};
}

Workload ScanOf(const Damage& damage) {
  Files content = TheBase().Content();
  damage.make(content);
  return {std::string("scan, ") + damage.name, content,
          [](FaultTry& made) {
            MSF::CFixer fixer;
            made.Arm();
            made.Attempt([&] { EXPECT_FALSE(fixer.ScanMS((made / "store/").c_str())); });
            if (!fixer.Error().empty()) made.CheckText(fixer.Error());
          },
          [content](FaultTry& made, CrashRun&) {
            // What could not be removed the next job removes.
            EXPECT_FALSE(MSF::CFixer().ScanMS((made / "store/").c_str()));
            const Files files = ReadTree(made.Dir().Path());
            for (const auto& [name, bytes] : files) EXPECT_EQ(content.count(name), 1U) << name;
            EXPECT_TRUE(files == content);
          }};
}

Workload BackupOf() {
  const auto backup = [](const std::string& from, const std::string& to) {
    CMSMessageStore store = OpenStore(from, false, nullptr, Level::Operation);
    CMSArchiver().Backup(store, to.c_str(), nullptr, nullptr);
  };
  return {"backup", TheBase().Content(),
          [backup](FaultTry& made) {
            if (made.IsUnharmed()) {
              CMSMessageStore store = OpenStore(made / "store", true);
              made.Note(store);
            }
            made.Arm();
            made.Attempt([&] { backup(made / "store", made / "backup"); });
          },
          [backup](FaultTry& made, CrashRun& run) {
            RepairAndCompare(made, run);
            const std::string target = made / "backup";
            if (MSF::CFixer::IsMSDirectory((target + "/").c_str()) &&
                !CMSArchiver::IsHalfMade(target.c_str())) {
              EXPECT_TRUE(MSF::CFixer().RepairMS((target + "/").c_str()));
            }
            backup(made / "store", target);
            EXPECT_EQ(CheckStore(target), std::vector<std::string>());
            CMSMessageStore store = OpenStore(target, true);
            EXPECT_EQ(LetterBook(store).Contents(), made.before.Contents());
          }};
}

// ---- Disks.

TEST(FaultyDisk, Operations_fail_clearly_and_lose_nothing) {
  CrashRun run("operations on failing disks");
  for (const Level level : {Level::Operation, Level::Immediate, Level::Process}) {
    const double share = level == Level::Operation ? 0.1 : 0.03;
    for (const Operation& operation : kOperations)
      TryDisks(OperationOf(operation, level), share, run);
    TryDisks(BatchOf(level), share / 2, run);
  }
  EXPECT_EQ(run.Totals().failed, 0U);
}

TEST(FaultyDisk, Openings_fail_clearly_and_leave_the_store_to_the_next) {
  CrashRun run("openings on failing disks");
  for (const bool readOnly : {false, true}) TryDisks(OpeningOf(readOnly), 0.1, run);
  for (const Level level : {Level::Operation, Level::Immediate, Level::Process})
    TryDisks(MakingOf(level), 0.1, run);
  TryDisks(ReportOf(), 0.5, run);
  EXPECT_EQ(run.Totals().failed, 0U);
}

TEST(FaultyDisk, Repairs_and_backups_fail_clearly_and_are_finished_by_the_next) {
  CrashRun run("maintenance on failing disks");
  for (const Damage& damage : kDamages) TryDisks(RepairOf(damage), 0.02, run);
  for (const Damage& damage : kDamages) TryDisks(ScanOf(damage), 0.02, run);
  TryDisks(BackupOf(), 0.02, run);
  EXPECT_EQ(run.Totals().failed, 0U);
}

// ---- A disk that is really full.

#ifdef __linux__
constexpr const char* kVolume = "size=3m";

// Takes all room there but for so many bytes.
void Fill(const std::string& path, std::size_t leave) {
  std::ofstream file(path, std::ios::binary);
  const std::string block(4096, 'x');
  while (file.write(block.data(), 4096).flush()) continue;
  file.close();
  const auto size = std::filesystem::file_size(path);
  std::filesystem::resize_file(path, size > leave ? size - leave : 0);
}

// On a volume of its own. A fault in a mapped file would end this process with a signal.
void TryFullVolume(const std::string& volume) {
  const std::string store = volume + "/store", full = volume + "/full";
  unsigned refusals = 0;
  for (std::size_t leave = 0; leave < 200 * 1024; leave += 4096) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, std::to_string(leave) + " bytes left");
    WriteTree(volume, TheBase().Content());
    std::set<std::string> packets;
    {
      CMSMessageStore opened = OpenStore(store, false, nullptr, Level::Operation);
      CMSDocument letter = BaseStore::Find(opened.Root().OpenFolder(CKitString("b")), "one");
      Fill(full, leave);
      for (const char* packet : {"A", "B", "C"}) {
        try {
          BaseStore::AddRecipient(letter, packet);
          packets.insert(packet);
        } catch (const XKitMsg& error) {
          ++refusals;
          const std::string text = error.what();
          EXPECT_TRUE(text.find("No space left") != text.npos || text == "refused") << text;
        }
      }
      EXPECT_EQ(letter.GetRecipientCount(), 1 + static_cast<int>(packets.size()));
      std::filesystem::remove(full);
      EXPECT_NO_THROW(BaseStore::AddRecipient(letter, "D"));
      EXPECT_GT(Walk(opened).letters, 0U);
    }
    packets.insert("D");
    EXPECT_TRUE(MSF::CFixer().RepairMS((store + "/").c_str()));
    EXPECT_EQ(CheckStore(store), std::vector<std::string>());
    CMSMessageStore opened = OpenStore(store, true);
    for (const std::string& packet : packets)
      EXPECT_TRUE(opened.FindRecipient(packet.c_str(), true).IsValid()) << packet;
  }
  EXPECT_GT(refusals, 20U);
}

TEST(FullDisk, Refuses_a_growth_for_want_of_space_and_raises_no_signal) {
  const TempDir place;
  constexpr int kNotPermitted = 77;
  const LogSink log;
  TheBase();
  const pid_t child = ::fork();
  if (child == 0) {
    const bool isMounted = ::unshare(CLONE_NEWNS) == 0 &&
                           ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                           ::mount("none", place.Path().c_str(), "tmpfs", 0, kVolume) == 0;
    if (!isMounted) std::_Exit(kNotPermitted);
    try {
      TryFullVolume(place.Path());
    } catch (const std::exception& error) {
      ADD_FAILURE() << error.what();
    }
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
  if (WEXITSTATUS(status) == kNotPermitted) GTEST_SKIP() << "may not mount a volume of its own";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}
#endif

// ---- Memory.

TEST(FaultyMemory, Anything_fails_clearly_and_loses_nothing) {
  CrashRun run("without memory");
  for (const Operation& operation : kOperations)
    TryMemory(OperationOf(operation, Level::Operation), 3, run);
  TryMemory(BatchOf(Level::Operation), 7, run);
  for (const bool readOnly : {false, true}) TryMemory(OpeningOf(readOnly), 3, run);
  TryMemory(MakingOf(Level::Operation), 3, run);
  TryMemory(ReportOf(), 1, run);
  TryMemory(RepairOf(kDamages[1]), 50, run);
  TryMemory(BackupOf(), 50, run);
  EXPECT_EQ(run.Totals().failed, 0U);
}

}  // namespace

// What the library and the test ask for. The memory itself is the C library's.

namespace {

void* Grant(std::size_t size, std::size_t alignment) {
  if (!crash::t_memory.Grants()) return nullptr;
  if (alignment <= alignof(std::max_align_t)) return std::malloc(size != 0 ? size : 1);
  return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}
void* GrantOrThrow(std::size_t size, std::size_t alignment) {
  void* const memory = Grant(size, alignment);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
// Out of sight of a compiler that would take it for the wrong partner of operator new.
[[gnu::noinline]] void GiveBack(void* memory) noexcept {
  std::free(memory);
}
constexpr std::size_t kPlain = alignof(std::max_align_t);
using Alignment = std::align_val_t;

}  // namespace

void* operator new(std::size_t size) {
  return GrantOrThrow(size, kPlain);
}
void* operator new[](std::size_t size) {
  return GrantOrThrow(size, kPlain);
}
void* operator new(std::size_t size, Alignment a) {
  return GrantOrThrow(size, std::size_t(a));
}
void* operator new[](std::size_t size, Alignment a) {
  return GrantOrThrow(size, std::size_t(a));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Grant(size, kPlain);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Grant(size, kPlain);
}
void operator delete(void* memory) noexcept {
  GiveBack(memory);
}
void operator delete[](void* memory) noexcept {
  GiveBack(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  GiveBack(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  GiveBack(memory);
}
void operator delete(void* memory, Alignment) noexcept {
  GiveBack(memory);
}
void operator delete[](void* memory, Alignment) noexcept {
  GiveBack(memory);
}
void operator delete(void* memory, std::size_t, Alignment) noexcept {
  GiveBack(memory);
}
void operator delete[](void* memory, std::size_t, Alignment) noexcept {
  GiveBack(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  GiveBack(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  GiveBack(memory);
}
