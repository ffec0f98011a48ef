// Eight threads do everything at once to one store, and to a second one beside it.
//   MS_STRESS_SECONDS   how long (3)
//   MS_STRESS_SEED      of the choices (1); what a choice meets depends on the pace of the others
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <functional>
#include <iostream>
#include <mutex>
#include <optional>
#include <thread>

#include "ms/Source/MSFixer.h"
#include "ms/Source/Roles.h"
#include "support/LetterBook.h"
#include "support/LogSink.h"
#include "support/OpenStore.h"
#include "support/Tree.h"
#include "support/Walk.h"
#include "support/Workload.h"

namespace {

using crash::LetterBook;
using Objects = std::map<unsigned long, crash::Object>;

constexpr unsigned kThreads = 8;
constexpr unsigned kMaxLetters = 250;  // in each store, before nothing more is added for all

struct Place {
  explicit Place(const std::string& path)
      : store(OpenStore(path, false, nullptr, CMSDurabilityLevel::Operation)) {
    for (const auto& role : MSF::kFolderRoles)
      store.Root().CreateFolder(role.name, role.props, role.type);
    shared = store.Root().CreateFolder("shared", "", 0);
    for (const char* name : {"A", "B", "C"}) shared.CreateFolder(name, "", 0);
  }
  CMSMessageStore store;
  CMSFolder shared;  // in it nothing belongs to a thread
  // A letter or a folder is deleted by its parent, which it must not leave meanwhile.
  std::mutex moving;
  // A letter of two bodies that loses one has none, so nobody gives one to a letter that is getting
  // its own.
  std::mutex bodies;
};

// What the threads share.
struct Hub {
  TempDir dir{InMemory()};
  Place first{dir / "store"}, second{dir / "other"};
  std::mutex backup;
  std::atomic<bool> stops{false};
  std::atomic<unsigned long> calls{0}, gone{0}, copies{0}, backups{0};
};

// The letters of a folder and of those in it.
void Read(const CMSFolder& folder, Objects& objects) {
  std::list<CMSDocument> letters;
  folder.Documents(letters);
  for (const CMSDocument& letter : letters) objects[letter.ID()] = LetterBook::Read(letter);
  std::list<CMSFolder> folders;
  folder.Folders(folders);
  for (const CMSFolder& one : folders) Read(one, objects);
}

struct Listener : CMSDocumentListener, CMSFolderListener {
  void OnAttachStore(CMSMessageStore&) override {}
  void OnDocumentRemoved(const CMSDocument& letter) override { seen.erase(letter.ID()); }
  void OnDocumentAdded(const CMSDocument& letter) override { seen.insert(letter.ID()); }
  void OnDocumentChanged(const CMSDocument& letter) override { text = letter.Name().str(); }
  void OnFolderRemoved(const CMSFolder&) override { text.clear(); }
  void OnFolderAdded(const CMSFolder& folder) override { text = folder.Name().str(); }
  void OnFolderChanged(const CMSFolder& folder) override { text = folder.FullName().str(); }
  std::set<unsigned long> seen;
  std::string text;
};

// Leaves out what cannot be copied: a letter may lose its files while it is being copied, and it
// may move to a folder that is not listed, from one that is then deleted.
struct Watcher : CMSArchiver::CStatusCallback {
  bool OnProgress(const CMSArchiver::CStatus&) override { return true; }
  int OnError(const CMSArchiver::CStatus& status, unsigned long) override {
    const bool hasMoved = std::string(status.ErrorText).starts_with("the letter's folder went");
    const bool hasLostFile = status.Error == 196U || status.Error == ENOENT;
    EXPECT_TRUE(hasLostFile || hasMoved) << status.Error << ": " << status.ErrorText;
    return 1;
  }
};

class Actor {
 public:
  Actor(Hub& hub, unsigned number, unsigned seed)
      : m_hub(hub),
        m_number(number),
        m_random(seed * kThreads + number),
        m_store(hub.first.store),
        m_own(m_store.Root().CreateFolder("T" + std::to_string(number), "", 0)),
        m_source(hub.dir / ("source" + std::to_string(number))),
        m_subjects("subject" + std::to_string(seed * kThreads + number) + "_"),
        m_work(m_store, seed * kThreads + number, m_source, "", m_own) {}
  void Run() {
    try {
      while (!m_hub.stops && !testing::Test::HasFailure()) {
        ++m_hub.calls;
        m_action = Below(kActions.size());
        (this->*kActions[m_action])();
      }
      m_work.Finish();
      m_known.clear();
      Read(m_own, m_known);
    } catch (const std::exception& error) {
      ADD_FAILURE() << "thread " << m_number << ", action " << m_action << ": " << error.what();
    }
  }
  const Objects& Own() const { return m_known; }

 private:
  std::size_t Below(std::size_t limit) { return m_random() % limit; }
  bool Chance(unsigned n) { return Below(n) == 0; }
  std::string Name(const char* what, std::size_t length = 0) {
    std::string name = what + std::to_string(m_number) + "_" + std::to_string(++m_names);
    return name + std::string(length > name.size() ? length - name.size() : 0, 'x');
  }
  // What another thread has deleted gives status 6; what else may happen is named by the caller.
  template <class Body>
  void Tolerate(Body body, int also = 6) {
    try {
      body();
    } catch (const XKitStatus& error) {
      EXPECT_TRUE(error.Code() == 6 || error.Code() == also)
          << m_action << ": " << error.Code() << " " << error.what();
      ++m_hub.gone;
    } catch (const CMSDocument::XCloneError&) {
      ++m_hub.gone;  // the copy itself, while it was being made
    } catch (const XKitFile& error) {
      EXPECT_TRUE(also == 196 && error.Why() == XKitFile::Cause::NotFound) << error.what();
      ++m_hub.gone;  // a file, likewise
    }
  }
  template <class Handle>
  Handle Any(const std::list<Handle>& list) {
    return list.empty() ? Handle()
                        : *std::next(list.begin(), static_cast<long>(Below(list.size())));
  }

  // ---- What is its own: whatever the others do, nothing fails, and nothing else changes.
  void Work() {
    Objects found;
    Read(m_own, found);
    EXPECT_TRUE(found == m_known) << "thread " << m_number;
    {
      std::optional<CMSBatch> batch;
      if (Chance(4)) batch.emplace(m_store);
      for (std::size_t n = 1 + Below(5); n > 0; --n) m_work.Step();
      if (batch && Chance(2)) batch->Commit();
    }
    m_known.clear();
    Read(m_own, m_known);
    for (const auto& [id, letter] : m_known)
      EXPECT_TRUE(letter.at("subject").starts_with(m_subjects)) << letter.at("subject");
  }
  void Listen() {
    Listener listener;
    m_store.AddListener(static_cast<CMSDocumentListener*>(&listener));
    m_store.AddListener(static_cast<CMSFolderListener*>(&listener));
    CMSDocument letter =
        m_own.CreateDocument(Name("own"), "", "", "", "", "", "", "", "", docflag::Complete, 0);
    CMSRecipient one = letter.AddRecipient("", Name("p"), "", "", "", "", "", "", "", "", "", "",
                                           "", "", recipientflag::Sent, 0);
    EXPECT_EQ(m_store.FindRecipient(one.TransEnvFileName().c_str(), false), one);
    m_own.DeleteDocument(letter);
    EXPECT_FALSE(letter || one || m_store.GetDocument(letter.ID()));
    m_store.RemoveListener(static_cast<CMSFolderListener*>(&listener));
    m_store.RemoveListener(static_cast<CMSDocumentListener*>(&listener));
    EXPECT_EQ(listener.seen.count(letter.ID()), 0U);
    const std::string key = "key" + std::to_string(m_number), value = Name("value");
    EXPECT_TRUE(m_store.WriteCustomData("Client", key.c_str(), value.c_str()));
    EXPECT_EQ(m_store.GetCustomData("Client", key.c_str()), value.c_str());
  }

  // ---- What belongs to all. Folders whose names begin with "x" come and go.
  Place& AnyPlace() { return Chance(3) ? m_hub.second : m_hub.first; }
  CMSFolder AnyFolder(const CMSFolder& top) {
    CMSFolder folder = top;
    for (std::size_t depth = Below(5); depth-- > 0;) {
      std::list<CMSFolder> below;
      folder.Folders(below);
      if (below.empty()) break;
      folder = Any(below);
    }
    return folder;
  }
  // Now and then others get the time to delete or change what it names.
  CMSDocument AnyLetter(const CMSFolder& top) {
    std::list<CMSDocument> letters;
    AnyFolder(top).Documents(letters);
    if (Chance(2)) std::this_thread::sleep_for(std::chrono::microseconds(Below(2000)));
    return Any(letters);
  }

  void Build() {
    Place& place = AnyPlace();
    Tolerate([&] {
      CMSFolder folder = AnyFolder(place.shared);
      if (Chance(3)) return (void)folder.CreateFolder(Name("x"), "", 0);
      if (place.store.GetDocumentCount() > kMaxLetters) return;
      const std::lock_guard guard(place.bodies);
      CMSDocument letter = folder.CreateDocument(Name("shared"), "", "", "", "", "", "", "", "",
                                                 docflag::Complete | docflag::Incoming, 0);
      WriteBytes(m_source, std::string(Below(3000), 's'));
      letter.AddAttachment(m_source, false, "body", "b", attachmentflag::Body);
      letter.AddRecipient("", Name("s"), "", "", "g", "u", "", "", "", "", "", "", "", "", 1, 0);
    });
  }
  void Change() {
    Place& place = AnyPlace();
    Tolerate([&] {
      CMSDocument letter = AnyLetter(place.shared);
      if (!letter) return;
      std::list<CMSAttachment> files;
      letter.Attachments(files);
      CMSAttachment file = Any(files);
      std::list<CMSRecipient> recipients;
      letter.Recipients(recipients);
      CMSRecipient one = Any(recipients);
      constexpr long kBits[] = {docflag::MarkedUnread, docflag::Incoming, docflag::Audit};
      const std::function<void()> changes[] = {
          [&] { letter.Name(Name("shared", Below(340)).c_str()); },
          [&] { letter.Flag(letter.Flag() ^ kBits[Below(3)]); },
          [&] { letter.LetterPath(Name("path").c_str()); },
          [&] { letter.SetCategory("g", "u", 3); },
          [&] { letter.SenderWSName(Name("ws").c_str()); },
          [&] { Chance(4) ? letter.RemoveAttachments() : letter.DeletedTime(5); },
          [&] {
            const std::lock_guard guard(place.bodies);
            if (!letter.Body()) letter.CreateEmptyLetterText();
          },
          [&] { file ? letter.DeleteAttachment(file) : void(); },
          [&] { file ? file.Flag(file.Flag() ^ (Chance(2) ? 0x41 : 0x202)) : void(); },
          [&] { file ? file.CorrectSize(static_cast<long>(Below(10))) : void(); },
          [&] { one ? letter.DeleteRecipient(one) : void(); },
          [&] { one ? one.TransEnvFileName(Name("s").c_str()) : void(); },
          [&] { one ? one.Flag(one.Flag() ^ 0x27) : void(); }};
      changes[Below(std::size(changes))]();
    });
  }
  void Rearrange() {
    Place& place = AnyPlace();
    const std::lock_guard guard(place.moving);
    Tolerate(
        [&] {
          CMSFolder folder = AnyFolder(place.shared), target = AnyFolder(place.shared);
          CMSDocument letter = AnyLetter(place.shared);
          const bool passes = folder.Name().str().starts_with("x");
          const std::size_t what = Below(6);
          if (letter && what == 0) letter.Move(target);
          if (letter && (what == 1 || what == 2)) letter.Parent().DeleteDocument(letter);
          if (passes && what == 3) folder.Parent().DeleteFolder(folder);
          if (passes && what == 4) folder.Move(target);
          if (!passes || what != 5) return;
          folder.Name(Name("x"));
          folder.Props(Name("props"));
          folder.Type(static_cast<long>(Below(3)) * 100);
        },
        87);
  }
  void Look() {
    Place& place = AnyPlace();
    Tolerate([&] {
      const CMSFolder folder = AnyFolder(place.store.Root());
      std::list<CMSDocument> letters;
      folder.Documents(letters);
      (void)folder.IsEmpty();
      (void)folder.GetRawStorageSize();
      for (const CMSDocument& letter : letters) {
        (void)(letter.IsUnread() + letter.IsUndelivered());
        CMSDocument::CMSDocAttachmentInfo files;
        letter.AttachmentInfo(files);
        CMSDocument::CMSDocRcptInfo recipients;
        letter.RcptInfo(recipients);
        if (const CMSAttachment body = letter.Body()) (void)body.Document();
      }
      if (Chance(4)) const Walk walk(place.store);
    });
    if (!Chance(20)) return;
    try {
      OpenStore(m_hub.dir / "store");
      ADD_FAILURE() << "opened twice";
    } catch (const CMSDBException& error) {
      EXPECT_TRUE(error.Code() == 17 && error.IsInUse()) << error.what();
    }
  }
  // From one store to the other, in either direction, or within one.
  void Copy() {
    Place& from = AnyPlace();
    Place& to = AnyPlace();
    if (to.store.GetDocumentCount() > kMaxLetters) return;
    Tolerate(
        [&] {
          CMSFolder target = AnyFolder(to.shared);
          const CMSDocument letter = AnyLetter(from.store.Root());
          if (!letter) return;
          const std::lock_guard guard(to.bodies);
          CMSDocument copy = Chance(4) ? letter.BlankCopy(target) : letter.Clone(target, Chance(2));
          copy.SetActionFlag(docflag::Complete);
          copy.AcceptRecipients(letter, nullptr, Chance(2));
          ++m_hub.copies;
        },
        196);
  }
  void Backup() {
    const std::unique_lock turn(m_hub.backup, std::try_to_lock);
    if (!turn.owns_lock() || !Chance(4)) return;
    Watcher watcher;
    CMSArchiver archiver;
    archiver.SetStatusCallback(&watcher);
    CMSBackupSettings settings;
    settings.Options = Chance(3) ? kBackupMirror : 0;
    settings.CountRule = true;
    archiver.Backup(m_store, (m_hub.dir / "backup").c_str(), &settings, nullptr);
    ++m_hub.backups;
  }

  static constexpr std::array kActions{
      &Actor::Work,   &Actor::Work,      &Actor::Listen, &Actor::Build, &Actor::Change,
      &Actor::Change, &Actor::Rearrange, &Actor::Look,   &Actor::Copy,  &Actor::Backup};

  Hub& m_hub;
  const unsigned m_number;
  std::mt19937 m_random;
  CMSMessageStore m_store;
  CMSFolder m_own;
  const std::string m_source, m_subjects;
  Workload m_work;
  Objects m_known;
  unsigned m_names = 0;
  std::size_t m_action = 0;
};

// Whole, closed, never reported as damaged, and of what it held when it was open.
void ExpectSound(const std::string& path, const LetterBook& book) {
  for (const std::string& finding : CheckStore(path)) ADD_FAILURE() << path << ": " << finding;
  EXPECT_EQ(ReadBytes(path + "/fixme.dat"), "");
  MSF::CFixer fixer;
  fixer.SetDeep(true);
  EXPECT_TRUE(fixer.ScanMS((path + "/").c_str())) << path << ": " << fixer.Error();
  for (const auto& one : fixer.Findings())
    ADD_FAILURE() << one.Object << " " << one.What << " " << one.Stored << " -> " << one.Found;
  EXPECT_TRUE(fixer.UnnamedFiles().empty()) << fixer.UnnamedFiles().front();
  CMSMessageStore store = OpenStore(path, true);
  EXPECT_TRUE(LetterBook(store) == book) << path;
}

TEST(Stress, Eight_threads_at_everything_lose_nothing_and_leave_sound_stores) {
  const unsigned seed = crash::FromEnvironment("MS_STRESS_SEED", 1);
  const auto seconds = std::chrono::seconds(crash::FromEnvironment("MS_STRESS_SECONDS", 3));
  const LogSink log;
  Hub hub;
  std::array<LetterBook, 2> books;
  {
    std::vector<std::unique_ptr<Actor>> actors;
    for (unsigned n = 0; n < kThreads; ++n) actors.push_back(std::make_unique<Actor>(hub, n, seed));
    std::vector<std::thread> threads;
    for (const auto& actor : actors) threads.emplace_back([&actor] { actor->Run(); });
    for (const auto end = std::chrono::steady_clock::now() + seconds;
         std::chrono::steady_clock::now() < end && !HasFailure();)
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    hub.stops = true;
    for (std::thread& thread : threads) thread.join();
    books = {LetterBook(hub.first.store), LetterBook(hub.second.store)};
    std::size_t owned = 0;
    for (const auto& actor : actors)
      for (const auto& [id, letter] : actor->Own()) {
        ++owned;
        const auto found = books[0].Objects().find(id);
        EXPECT_TRUE(found != books[0].Objects().end() && found->second == letter) << id;
      }
    std::cout << "seed " << seed << ": " << hub.calls << " actions, " << hub.gone
              << " met something deleted, " << hub.copies << " copies, " << hub.backups
              << " backups; " << owned << " letters compared" << std::endl;
    EXPECT_GT(owned, 0U);
    CMSArchiver().Backup(hub.first.store, (hub.dir / "backup").c_str(), nullptr, nullptr);
  }
  for (Place* place : {&hub.first, &hub.second}) place->shared = {}, place->store = {};
  if (HasFailure()) return;
  ExpectSound(hub.dir / "store", books[0]);
  ExpectSound(hub.dir / "other", books[1]);
  LetterBook kept;
  {
    CMSMessageStore backup = OpenStore(hub.dir / "backup", true);
    kept = LetterBook(backup);
  }
  ExpectSound(hub.dir / "backup", kept);
  EXPECT_EQ(books[0].MissingIn(kept), "");
}

}  // namespace
