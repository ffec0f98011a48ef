// Stores cut off at any point of any operation: nothing acknowledged is lost.
//   MS_CRASH_FULL=1    all states (of three operations: some), not just a slice; hours
//   MS_CRASH_SEED      of what is sampled (1)
//   MS_CRASH_TORN=1    show the objects that were cut within their own change
//   MS_CRASH_KEEP      a directory for the first state that fails
#include "support/CrashRun.h"

#include "ms/Source/Archiver.h"
#include "ms/Source/Roles.h"

namespace {

using namespace crash;
using Level = CMSDurabilityLevel;

// Below the root: three folders and three letters, and a spare folder. The links have as many
// deleted entries as they have live ones, so that the next deletion compacts them; all but one
// container of the recipients are taken.
class BaseStore {
 public:
  BaseStore() {
    CMSMessageStore store = OpenStore(m_dir / "store");
    CMSFolder root = store.Root();
    for (const auto& role : MSF::kFolderRoles) root.CreateFolder(role.name, role.props, role.type);
    for (const char* name : {"a", "b", "c"}) root.CreateFolder(name, "", 0);
    CMSFolder a = root.OpenFolder(CKitString("a")), b = root.OpenFolder(CKitString("b"));
    WriteBytes(m_dir / "source.txt", std::string(1500, 'x'));
    for (const char* name : {"one", "two", "three"}) {
      const long flags = docflag::Complete | docflag::Incoming;
      (*name == 'o' ? b : a)
          .CreateDocument(name, "1/1", "", "", "idwg", "idu", "station", "group", "user", flags, 5);
    }
    CMSDocument one = Find(b, "one"), two = Find(a, "two");
    one.AddAttachment(m_dir / "source.txt", false, "text", "source.txt", attachmentflag::Body);
    AddRecipient(one, "PACKET");
    for (int n = 1; n < 99; ++n) AddRecipient(two, "");
    root.CreateFolder("spare", "", 0);
    const unsigned live = 7 + 4 + 3 + 1 + 99;
    std::list<CMSFolder> passing;
    for (unsigned n = 0; n < live; ++n) passing.push_back(root.CreateFolder("passing", "", 0));
    for (CMSFolder& folder : passing) root.DeleteFolder(folder);
  }
  const TempDir& Dir() const { return m_dir; }
  Files Content() const { return ReadTree(m_dir.Path()); }

  static CMSDocument Find(const CMSFolder& folder, const std::string& subject) {
    std::list<CMSDocument> letters;
    if (folder.IsValid()) folder.Documents(letters);
    for (const CMSDocument& letter : letters)
      if (letter.Name().str().starts_with(subject)) return letter;
    return {};
  }
  static void AddRecipient(CMSDocument& letter, const char* packet) {
    letter.AddRecipient("", packet, "", "", "", "", "station", "", "user", "note", "", "", "", "",
                        recipientflag::Sent, 0);
  }

 private:
  TempDir m_dir{std::filesystem::exists("/dev/shm") ? "/dev/shm" : ""};
};

const BaseStore& TheBase() {
  static const BaseStore base;
  return base;
}

// A store at work. Ack is called when a call has returned.
struct Client {
  CMSMessageStore& store;
  std::string source;
  std::function<void()> ack;

  CMSFolder Folder(const char* name) const {
    std::list<CMSFolder> folders{store.Root()};
    for (auto at = folders.begin(); at != folders.end(); ++at) {
      if (at->Name().str() == name) return *at;
      std::list<CMSFolder> below;
      at->Folders(below);
      folders.splice(folders.end(), below);
    }
    return {};
  }
  CMSDocument Letter(const char* subject) const {
    for (const char* name : {"a", "b", "c"})
      if (CMSDocument letter = BaseStore::Find(Folder(name), subject)) return letter;
    return {};
  }
};

struct Operation {
  const char* name;
  void (*run)(const Client&);
};

// What an earlier operation of the sequence has deleted is left alone.
const Operation kOperations[] = {
    {"create letter",
     [](const Client& c) {
       CMSFolder folder = c.Folder("b");
       CMSDocument letter = folder.CreateDocument("four", "1/2", "", "", "idwg", "idu", "station",
                                                  "group", "user", docflag::Incoming, 6);
       c.ack();
       letter.AddAttachment(c.source, false, "text", "source.txt", attachmentflag::Body);
       c.ack();
       BaseStore::AddRecipient(letter, "FOUR");
       c.ack();
       letter.Flag(docflag::Incoming | docflag::Complete);
     }},
    {"create letter at once",
     [](const Client& c) {
       c.Folder("b").CreateDocument("five", "1/3", "", "", "idwg", "idu", "station", "group",
                                    "user", docflag::Incoming | docflag::Complete, 7);
     }},
    {"add attachment",
     [](const Client& c) {
       if (CMSDocument letter = c.Letter("two"))
         letter.AddAttachment(c.source, false, "more", "source.txt", 0);
     }},
    {"add recipient",
     [](const Client& c) {
       if (CMSDocument letter = c.Letter("three")) BaseStore::AddRecipient(letter, "NEW");
     }},
    {"set flag",
     [](const Client& c) {
       if (CMSDocument letter = c.Letter("three")) letter.Flag(letter.Flag() ^ 0x10000);
     }},
    {"set subject",
     [](const Client& c) {
       if (CMSDocument letter = c.Letter("three"))
         letter.Name(("three " + std::string(180, 's')).c_str());
     }},
    {"rename packet",
     [](const Client& c) {
       CMSDocument letter = c.Letter("one");
       if (!letter) return;
       std::list<CMSRecipient> recipients;
       letter.Recipients(recipients);
       recipients.front().TransEnvFileName("RENAMED");
     }},
    {"move letter",
     [](const Client& c) {
       CMSFolder target = c.Folder("c");
       CMSDocument letter = c.Letter("three");
       if (letter && target) letter.Move(target);
     }},
    {"move folder",
     [](const Client& c) {
       CMSFolder folder = c.Folder("a"), target = c.Folder("c");
       if (folder && target) folder.Move(target);
     }},
    {"delete letter",
     [](const Client& c) {
       if (CMSDocument letter = c.Letter("one")) letter.Parent().DeleteDocument(letter);
     }},
    {"delete folder",
     [](const Client& c) {
       if (CMSFolder folder = c.Folder("a")) folder.Parent().DeleteFolder(folder);
     }},
    {"custom data",
     [](const Client& c) {
       c.store.WriteCustomData(LetterBook::kSection, "one", "some value");
       c.ack();
       c.store.WriteCustomData(LetterBook::kSection, "one", "another one");
     }},
    {"compaction",
     [](const Client& c) {
       if (CMSFolder folder = c.Folder("spare")) folder.Parent().DeleteFolder(folder);
     }},
    {"growth",
     [](const Client& c) {
       CMSDocument letter = c.Letter("three");
       if (!letter) return;
       BaseStore::AddRecipient(letter, "GROWS1");
       c.ack();
       BaseStore::AddRecipient(letter, "");
     }},
};
constexpr std::size_t kCount = std::size(kOperations);
using Sequence = std::vector<std::size_t>;

const char* NameOf(Level level) {
  return level == Level::Immediate   ? "immediate"
         : level == Level::Operation ? "operation"
                                     : "process";
}

// One sequence, recorded.
struct Recording {
  Recording(const Sequence& sequence, Level level)
      : dir(std::filesystem::exists("/dev/shm") ? "/dev/shm" : "") {
    std::filesystem::copy(TheBase().Dir().Path(), dir.Path(),
                          std::filesystem::copy_options::recursive);
    RecordingFiles files(dir.Path());
    {
      CMSMessageStore store = OpenStore(dir / "store", false, nullptr, level);
      const auto ack = [&] {
        books.emplace_back(store);
        files.Mark();
      };
      ack();
      for (std::size_t n = 0; n < sequence.size(); ++n) {
        if (n + 1 == sequence.size()) lastFrom = books.size();
        kOperations[sequence[n]].run({store, dir / "source.txt", ack});
        ack();
      }
    }
    files.Mark();
    base = files.Before();
    trace = files.Steps();
  }
  // Of what is acknowledged once that many marks were passed: the last book holds to the end.
  const LetterBook& Book(std::size_t marks) const {
    return books[std::min(std::max<std::size_t>(marks, 1), books.size()) - 1];
  }

  TempDir dir;
  std::vector<LetterBook> books;  // at each mark; the opening is the first
  std::size_t lastFrom = 1;       // the mark that the last operation begins with
  Base base;
  Trace trace;
};

void TrySequence(CrashRun& run, const Sequence& sequence, Level level, Choice choice) {
  std::string name = NameOf(level);
  for (const std::size_t n : sequence) name += std::string(", ") + kOperations[n].name;
  run.Sequence(name);
  const Recording made(sequence, level);
  choice.seed = kSeed + static_cast<unsigned>(run.Totals().sequences);
  const auto tell = [&](const Medium& medium, std::size_t marks) {
    run.Try(medium.Shown(), "store", made.Book(marks), made.Book(marks + 1));
  };
  // What was cut before the last operation is some shorter sequence.
  const std::size_t from = sequence.size() > 1 ? made.lastFrom : 0;
  CrashStates states(made.base, made.trace, choice);
  if (level != Level::Process) return states.PowerCuts(from, tell);
  states.Deaths(from, tell);
  CrashStates(made.base, made.trace, {.few = 3, .samples = 4})
      .PowerCuts(made.books.size() + 1, tell);
}

// ---- The model.

// By content: every state that a cut may leave of what body does, files as "name=content".
std::set<std::string> StatesOf(const std::function<void(const TempDir&)>& body, bool deaths) {
  const TempDir dir;
  WriteBytes(dir / "old", "1");
  RecordingFiles files(dir.Path());
  body(dir);
  std::set<std::string> states;
  CrashStates cuts(files.Before(), files.Steps(), {.samples = 1000});
  const auto tell = [&](const Medium& medium, std::size_t) {
    std::string text;
    for (const auto& [name, bytes] : medium.Shown()) {
      std::string shown = bytes;  // blocks as their first character
      for (std::size_t at = 0; at < shown.size(); ++at) shown.erase(at + 1, kBlock - 1);
      std::replace(shown.begin(), shown.end(), '\0', '0');
      text += name + "=" + shown + " ";
    }
    states.insert(text);
  };
  deaths ? cuts.Deaths(0, tell) : cuts.PowerCuts(0, tell);
  return states;
}

using Disposition = platform::Disposition;
std::unique_ptr<platform::File> OpenIn(const TempDir& dir, const char* name, Disposition how) {
  std::unique_ptr<platform::File> file;
  const platform::OpenOptions options{platform::Access::ReadWrite, how, platform::Sharing::All};
  EXPECT_TRUE(platform::Files().Open(dir / name, options, file).Ok());
  return file;
}
void WriteTo(platform::File& file, const std::string& bytes) {
  std::size_t done = 0;
  EXPECT_TRUE(file.Write(0, bytes.data(), bytes.size(), done).Ok());
}
using States = std::set<std::string>;

TEST(CrashModel, Blocks_and_lengths_come_each_by_itself_until_the_file_is_synced) {
  const std::string two = std::string(kBlock, 'a') + std::string(kBlock, 'b');
  const auto write = [&](const TempDir& dir) {
    WriteTo(*OpenIn(dir, "old", Disposition::OpenExisting), two);
  };
  EXPECT_EQ(StatesOf(write, false),
            (States{"old=1 ", "old=a ", "old=10 ", "old=1b ", "old=a0 ", "old=ab "}));
  EXPECT_EQ(StatesOf(write, true), (States{"old=1 ", "old=ab "}));
  const auto sync = [&](const TempDir& dir) {
    const auto file = OpenIn(dir, "old", Disposition::OpenExisting);
    WriteTo(*file, "2");
    EXPECT_TRUE(file->Sync().Ok());
    WriteTo(*file, "3");
  };
  EXPECT_EQ(StatesOf(sync, false), (States{"old=1 ", "old=2 ", "old=3 "}));
}

TEST(CrashModel, Mapped_bytes_are_sure_once_their_range_is_flushed) {
  const auto change = [](const TempDir& dir) {
    const auto file = OpenIn(dir, "old", Disposition::OpenExisting);
    WriteTo(*file, std::string(2 * kBlock, '1'));
    EXPECT_TRUE(file->Sync().Ok());
    std::unique_ptr<platform::View> view;
    EXPECT_TRUE(file->Map(2 * kBlock, platform::Access::ReadWrite, view).Ok());
    view->Base()[0] = view->Base()[kBlock] = std::byte{'2'};
    EXPECT_TRUE(view->Flush(0, 1).Ok());

    view->Base()[0] = std::byte{'3'};
  };
  const States states = StatesOf(change, false);
  EXPECT_EQ(states.count("old=21 ") + states.count("old=22 ") + states.count("old=32 "), 3U);
  EXPECT_EQ(StatesOf(change, true).count("old=32 "), 1U);
}

TEST(CrashModel, Names_come_in_their_order_until_the_directory_is_synced) {
  const auto replace = [](const TempDir& dir) {
    {
      const auto file = OpenIn(dir, "new", Disposition::CreateNew);
      WriteTo(*file, "2");
      EXPECT_TRUE(file->Sync().Ok());
    }
    EXPECT_TRUE(platform::Files().Replace(dir / "new", dir / "old").Ok());
    EXPECT_TRUE(platform::Files().SyncDirectory(dir.Path()).Ok());
    EXPECT_TRUE(platform::Files().Remove(dir / "old").Ok());
  };
  EXPECT_EQ(StatesOf(replace, false),
            (States{"old=1 ", "new= old=1 ", "new=0 old=1 ", "new=2 old=1 ", "old=2 ", ""}));
}

// ---- Operations.

class Crash : public testing::TestWithParam<Level> {
 protected:
  // For a slice; by level, as one with more syncs has more cuts.
  Choice Few(double share) const {
    switch (GetParam()) {
      case Level::Immediate:
        return {.few = 3, .samples = 4, .cuts = 0.25 * share};
      case Level::Operation:
        return {.few = 4, .samples = 8, .cuts = std::min(1.0, 2 * share)};
      default:
        return {.samples = static_cast<std::size_t>(10 * share) + 1, .cuts = share};
    }
  }
};
INSTANTIATE_TEST_SUITE_P(Level, Crash,
                         testing::Values(Level::Immediate, Level::Operation, Level::Process),
                         [](const auto& level) { return std::string(NameOf(level.param)); });

TEST_P(Crash, One_operation_cut_anywhere_loses_nothing) {
  CrashRun run(std::string("one, ") + NameOf(GetParam()));
  TrySequence(run, {0}, GetParam(), kFull ? Choice() : Few(1));
  EXPECT_EQ(run.Totals().torn, 0U) << "a letter completed by its last call";
  for (std::size_t one = 1; one < kCount; ++one)
    TrySequence(run, {one}, GetParam(), kFull ? Choice() : Few(1));
  EXPECT_EQ(run.Totals().failed, 0U);
}

TEST_P(Crash, Two_operations_cut_anywhere_lose_nothing) {
  CrashRun run(std::string("two, ") + NameOf(GetParam()));
  for (std::size_t one = 0; one < kCount; ++one)
    for (std::size_t two = one % kSparing; two < kCount; two += kFull ? 1 : kSparing)
      TrySequence(run, {one, two}, GetParam(), kFull ? Choice() : Few(0.1));
  EXPECT_EQ(run.Totals().failed, 0U);
}

TEST_P(Crash, Three_operations_cut_anywhere_lose_nothing) {
  CrashRun run(std::string("three, ") + NameOf(GetParam()));
  std::mt19937 random(kSeed);
  for (std::size_t n = 0; n < kCount * kCount * kCount; ++n) {
    if (!kFull && random() % 100 != 0) continue;
    TrySequence(run, {n / kCount / kCount, n / kCount % kCount, n % kCount}, GetParam(), Few(0.2));
  }
  EXPECT_EQ(run.Totals().failed, 0U);
}

// What is in memory is the system's, so each step that was made is there: at the finest at level
// Immediate, where every flush is told.
TEST(CrashOfProcess, Death_at_any_flush_of_an_operation_loses_nothing) {
  CrashRun run("one, death at any flush");
  for (std::size_t one = 0; one < kCount; ++one) {
    run.Sequence(kOperations[one].name);
    const Recording made({one}, Level::Immediate);
    CrashStates(made.base, made.trace, {.samples = kFull ? 100000U : 12U})
        .Deaths(0, [&](const Medium& medium, std::size_t marks) {
          run.Try(medium.Shown(), "store", made.Book(marks), made.Book(marks + 1));
        });
  }
  EXPECT_EQ(run.Totals().failed, 0U);
}

// ---- Maintenance.

// A copy of the base, changed, and then recorded while something is done to it.
class Maintenance {
 public:
  explicit Maintenance(const Files& files) { WriteTree(m_dir.Path(), files); }
  template <class Body>
  void Record(Body body) {
    RecordingFiles files(m_dir.Path());
    files.Mark();
    body();
    files.Mark();
    base = files.Before();
    trace = files.Steps();
  }
  std::string operator/(const char* name) const { return m_dir / name; }
  LetterBook Book(const char* name) const {
    CMSMessageStore store = OpenStore(m_dir / name, true);
    return LetterBook(store);
  }
  Files Content() const { return ReadTree(m_dir.Path()); }

  Base base;
  Trace trace;

 private:
  TempDir m_dir{std::filesystem::exists("/dev/shm") ? "/dev/shm" : ""};
};

TEST(CrashOfMaintenance, Refusing_an_earlier_format_changes_nothing) {
  Maintenance made({{"store/", ""}, {"store/docs2.db", "x"}, {"store/ms3.db", "[MessageStore]"}});
  const LogSink log;
  made.Record([&] { EXPECT_THROW(OpenStore(made / "store"), XKitStatus); });
  EXPECT_TRUE(std::all_of(made.trace.begin(), made.trace.end(),
                          [](const Step& step) { return step.kind >= Step::SyncFile; }));
}

// Both stores are checked: the source was only read, the target keeps what the first backup had
// brought, and the next backup brings the rest.
TEST(CrashOfMaintenance, A_backup_cut_anywhere_is_finished_by_the_next) {
  CrashRun run("backup");
  for (const bool isFirst : {true, false}) {
    run.Sequence(isFirst ? "first backup" : "second backup");
    Maintenance made(TheBase().Content());
    const auto backup = [](const std::string& from, const std::string& to) {
      CMSMessageStore store = OpenStore(from, false, nullptr, Level::Operation);
      CMSArchiver().Backup(store, to.c_str(), nullptr, nullptr);
    };
    LetterBook first;
    if (!isFirst) {
      backup(made / "store", made / "backup");
      first = made.Book("backup");
      CMSMessageStore store = OpenStore(made / "store");
      for (const char* name : {"create letter at once", "add attachment", "move letter"})
        std::find_if(std::begin(kOperations), std::end(kOperations), [&](const Operation& one) {
          return std::string(one.name) == name;
        })->run({store, made / "source.txt", [] {}});
    }
    const LetterBook source = made.Book("store");
    made.Record([&] { backup(made / "store", made / "backup"); });
    const auto second = made.Book("backup").Contents();
    EXPECT_EQ(second, source.Contents());
    const auto checkTarget = [&] {
      const std::string target = run.Place() + "/backup", directory = target + "/";
      MSF::CFixer fixer;
      if (MSF::CFixer::IsMSDirectory(directory.c_str()) &&
          !CMSArchiver::IsHalfMade(target.c_str())) {
        if (!fixer.RepairMS(directory.c_str())) return run.Fail("target: " + fixer.Error());
        if (const auto found = CheckStore(target); !found.empty())
          return run.Fail("target: " + found.front());
        CMSMessageStore store = OpenStore(target, true);
        const auto kept = LetterBook(store).Contents();
        for (const auto& [subject, letters] : first.Contents()) {
          const auto has = [&](const auto& wanted) {
            const auto there = kept.find(subject);
            const auto other = wanted.find(subject);
            return there != kept.end() && other != wanted.end() &&
                   there->second.count(*other->second.begin()) != 0;
          };
          if (!has(first.Contents()) && !has(second)) return run.Fail("target lost " + subject);
        }
      }
      try {
        backup(run.Place() + "/store", target);
      } catch (const XKitMsg& error) {
        return run.Fail(std::string("the next backup: ") + error.what());
      }
      if (const auto found = CheckStore(target); !found.empty())
        return run.Fail("target after the next backup: " + found.front());
      CMSMessageStore store = OpenStore(target, true);
      if (LetterBook(store).Contents() != second) run.Fail("the target is another after all");
    };
    const auto tell = [&](const Medium& medium, std::size_t) {
      run.Try(medium.Shown(), "store", source, source, checkTarget);
    };
    const Choice choice{
        .few = kFull ? 12U : 3U, .samples = kFull ? 24U : 8U, .cuts = 1, .seed = kSeed};
    CrashStates(made.base, made.trace, choice).PowerCuts(1, tell);
    CrashStates(made.base, made.trace, choice).Deaths(1, tell);
  }
  EXPECT_EQ(run.Totals().failed, 0U);
}

struct Damage {
  const char* name;
  void (*make)(Files& files);
};
// at: within the slot, behind its links: 0 the key, 4 the parent.
void Set(Files& files, std::size_t kind, std::size_t slot, std::size_t at, std::uint32_t id) {
  const storecheck::Kind& file = storecheck::kKinds[kind];
  storecheck::PutU32(files.at(std::string("store/") + file.db), file.At(slot) + 8 + at, id);
}
const Damage kDamages[] = {
    {"lost indexes", [](Files& f) { f.erase("store/docs3.idx"), f.erase("store/rltns3.db"); }},
    {"two letters with one ID", [](Files& f) { Set(f, storecheck::Letters, 1, 0, 12); }},
    // The letter's attachment and recipient are then told by the folder's ID.
    {"a letter with a folder's ID",
     [](Files& f) {
       Set(f, storecheck::Letters, 0, 0, 9);
       Set(f, storecheck::Attachments, 0, 4, 9);
       Set(f, storecheck::Recipients, 0, 4, 9);
     }},
    {"a folder with a letter's ID, and what is in it",
     [](Files& f) {
       Set(f, storecheck::Folders, 8, 0, 12);
       Set(f, storecheck::Letters, 1, 4, 12);
       Set(f, storecheck::Letters, 2, 4, 12);
     }},
    {"no root", [](Files& f) { Set(f, storecheck::Folders, 0, 0, 0); }},
    {"lost master file", [](Files& f) { f.erase("store/ms3.db"); }},
};

// What a repair makes of a damaged store is decided by the store alone, so it must not matter
// whether an earlier one was cut.
TEST(CrashOfMaintenance, A_repair_cut_anywhere_is_finished_by_the_next_also_if_that_is_cut) {
  CrashRun run("repair");
  const LogSink log;
  const Choice choice{.few = kFull ? 12U : 2U, .samples = kFull ? 24U : 8U, .seed = kSeed};
  for (const Damage& damage : kDamages) {
    run.Sequence(damage.name);
    Files files = TheBase().Content();
    damage.make(files);
    const auto record = [](Maintenance& made) {
      const std::string store = made / "store/";
      made.Record([&] { EXPECT_TRUE(MSF::CFixer().RepairMS(store.c_str())); });
    };
    Maintenance made(files);
    record(made);
    const LetterBook repaired = made.Book("store");
    std::vector<Files> cut;
    std::mt19937 random(kSeed);
    const auto tell = [&](const Medium& medium, std::size_t marks) {
      if (marks == 1 && random() % 40 == 0) cut.push_back(medium.Shown());
      run.Try(medium.Shown(), "store", repaired, repaired);
    };
    CrashStates(made.base, made.trace, choice).PowerCuts(1, tell);
    CrashStates(made.base, made.trace, choice).Deaths(1, tell);
    for (const Files& once : cut) {
      run.Sequence(damage.name + std::string(", again"));
      Maintenance again(once);
      record(again);
      CrashStates(again.base, again.trace, {.few = 2, .samples = 4, .cuts = 0.2, .seed = kSeed})
          .PowerCuts(1, [&](const Medium& medium, std::size_t) {
            run.Try(medium.Shown(), "store", repaired, repaired);
          });
    }
  }
  EXPECT_EQ(run.Totals().failed, 0U);
}

}  // namespace
