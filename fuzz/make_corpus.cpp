#include "make_corpus.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "Container.h"
#include "ms/Source/Roles.h"
#include "support/Engine.h"
#include "support/OpenStore.h"

#include "ms/Source/DB.h"

namespace fuzz {
namespace {

namespace fs = std::filesystem;
using storecheck::kHeader;
using storecheck::kNone;
using storecheck::PutU32;
using storecheck::U32;

constexpr char kDate[] = "01.02.2025 10:00";
constexpr std::uint32_t kTime = 1738404000;
constexpr std::size_t kPath = storecheck::kHead + 20;  // of an attachment's file, in its slot
constexpr std::size_t kPathWidth = 260;
// Thirty changes of an entry file (see Entries.h): keys that are there, and new ones.
std::string Changes() {
  std::string changes(1, static_cast<char>(7 * 30));
  for (unsigned i = 0; i < 30; ++i) {
    const unsigned step = i % 10;
    changes += {static_cast<char>(i / 10 == 1),
                static_cast<char>(step * 3),
                '\0',
                static_cast<char>(step * 5),
                '\0',
                '\0',
                '\0'};
  }
  return changes;
}

// A record file grows by a hundred slots, and seeds should be small: keeps one free slot behind the
// last in use. Free slots before it stay.
void Shorten(std::string& file, std::size_t slot) {
  const std::uint32_t total = U32(file, 20);
  const auto at = [&](std::uint32_t index) { return kHeader + index * slot; };
  const auto isFree = [&](std::uint32_t index) {
    return U32(file, at(index)) != kNone || U32(file, at(index) + 4) != kNone ||
           U32(file, at(index) + 8) == 0;
  };
  std::uint32_t kept = total;
  while (kept > 0 && isFree(kept - 1)) --kept;
  if (kept < total) ++kept;
  file.resize(at(kept));
  PutU32(file, 20, kept);
  std::uint32_t previous = kNone;
  for (std::uint32_t index = 0; index < kept; ++index) {
    if (!isFree(index)) continue;
    PutU32(file, at(index), previous);
    PutU32(file, at(index) + 4, kNone);
    PutU32(file, previous == kNone ? 28 : at(previous) + 4, index);
    previous = index;
  }
  if (previous == kNone) PutU32(file, 28, kNone);
}

StoreFiles ReadStore(const std::string& directory) {
  StoreFiles files;
  for (std::size_t i = 0; i < files.size(); ++i)
    files[i] = storecheck::ReadWhole(fs::path(directory) / storecheck::kFiles[i]);
  for (std::size_t i = 0; i < storecheck::kKinds.size(); ++i)
    Shorten(*files[i], storecheck::kKinds[i].Slot());
  // Their directories have other names each time.
  const storecheck::Kind& kind = storecheck::kKinds[storecheck::Attachments];
  std::string& attachments = *files[storecheck::Attachments];
  for (std::size_t slot = 0, n = 1; kind.At(slot + 1) <= attachments.size(); ++slot) {
    if (attachments[kind.At(slot) + kPath] == '\0') continue;
    std::string path = "f" + std::to_string(n++) + "\\a.txt";
    path.resize(kPathWidth);
    attachments.replace(kind.At(slot) + kPath, kPathWidth, path);
  }
  return files;
}

void AddFile(CMSDocument& letter, const std::string& source, std::size_t size, long flag) {
  WriteBytes(source, std::string(size, 'a'));
  letter.AddAttachment(source, false, "a name", "a.txt", flag).DateTime(CKitDateTime(kTime));
}

void Fill(CMSMessageStore& store, const std::string& source) {
  CMSFolder root = store.Root();
  for (const auto& role : MSF::kFolderRoles) root.CreateFolder(role.name, role.props, role.type);
  CMSFolder inbox = root.OpenFolder(CKitString("INBOX"));
  CMSFolder outbox = root.OpenFolder(CKitString("OUTBOX"));
  CMSDocument incoming =
      inbox.CreateDocument("An offer of apples", "A-17", kDate, "", "GROUP", "USER", "desk", "shop",
                           "Anna", docflag::Complete | docflag::Incoming, 0);
  AddFile(incoming, source, 1, attachmentflag::Body);
  AddFile(incoming, source, 2, attachmentflag::Read | attachmentflag::Encrypted);
  incoming.AddRecipient(kDate, "PACKET1", "", "W", "G", "U", "desk", "shop", "Bert", "note", "Bert",
                        kDate, "Bert", kDate, recipientflag::Current, 1);
  CMSDocument outgoing = outbox.CreateDocument(std::string(150, 's'), "B/", kDate, "", "", "", "",
                                               "", "Bert", docflag::Complete, 12);
  AddFile(outgoing, source, 3, attachmentflag::Body);
  for (const char* packet : {"PACKET1", "PACKET2"})
    outgoing.AddRecipient(kDate, packet, "", "", "", "", "", "", "Anna", "", "", "", "", "",
                          recipientflag::Sent, 0);
  inbox.CreateFolder("apples", "p", 0).CreateFolder("pears", "", 0);
  store.WriteCustomData("client", "key", "value");
}

void DeleteSome(CMSMessageStore& store, const std::string& source) {
  CMSFolder inbox = store.Root().OpenFolder(CKitString("INBOX"));
  CMSFolder outbox = store.Root().OpenFolder(CKitString("OUTBOX"));
  for (const char* name : {"one", "two"}) {
    CMSDocument letter =
        inbox.CreateDocument(name, "", kDate, "", "", "", "", "", "", docflag::Complete, 1);
    AddFile(letter, source, 4, 0);
  }
  CMSDocument letter;
  auto place = inbox.GetFirstDocumentPosition();
  if (inbox.GetNextDocument(letter, place)) inbox.DeleteDocument(letter);
  place = outbox.GetFirstDocumentPosition();
  if (outbox.GetNextDocument(letter, place)) letter.Move(inbox);
  CMSFolder apples = inbox.OpenFolder(CKitString("apples"));
  inbox.DeleteFolder(apples);
}

class Corpus {
 public:
  explicit Corpus(const std::string& directory) : m_directory(directory) {}
  void Add(const char* target, const std::string& bytes) {
    const fs::path place = m_directory / target;
    fs::create_directories(place);
    const std::string name = "seed-" + std::string(target) + "-";
    WriteBytes((place / (name + std::to_string(++m_numbers[target]))).string(), bytes);
  }

 private:
  const fs::path m_directory;
  std::map<std::string, unsigned> m_numbers;
};

void AddStores(Corpus& corpus) {
  const std::string base = EmptyScratch();
  const std::string path = base + "/store", source = base + "/a.txt";
  { OpenStore(path); }
  corpus.Add("store", Pack(ReadStore(path)));
  {
    CMSMessageStore store = OpenStore(path);
    Fill(store, source);
  }
  const StoreFiles filled = ReadStore(path);
  corpus.Add("store", Pack(filled));
  corpus.Add("index", Changes() + *filled[4]);
  corpus.Add("relations", Changes() + *filled[8]);
  corpus.Add("packets", Changes() + *filled[9]);
  {
    CMSMessageStore store = OpenStore(path);
    DeleteSome(store, source);
  }
  const StoreFiles holed = ReadStore(path);
  corpus.Add("store", Pack(holed));
  corpus.Add("index", Changes() + *holed[5]);
  corpus.Add("relations", Changes() + *holed[8]);
  corpus.Add("packets", Changes() + *holed[9]);
  for (const char* key : {"key", "NEW"})
    corpus.Add("master", static_cast<char>(std::strlen(key)) + std::string(key) +
                             std::string("\5value") + *filled[10]);
  corpus.Add("master", std::string("\1k\1v"));

  StoreFiles bare = filled;  // without what a repair makes anew
  for (std::size_t i = 4; i < bare.size(); ++i) bare[i].reset();
  corpus.Add("store", Pack(bare));
  StoreFiles broken = filled;  // cut off in the middle of a change, with a letter of no folder
  PutU32(*broken[storecheck::Letters], 32, 1);
  PutU32(*broken[storecheck::Letters], kHeader + storecheck::kHead, 99);
  broken[8]->resize(broken[8]->size() - 20);
  corpus.Add("store", Pack(broken));
}

void AddRecords(Corpus& corpus) {
  const std::string& directory = EmptyScratch();
  struct Record {
    LittleU32 words[4];
  };
  {
    CMSDurability durability(CMSDurabilityLevel::Process, directory);
    CMSDB<unsigned long, Record> file({g_MSBaseInformer, durability, false}, directory, "records");
    for (std::uint32_t key = 3; key < 30; key += 3) {
      const Record record{{key, key, key, key}};
      file.Insert(key, &record);
    }
    file.Delete(9);
  }
  std::string records = ReadBytes(directory + "/records.db");
  Shorten(records, storecheck::kHead + sizeof(Record));
  std::string length(4, '\0');
  PutU32(length, 0, static_cast<std::uint32_t>(records.size()));
  corpus.Add("records", Changes() + length + records + ReadBytes(directory + "/records.idx"));
  corpus.Add("records", Changes());
}

void AddTexts(Corpus& corpus) {
  const std::string time("\x20\x9B\x9D\x67", 4);
  for (const char* text : {"01.02.2025 10:00", " 1.01.1970 00:01", "07.02.2106 06:28",
                           "31.02.2025 24:61", "-1.-1.2025 1:1", "", "1.2.3"})
    corpus.Add("dates", time + text);
  for (const char* text :
       {"A-17/2025", "", "no digits", "123456789012345678901234567890", "12 of 7b"})
    for (const char* direction : {"\1", "\2"}) corpus.Add("numbers", direction + time + text);
  corpus.Add("numbers", "\1" + time + std::string(101, '9'));
}

constexpr const char* kMails[] = {
    "From: Anna <anna@example.org>\r\nTo: bert@example.org\r\nSubject: apples\r\n"
    "Date: Sat, 01 Feb 2025 10:00:00 +0100\r\n\r\nRed ones.\r\n",
    "From anna@example.org Sat Feb  1 10:00:00 2025\nFrom: anna@example.org\n"
    "Subject: =?iso-8859-1?Q?=C4pfel?= =?utf-8?B?w6RwZmVs?=\nStatus: RO\nContent-Length: 6\n\n"
    "text.\n\nFrom bert@example.org Sat Feb  1 11:00:00 2025\nFrom: bert\nTo: a, b: c, d;, <e@f>\n"
    "\n>From here on\n",
    "From: a@b\nCc: \"B, C\" <c@d>, =?utf-8?q?E?= <e@f>\nMIME-Version: 1.0\n"
    "Content-Type: multipart/mixed; boundary=\"x\"\n\npreface\n--x\n"
    "Content-Type: multipart/alternative; boundary=y\n\n--y\nContent-Type: text/plain; "
    "charset=koi8-r\nContent-Transfer-Encoding: quoted-printable\n\n=D1=C2=\n=CC\n--y\n"
    "Content-Type: text/html\n\n<p>x</p>\n--y--\n--x\nContent-Type: image/png; name=\"p.png\"\n"
    "Content-Transfer-Encoding: base64\nContent-Disposition: attachment; "
    "filename*=utf-8''%C3%A4.png\n\niVBORw0KGgo=\n--x\nContent-Type: message/rfc822\n\n"
    "From: q@r\nSubject: inner\n\ninner text\n--x--\n",
    "From: a@b\nContent-Type: application/octet-stream\nContent-Transfer-Encoding: x-uuencode\n\n"
    "begin 644 a.txt\n#86)C\n`\nend\n",
    "\n\nno header at all\n",
};

}  // namespace

void MakeCorpus(const std::string& directory) {
  Corpus corpus(directory);
  AddStores(corpus);
  AddRecords(corpus);
  AddTexts(corpus);
  for (const char* mail : kMails) corpus.Add("mail", mail);
}

}  // namespace fuzz
