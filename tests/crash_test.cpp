// Stores cut off at any point of any operation: nothing acknowledged is lost.
//   MS_CRASH_FULL=1    all states of all sequences, not just a slice (hours)
//   MS_CRASH_SEED      of what is sampled (1)
//   MS_CRASH_TORN=1    show the objects that were cut within their own change
//   MS_CRASH_KEEP      a directory for the first state that fails
#include "support/CrashRun.h"

#include "ms/Source/Archiver.h"
#include "ms/Source/Roles.h"

namespace {

using namespace crash;
using Level = CMSDurabilityLevel;

const bool kFull = FromEnvironment("MS_CRASH_FULL", 0) != 0;
const unsigned kSeed = FromEnvironment("MS_CRASH_SEED", 1);

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
  return level == Level::Immediate ? "immediate" : level == Level::Operation ? "operation"
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

// keep: the share of the states that are tried.
void TrySequence(CrashRun& run, const Sequence& sequence, Level level, double keep) {
  std::string name = NameOf(level);
  for (const std::size_t n : sequence) name += std::string(", ") + kOperations[n].name;
  run.Sequence(name);
  const Recording made(sequence, level);
  const unsigned seed = kSeed + static_cast<unsigned>(run.Totals().sequences);
  std::mt19937 random(seed);
  const auto tell = [&](const Files& files, std::size_t marks) {
    if (std::generate_canonical<double, 32>(random) < keep)
      run.Try(files, "store", made.Book(marks), made.Book(marks + 1));
  };
  CrashStates states(made.base, made.trace, {.seed = seed});
  // What was cut before the last operation is some shorter sequence.
  const std::size_t from = sequence.size() > 1 ? made.lastFrom : 0;
  if (level != Level::Process) return states.PowerCuts(from, tell);
  states.Deaths(from, tell);
  states.PowerCuts(made.books.size() + 1, tell);
}

class Crash : public testing::TestWithParam<Level> {};
INSTANTIATE_TEST_SUITE_P(Level, Crash,
                         testing::Values(Level::Immediate, Level::Operation, Level::Process),
                         [](const auto& level) { return std::string(NameOf(level.param)); });

TEST_P(Crash, Each_operation_cut_anywhere_loses_nothing) {
  CrashRun run(std::string("one, ") + NameOf(GetParam()));
  for (std::size_t one = 0; one < kCount; ++one)
    TrySequence(run, {one}, GetParam(), kFull ? 1 : 0.3);
  EXPECT_EQ(run.Totals().lost, 0U);
}

}  // namespace
