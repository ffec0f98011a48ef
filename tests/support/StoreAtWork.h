// A store at work: what the tests of cuts and of failures begin with, and do to it.
#pragma once

#include "CrashStates.h"
#include "LetterBook.h"
#include "OpenStore.h"
#include "Tree.h"

#include "ms/Source/Roles.h"

namespace crash {

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

  // What a client makes of a refusal by an empty handle, or by false.
  template <class Answer>
  static Answer Made(Answer answer) {
    if (!answer) throw XKitStatus(kit::kStatusInvalidHandle, "refused");
    return answer;
  }

  static CMSDocument Find(const CMSFolder& folder, const std::string& subject) {
    std::list<CMSDocument> letters;
    if (folder.IsValid()) folder.Documents(letters);
    for (const CMSDocument& letter : letters)
      if (letter.Name().str().starts_with(subject)) return letter;
    return {};
  }
  static void AddRecipient(CMSDocument& letter, const char* packet) {
    Made(letter.AddRecipient("", packet, "", "", "", "", "station", "", "user", "note", "", "", "",
                             "", recipientflag::Sent, 0));
  }

 private:
  TempDir m_dir{InMemory()};
};

inline const BaseStore& TheBase() {
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
inline const Operation kOperations[] = {
    {"create letter",
     [](const Client& c) {
       CMSFolder folder = c.Folder("b");
       CMSDocument letter = BaseStore::Made(folder.CreateDocument(
           "four", "1/2", "", "", "idwg", "idu", "station", "group", "user", docflag::Incoming, 6));
       c.ack();
       BaseStore::Made(
           letter.AddAttachment(c.source, false, "text", "source.txt", attachmentflag::Body));
       c.ack();
       BaseStore::AddRecipient(letter, "FOUR");
       c.ack();
       letter.Flag(docflag::Incoming | docflag::Complete);
     }},
    {"create letter at once",
     [](const Client& c) {
       BaseStore::Made(c.Folder("b").CreateDocument("five", "1/3", "", "", "idwg", "idu", "station",
                                                    "group", "user",
                                                    docflag::Incoming | docflag::Complete, 7));
     }},
    {"add attachment",
     [](const Client& c) {
       if (CMSDocument letter = c.Letter("two"))
         BaseStore::Made(letter.AddAttachment(c.source, false, "more", "source.txt", 0));
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
       BaseStore::Made(c.store.WriteCustomData(LetterBook::kSection, "one", "some value"));
       c.ack();
       BaseStore::Made(c.store.WriteCustomData(LetterBook::kSection, "one", "another one"));
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
    {"clone letter",
     [](const Client& c) {
       CMSFolder target = c.Folder("c");
       const CMSDocument letter = c.Letter("one");
       if (!letter || !target) return;
       try {
         letter.Clone(target, false);
       } catch (const CMSDocument::XCloneError&) {
         BaseStore::Made(false);
       }
     }},
};
inline constexpr std::size_t kCount = std::size(kOperations);
inline const Operation& FindOperation(const std::string& name) {
  return *std::find_if(std::begin(kOperations), std::end(kOperations),
                       [&](const Operation& one) { return one.name == name; });
}

inline const char* NameOf(Level level) {
  return level == Level::Immediate   ? "immediate"
         : level == Level::Operation ? "operation"
                                     : "process";
}

// ---- Damage.

struct Damage {
  const char* name;
  void (*make)(Files& files);
};
// at: within the slot, behind its links: 0 the key, 4 the parent.
inline void Set(Files& files, std::size_t kind, std::size_t slot, std::size_t at,
                std::uint32_t id) {
  const storecheck::Kind& file = storecheck::kKinds[kind];
  storecheck::PutU32(files.at(std::string("store/") + file.db), file.At(slot) + 8 + at, id);
}
inline const Damage kDamages[] = {
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

}  // namespace crash
