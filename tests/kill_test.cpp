// Processes that fight over a store, and writers that are killed at any moment.
//   MS_KILLS        how many are killed, on a real disk (50, in memory)
//   MS_CRASH_SEED   of what they do, and when they are killed (1)
#include <chrono>
#include <thread>

#include "support/Child.h"
#include "support/CrashRun.h"
#include "support/Workload.h"

#include "ms/Source/Roles.h"

namespace {

using namespace crash;
namespace fs = std::filesystem;
using Level = CMSDurabilityLevel;

// A process that holds a store, or was refused.
class Holder {
 public:
  Holder(const std::string& store, const std::string& letter)
      : m_child({MS_WORKER, "hold", store, letter}) {
    EXPECT_EQ(m_child.Line(), "ready");
  }
  void Go() { m_child.Say("go"); }
  // The status of its opening, which must have come at once.
  int Code() {
    std::istringstream line(m_child.Line());
    int code = -1;
    double milliseconds = 1e9;
    line >> code >> milliseconds;
    EXPECT_LT(milliseconds, 1000);
    slowest = std::max(slowest, milliseconds);
    return code;
  }
  int CodeOfGoing() {
    Go();
    return Code();
  }
  int End() { return m_child.Wait(); }
  int Kill() { return m_child.Kill(); }
  static inline double slowest = 0;

 private:
  Child m_child;
};

TEST(Processes, Of_two_writers_one_wins_the_other_hears_17_at_once_and_a_death_frees_the_store) {
  const TempDir dir{InMemory()};
  std::set<std::string> letters;
  for (int round = 0; round < 50; ++round) {
    // Each fifth fight is about who makes the store. While the winner is at that, what there is of
    // it may also pass for a store that lacks files.
    const bool isNew = round % 5 == 0;
    const std::string store = dir / (isNew ? "new" + std::to_string(round) : "new0");
    const std::string names[] = {KitFormat("%d first", round), KitFormat("%d second", round)};
    Holder one(store, names[0]), two(store, names[1]);
    Holder* const order[] = {round % 2 == 0 ? &one : &two, round % 2 == 0 ? &two : &one};
    for (Holder* each : order) each->Go();
    const int codes[] = {one.Code(), two.Code()};
    ASSERT_EQ((codes[0] == 0) + (codes[1] == 0), 1) << codes[0] << " and " << codes[1];
    Holder &winner = codes[0] == 0 ? one : two, &loser = codes[0] == 0 ? two : one;
    const int refusal = loser.End();
    EXPECT_TRUE(refusal == 17 || (refusal == 4 && isNew)) << "round " << round << ": " << refusal;
    if (store.ends_with("new0")) letters.insert(names[codes[0] == 0 ? 0 : 1]);
    if (round % 3 != 0) {
      EXPECT_EQ(winner.End(), 0);
      EXPECT_EQ(CheckStore(store), std::vector<std::string>());
      continue;
    }
    EXPECT_EQ(winner.Kill(), -SIGKILL);
    Holder heir(store, "heir");
    EXPECT_EQ(heir.CodeOfGoing(), 0);
    EXPECT_EQ(heir.End(), 0);
    EXPECT_TRUE(MSF::CFixer().RepairMS((store + "/").c_str()));
  }
  CMSMessageStore store = OpenStore(dir / "new0", true);
  const auto kept = LetterBook(store).Contents();
  for (const std::string& name : letters)
    EXPECT_TRUE(kept.count(name) != 0 && kept.at(name).size() == 1) << name;
  EXPECT_EQ(kept.size(), letters.size() + 1);
  std::cout << "50 fights, the slowest answer after " << Holder::slowest << " ms" << std::endl;
}

// ---- Killed writers.

class Killing {
 public:
  explicit Killing(unsigned seed) : m_random(seed) {
    CMSMessageStore store = OpenStore(Path());
    CMSFolder root = store.Root();
    for (const auto& role : MSF::kFolderRoles) root.CreateFolder(role.name, role.props, role.type);
  }

  void Once() {
    ++m_runs;
    const unsigned seed = static_cast<unsigned>(m_random() % 1000000);
    const Level level = m_runs % 2 == 0 ? Level::Operation : Level::Process;
    const std::string mirror = m_run.Place() + "/store";
    fs::remove_all(mirror);
    fs::copy(Path(), mirror, fs::copy_options::recursive);
    m_run.Sequence(KitFormat("run %u, seed %u", m_runs, seed));
    const Told told = Write(seed, level);
    m_acknowledged += told.steps;
    LetterBook before, after;
    Replay(mirror, seed, told, before, after);
    if (Below(4) == 0)
      KillRepair();
    else if (told.hasClosed && m_run.Totals().failed == 0)
      ExpectSound();
    m_run.Check(Path(), Below(2) == 0, before, after);
    RepairBackup(m_runs % 10 == 0);
    DropReports();
  }
  std::size_t Failed() const { return m_run.Totals().failed; }
  void Tell() const {
    std::cout << m_runs << " runs, " << m_acknowledged << " acknowledged calls; killed: " << m_at[0]
              << " while opening, " << m_at[1] << " at work, " << m_at[2] << " while closing, "
              << m_at[3] << " later; besides " << m_repairs << " of their repairs\n";
  }

 private:
  // What a worker has told before its end.
  struct Told {
    unsigned steps = 0, wanted = 0;
    bool hasOpened = false, isClosing = false, hasClosed = false;
    void Hear(char what) {
      steps += what == 'a';
      hasOpened = hasOpened || what == 'O';
      isClosing = isClosing || what == 'c';
      hasClosed = hasClosed || what == 'C';
    }
  };

  std::string Path() const { return m_dir / "store"; }
  std::size_t Below(std::size_t limit) { return m_random() % limit; }
  // Short ones are more frequent.
  void Pause(double milliseconds) {
    const double share = static_cast<double>(Below(10000)) / 10000;
    std::this_thread::sleep_for(
        std::chrono::duration<double, std::milli>(milliseconds * share * share));
  }
  Told Write(unsigned seed, Level level) {
    const std::size_t moment = Below(6);
    Told told;
    told.wanted = static_cast<unsigned>(moment == 1 ? Below(30) : 600);
    Child worker({MS_WORKER, "write", Path(), std::to_string(seed),
                  std::to_string(static_cast<int>(level)), std::to_string(told.wanted),
                  m_dir.Path()});
    const auto hearUntil = [&](char wanted) {
      char heard = 1;
      while (heard != 0 && heard != wanted) told.Hear(heard = worker.Next());
    };
    hearUntil(moment == 0 ? 'o' : moment == 1 ? 'c' : 'O');
    for (std::size_t n = moment < 2 ? 0 : Below(40); n > 0; --n) hearUntil('a');
    if (moment > 1 || Below(2) == 0) Pause(moment > 1 ? 60 : 2);
    const int code = worker.Kill();
    hearUntil(0);
    EXPECT_TRUE(code == -SIGKILL || (code == 0 && told.hasClosed)) << "it ended with " << code;
    ++m_at[told.hasClosed ? 3 : told.isClosing ? 2 : told.hasOpened ? 1 : 0];
    return told;
  }
  void Replay(const std::string& mirror, unsigned seed, const Told& told, LetterBook& before,
              LetterBook& after) {
    CMSMessageStore store = OpenStore(mirror);
    Workload work(store, seed, m_run.Place() + "/source", "");
    for (unsigned n = 0; n < told.steps; ++n) work.Step();
    if (told.isClosing) work.Finish();
    before = LetterBook(store);
    if (told.hasOpened && !told.isClosing) told.steps < told.wanted ? work.Step() : work.Finish();
    after = LetterBook(store);
  }
  void ExpectSound() {
    MSF::CFixer fixer;
    if (!fixer.ScanMS((Path() + "/").c_str())) m_run.Fail("closed, but in need of a repair");
  }
  // The links tell nothing that the records do not, and without them a repair has to be whole.
  void KillRepair() {
    fs::remove(Path() + "/rltns3.db");
    Child worker({MS_WORKER, "repair", Path()});
    if (worker.Next() == 'o') Pause(40);
    m_repairs += worker.Kill() == -SIGKILL;
  }
  // A backup that was cut off is a store that may need a repair; the next brings the rest.
  void RepairBackup(bool completes) {
    const std::string path = m_dir / "backup";
    MSF::CFixer fixer;
    if (MSF::CFixer::IsMSDirectory(path.c_str()) && !CMSArchiver::IsHalfMade(path.c_str()) &&
        !fixer.RepairMS((path + "/").c_str()))
      m_run.Fail("the backup cannot be repaired: " + fixer.Error());
    if (!completes) return;
    CMSMessageStore store = OpenStore(Path());
    CMSArchiver().Backup(store, path.c_str(), nullptr, nullptr);
    CMSMessageStore backup = OpenStore(path, true);
    const std::string missing = LetterBook(store).MissingIn(LetterBook(backup));
    if (!missing.empty()) m_run.Fail("not in the backup: " + missing);
  }
  // What repairs have put aside, so that stores of many runs stay small.
  void DropReports() {
    for (const char* store : {"store", "backup"}) {
      if (!fs::exists(m_dir / store)) continue;
      for (const auto& entry : fs::directory_iterator(m_dir / store))
        if (entry.is_directory() && fs::exists(entry.path() / "docs3.db")) fs::remove_all(entry);
    }
  }

  const TempDir m_dir{std::getenv("MS_KILLS") != nullptr ? "" : InMemory()};
  std::mt19937 m_random;
  CrashRun m_run{"killed writers"};
  unsigned m_runs = 0, m_repairs = 0;
  unsigned long m_acknowledged = 0;
  std::array<unsigned, 4> m_at{};
};

TEST(Kill, A_writer_killed_at_any_moment_loses_nothing_that_was_acknowledged) {
  Killing killing(kSeed);
  for (unsigned n = FromEnvironment("MS_KILLS", 50 / kSparing); n-- > 0 && killing.Failed() == 0;)
    killing.Once();
  killing.Tell();
}

}  // namespace
