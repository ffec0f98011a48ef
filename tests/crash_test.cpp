// Stores cut off at any point of any operation: nothing acknowledged is lost.
//   MS_CRASH_FULL=1    all states (of three operations: some), not just a slice; hours
//   MS_CRASH_SEED      of what is sampled (1)
//   MS_CRASH_TORN=1    show the objects that were cut within their own change
//   MS_CRASH_KEEP      a directory for the first state that fails
#include "support/CrashRun.h"

#include "ms/Source/Archiver.h"

namespace {

using namespace crash;

using Sequence = std::vector<std::size_t>;

// One sequence, recorded.
struct Recording {
  Recording(const Sequence& sequence, Level level) : dir(InMemory()) {
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
  TempDir m_dir{InMemory()};
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
        FindOperation(name).run({store, made / "source.txt", [] {}});
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
