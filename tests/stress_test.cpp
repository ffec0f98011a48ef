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
#include <random>
#include <thread>

#include "ms/Source/Archiver.h"
#include "ms/Source/MSFixer.h"
#include "ms/Source/Roles.h"
#include "support/LetterBook.h"
#include "support/LogSink.h"
#include "support/OpenStore.h"
#include "support/TempDir.h"
#include "support/Walk.h"

namespace {

using crash::LetterBook;
using crash::Object;
using Level = CMSDurabilityLevel;

constexpr unsigned kThreads = 8;
constexpr unsigned kMaxShared = 120;  // letters of nobody, in each store

unsigned Setting(const char* name, unsigned otherwise) {
  const char* const text = std::getenv(name);
  return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

struct Place {
  explicit Place(const std::string& path)
      : store(OpenStore(path, false, nullptr, Level::Operation)) {
    for (const auto& role : MSF::kFolderRoles)
      store.Root().CreateFolder(role.name, role.props, role.type);
    for (const char* name : {"A", "B", "C"})
      folders.push_back(store.Root().CreateFolder(name, "", 0).ID());
  }
  CMSMessageStore store;
  std::vector<unsigned long> folders;  // that no thread deletes
  // A letter or a folder is deleted by its parent, which it must not leave meanwhile.
  std::mutex moving;
};

// What the threads share.
struct Hub {
  TempDir dir{InMemory()};
  Place first{dir / "store"}, second{dir / "other"};
  std::mutex backup;
  std::atomic<bool> stops{false};
  std::atomic<unsigned long> calls{0}, gone{0}, copies{0}, backups{0};
};

// A letter that only one thread changes, and what that thread has been acknowledged of it.
struct Own {
  CMSDocument letter;
  Object fields;
};

void ExpectHolds(const Object& found, const Object& wanted) {
  const auto children = [](const Object& object) {
    return std::count_if(object.begin(), object.end(), [](const auto& field) {
      return field.first.ends_with(" bytes") || field.first.ends_with(" packet");
    });
  };
  EXPECT_EQ(children(found), children(wanted));
  EXPECT_EQ(found.count("twice"), 0U);
  for (const auto& [name, value] : wanted)
    EXPECT_TRUE(found.count(name) != 0 && found.at(name) == value) << name << " was " << value;
}

struct Listener : CMSDocumentListener, CMSFolderListener {
  void OnAttachStore(CMSMessageStore&) override {}
  void OnDocumentRemoved(const CMSDocument& letter) override { seen.erase(letter.ID()); }
  void OnDocumentAdded(const CMSDocument& letter) override { seen.insert(letter.ID()); }
  void OnDocumentChanged(const CMSDocument& letter) override { text = letter.Name().str(); }
  void OnFolderRemoved(const CMSFolder&) override { ++folders; }
  void OnFolderAdded(const CMSFolder& folder) override { text = folder.Name().str(); }
  void OnFolderChanged(const CMSFolder& folder) override { text = folder.FullName().str(); }
  std::set<unsigned long> seen;
  std::string text;
  unsigned folders = 0;
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

bool ByNumber(const CMSDocument& a, const CMSDocument& b) {
  return a.RegNum() < b.RegNum();
}

class Actor {
 public:
  Actor(Hub& hub, unsigned number, unsigned seed)
      : m_hub(hub), m_number(number), m_random(seed * kThreads + number) {
    m_store = hub.first.store;
    m_folder = m_store.Root().CreateFolder("T" + std::to_string(number), "", 0);
    m_source = hub.dir / ("source" + std::to_string(number));
  }
  void Run() {
    try {
      while (!m_hub.stops && !testing::Test::HasFailure()) Act(Below(kActions.size()));
    } catch (const std::exception& error) {
      ADD_FAILURE() << "thread " << m_number << ", action " << m_action << ": " << error.what();
    }
  }
  const std::vector<Own>& Letters() const { return m_own; }

 private:
  void Act(std::size_t action) {
    m_action = action;
    ++m_hub.calls;
    (this->*kActions[action])();
  }
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

  // ---- Letters of its own: whatever the others do, nothing may fail.
  Own* AnyOwn() { return m_own.empty() ? nullptr : &m_own[Below(m_own.size())]; }
  CMSFolder Target() {
    const auto& ids = m_hub.first.folders;
    return Chance(2) ? m_folder : m_store.GetFolder(ids[Below(ids.size())]);
  }
  std::string WriteSource(std::size_t length) {
    std::string bytes(length, static_cast<char>('a' + Below(26)));
    WriteBytes(m_source, bytes);
    return bytes;
  }
  void AddFile(Own& own) {
    const std::string bytes = WriteSource(Below(6000)), name = Name("file");
    const CMSAttachment file = own.letter.AddAttachment(m_source, Chance(3), name, "s", 0x40);
    own.fields[std::to_string(file.ID()) + " bytes"] = bytes;
    own.fields[std::to_string(file.ID()) + " name"] = name + "|s";
  }
  void AddAddressee(Own& own) {
    const std::string packet = Name("p"), note = Name("note");
    const CMSRecipient one = own.letter.AddRecipient("", packet, "", "", "", "", "", "", "", note,
                                                     "", "", "", "", recipientflag::Sent, 0);
    own.fields[std::to_string(one.ID()) + " packet"] = packet;
    own.fields[std::to_string(one.ID()) + " note"] = note;
    EXPECT_EQ(m_store.FindRecipient(packet.c_str(), own.letter.IsIncoming()), one);
  }
  void Create() {
    if (m_own.size() > 6) return Delete();
    std::optional<CMSBatch> batch;
    if (Chance(3)) batch.emplace(m_store);
    const std::string subject = Name("subject", Chance(3) ? 250 : 0), number = Name("number");
    CMSFolder folder = Target();
    const long flags = docflag::Complete | (Chance(2) ? docflag::Incoming : 0);
    CMSDocument letter = folder.CreateDocument(subject, number, "07.03.2024 09:30", "", "", "", "",
                                               "", "user", flags, static_cast<long>(m_number) + 1);
    m_own.push_back({letter,
                     {{"subject", subject},
                      {"number", number},
                      {"user", "user"},
                      {"regnum", std::to_string(m_number + 1)},
                      {"flag", std::to_string(flags)},
                      {"parent", std::to_string(folder.ID())}}});
    for (std::size_t n = Below(3); n-- > 0;) AddFile(m_own.back());
    for (std::size_t n = Below(3); n-- > 0;) AddAddressee(m_own.back());
    if (batch && Chance(2)) batch->Commit();
  }
  void Delete() {
    Own* const own = AnyOwn();
    if (own == nullptr) return;
    own->letter.Parent().DeleteDocument(own->letter);
    EXPECT_FALSE(own->letter);
    EXPECT_FALSE(m_store.GetDocument(own->letter.ID()));
    m_own.erase(m_own.begin() + (own - m_own.data()));
  }
  void Set() {
    Own* const own = AnyOwn();
    if (own == nullptr) return;
    CMSDocument& letter = own->letter;
    const std::string text = Name("text", Chance(3) ? 90 : 0);
    switch (Below(5)) {
      case 0:
        return letter.Name((own->fields["subject"] = Name("subject", Below(300))).c_str());
      case 1:
        return letter.RegNumber((own->fields["number"] = text).c_str());
      case 2:
        own->fields["user"] = text.substr(0, 50);
        return letter.SenderUserName(own->fields["user"].c_str());
      case 3:
        return letter.SetCategory("", "", static_cast<long>(Below(100)));
      default: {
        constexpr long kBits[] = {docflag::MarkedUnread, docflag::Incoming, 0x20000};
        const long flags = letter.Flag() ^ kBits[Below(3)];
        own->fields["flag"] = std::to_string(flags);
        letter.Flag(flags);
      }
    }
  }
  void ChangeFiles() {
    Own* const own = AnyOwn();
    if (own == nullptr) return;
    std::list<CMSAttachment> files;
    own->letter.Attachments(files);
    if (files.size() < 2) return AddFile(*own);
    CMSAttachment file = Any(files);
    const std::string id = std::to_string(file.ID());
    switch (Below(3)) {
      case 0:
        own->letter.DeleteAttachment(file);
        own->fields.erase(id + " bytes");
        own->fields.erase(id + " name");
        EXPECT_FALSE(file);
        break;
      case 1: {  // of the same length: the letter is not told of another
        std::string& bytes = own->fields.at(id + " bytes");
        bytes = WriteSource(bytes.size());
        return file.Get(m_source.c_str(), false);
      }
      default: {
        const std::string out = m_hub.dir / Name("out");
        CKitFolder::MakePath(out);
        EXPECT_EQ(ReadBytes(file.Put(CKitFolder(out)).str()), own->fields.at(id + " bytes"));
        std::filesystem::remove_all(out);
        file.Flag(file.Flag() ^ attachmentflag::Read);
      }
    }
  }
  void ChangeAddressees() {
    Own* const own = AnyOwn();
    if (own == nullptr) return;
    std::list<CMSRecipient> all;
    own->letter.Recipients(all);
    if (all.size() < 2) return AddAddressee(*own);
    CMSRecipient one = Any(all);
    const std::string id = std::to_string(one.ID()), name = Name("p");
    if (Chance(2)) {
      one.TransEnvFileName(name.c_str());
      own->fields[id + " packet"] = name;
      EXPECT_EQ(m_store.FindRecipient(name.c_str(), own->letter.IsIncoming()), one);
      one.Annotation((own->fields[id + " note"] = name).c_str());
      one.Flag(one.Flag() ^ recipientflag::Delivered);
    } else {
      own->letter.DeleteRecipient(one);
      own->fields.erase(id + " packet");
      own->fields.erase(id + " note");
    }
  }
  void Move() {
    Own* const own = AnyOwn();
    if (own == nullptr) return;
    CMSFolder target = Target();
    own->letter.Move(target);
    own->fields["parent"] = std::to_string(target.ID());
    EXPECT_EQ(own->letter.Parent(), target);
  }
  void Verify() {
    if (Own* const own = AnyOwn()) ExpectHolds(LetterBook::Read(own->letter), own->fields);
  }
  void Custom() {
    const std::string key = "key" + std::to_string(m_number), value = Name("value");
    EXPECT_TRUE(m_store.WriteCustomData("Client", key.c_str(), value.c_str()));
    EXPECT_EQ(m_store.GetCustomData("Client", key.c_str()), value.c_str());
  }
  void Listen() {
    Listener listener;
    m_store.AddListener(static_cast<CMSDocumentListener*>(&listener));
    m_store.AddListener(static_cast<CMSFolderListener*>(&listener));
    Create();
    if (Own* const own = AnyOwn()) {
      own->letter.Flag(own->letter.Flag());
      EXPECT_EQ(own->letter.Name().str(), own->fields["subject"]);
    }
    m_store.RemoveListener(static_cast<CMSFolderListener*>(&listener));
    m_store.RemoveListener(static_cast<CMSDocumentListener*>(&listener));
    EXPECT_FALSE(listener.seen.empty());
  }
  void Batch() {
    CMSBatch batch(m_store);
    for (std::size_t n = Below(6); n-- > 0;) Act(Below(kChanges));
    if (Chance(2)) batch.Commit();
  }

  // ---- What belongs to all. Folders whose names begin with "x" come and go.
  Place& AnyPlace() { return Chance(3) ? m_hub.second : m_hub.first; }
  CMSFolder AnyFolder(const CMSMessageStore& store) {
    CMSFolder folder = store.Root();
    for (std::size_t depth = Below(5); depth-- > 0;) {
      std::list<CMSFolder> below;
      folder.Folders(below);
      if (below.empty()) break;
      folder = Any(below);
    }
    return folder;
  }
  // Now and then others get the time to delete or change what it names.
  CMSDocument AnyLetter(const CMSMessageStore& store) {
    std::list<CMSDocument> letters;
    AnyFolder(store).Documents(letters);
    if (Chance(2)) std::this_thread::sleep_for(std::chrono::microseconds(Below(2000)));
    return Any(letters);
  }
  static bool IsOwned(const CMSDocument& letter) { return letter.RegNum() != 0; }
  static bool Passes(const CMSFolder& folder) { return folder.Name().str().starts_with("x"); }

  void Build() {
    Place& place = AnyPlace();
    Tolerate([&] {
      CMSFolder folder = AnyFolder(place.store);
      if (Chance(3)) return (void)folder.CreateFolder(Name("x"), "", 0);
      if (place.store.GetDocumentCount() > kMaxShared) return;
      CMSDocument letter = folder.CreateDocument(Name("shared"), "", "", "", "", "", "", "", "",
                                                 docflag::Complete | docflag::Incoming, 0);
      WriteSource(Below(3000));
      letter.AddAttachment(m_source, false, "body", "b", attachmentflag::Body);
      letter.AddRecipient("", Name("s"), "", "", "g", "u", "", "", "", "", "", "", "", "", 1, 0);
    });
  }
  void Change() {
    Place& place = AnyPlace();
    Tolerate([&] {
      CMSDocument letter = AnyLetter(place.store);
      if (!letter || IsOwned(letter)) return;
      std::list<CMSAttachment> files;
      letter.Attachments(files);
      CMSAttachment file = Any(files);
      std::list<CMSRecipient> recipients;
      letter.Recipients(recipients);
      CMSRecipient one = Any(recipients);
      constexpr long kBits[] = {docflag::MarkedUnread, docflag::Incoming, docflag::Audit};
      const std::function<void()> always[] = {
          [&] { letter.Name(Name("shared", Below(340)).c_str()); },
          [&] { letter.Flag(letter.Flag() ^ kBits[Below(3)]); },
          [&] { letter.LetterPath(Name("path").c_str()); },
          [&] { letter.SetActionFlag(0x40000); },
          [&] { letter.SetCategory("g", "u", 3); },
          [&] { letter.SenderWSName(Name("ws").c_str()); },
          [&] { letter.CreationData("07.03.2024 09:30"); },
          [&] { Chance(4) ? letter.RemoveAttachments() : letter.DeletedTime(5); },
          [&] {  // a letter of two bodies that loses one has none
            const std::lock_guard guard(place.moving);
            if (!letter.Body()) letter.CreateEmptyLetterText();
          }};
      const std::function<void()> ofFile[] = {
          [&] { letter.DeleteAttachment(file); },
          [&] { file.Flag(file.Flag() ^ (Chance(2) ? 0x41 : 0x202)); },
          [&] { file.CorrectSize(static_cast<long>(Below(10))); }};
      const std::function<void()> ofRecipient[] = {[&] { letter.DeleteRecipient(one); },
                                                   [&] { one.TransEnvFileName(Name("s").c_str()); },
                                                   [&] { one.Flag(one.Flag() ^ 0x27); }};
      always[Below(std::size(always))]();
      if (file && Chance(3)) ofFile[Below(std::size(ofFile))]();
      if (one && Chance(3)) ofRecipient[Below(std::size(ofRecipient))]();
    });
  }
  void Rearrange() {
    Place& place = AnyPlace();
    const std::lock_guard guard(place.moving);
    Tolerate(
        [&] {
          CMSFolder folder = AnyFolder(place.store), target = AnyFolder(place.store);
          CMSDocument letter = AnyLetter(place.store);
          const bool isFree = letter && !IsOwned(letter);
          const bool passes = Passes(folder);
          const std::size_t what = Below(6);
          if (isFree && what == 0) letter.Move(target);
          if (isFree && (what == 1 || what == 2)) letter.Parent().DeleteDocument(letter);
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
      const CMSFolder folder = AnyFolder(place.store);
      std::list<CMSDocument> letters;
      folder.Documents(letters);
      place.store.SetCmpDocs(Chance(2) ? &ByNumber : nullptr);
      (void)(folder.IsEmpty() + folder.GetUndeliveredDocumentCount());
      (void)(folder.AdvFullName() == folder.FullName());
      (void)folder.GetRawStorageSize();
      for (const CMSDocument& letter : letters) {
        (void)(letter < letters.front());
        (void)(letter.IsUnread() + letter.IsUndelivered());
        (void)(letter.GetAttachmentCount() + letter.GetRecipientCount());
        CMSDocument::CMSDocAttachmentInfo files;
        letter.AttachmentInfo(files);
        CMSDocument::CMSDocRcptInfo recipients;
        letter.RcptInfo(recipients);
        (void)letter.FileSize();
        if (const CMSAttachment body = letter.Body()) (void)body.Document();
      }
    });
    if (Chance(4)) Tolerate([&] { const Walk walk(place.store); });
    (void)(place.store.GetFullSize() + place.store.IsSingleOwned());
    if (!Chance(20)) return;
    try {
      OpenStore(m_hub.dir / "store");
      ADD_FAILURE() << "opened twice";
    } catch (const CMSDBException& error) {
      EXPECT_TRUE(error.Code() == 17 && error.IsInUse()) << error.what();
    }
  }
  void Copy() {
    Place& from = AnyPlace();
    Place& to = AnyPlace();
    if (to.store.GetDocumentCount() > kMaxShared) return;
    Tolerate(
        [&] {
          CMSFolder target = AnyFolder(to.store);
          const CMSDocument letter = AnyLetter(from.store);
          if (!letter) return;
          CMSDocument copy = Chance(4) ? letter.BlankCopy(target) : letter.Clone(target, Chance(2));
          copy.RegNum(0);
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

  // The first of them may also come within a batch.
  static constexpr std::array kActions{
      &Actor::Create,           &Actor::Create, &Actor::Set,    &Actor::Set,    &Actor::ChangeFiles,
      &Actor::ChangeAddressees, &Actor::Move,   &Actor::Build,  &Actor::Change, &Actor::Change,
      &Actor::Rearrange,        &Actor::Copy,   &Actor::Delete, &Actor::Verify, &Actor::Custom,
      &Actor::Listen,           &Actor::Look,   &Actor::Batch,  &Actor::Backup};
  static constexpr std::size_t kChanges = 12;

  Hub& m_hub;
  const unsigned m_number;
  std::mt19937 m_random;
  CMSMessageStore m_store;
  CMSFolder m_folder;
  std::string m_source;
  std::vector<Own> m_own;
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
  EXPECT_EQ(LetterBook(store), book);
}

TEST(Stress, Eight_threads_at_everything_lose_nothing_and_leave_sound_stores) {
  const unsigned seed = Setting("MS_STRESS_SEED", 1);
  const auto seconds = std::chrono::seconds(Setting("MS_STRESS_SECONDS", 3));
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
      for (const Own& own : actor->Letters()) {
        ASSERT_EQ(books[0].Objects().count(own.letter.ID()), 1U) << own.letter.ID();
        ExpectHolds(books[0].Objects().at(own.letter.ID()), own.fields);
        ++owned;
      }
    std::cout << "seed " << seed << ": " << hub.calls << " actions, " << hub.gone
              << " met something deleted, " << hub.copies << " copies, " << hub.backups
              << " backups; " << owned << " letters compared" << std::endl;
    EXPECT_GT(owned, 0U);
    CMSArchiver().Backup(hub.first.store, (hub.dir / "backup").c_str(), nullptr, nullptr);
  }
  hub.first.store = {};
  hub.second.store = {};
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
