// A whole store: opened, walked through, changed in every way, closed. See Container.h for the
// input.
#include <list>
#include <vector>

#include "Container.h"
#include "GuardedFiles.h"
#include "kit/KitFolder.h"
#include "support/OpenStore.h"
#include "support/TempDir.h"
#include "support/Walk.h"

namespace {

using fuzz::Try;

// What a client would do with the objects that it meets; each thing by itself, since any of them
// may be refused.
class Client {
 public:
  Client(CMSMessageStore& store, const std::string& base) : m_store(store), m_base(base) {
    Try([&] { Collect(); });
    Create();
    for (CMSDocument& letter : m_letters) Use(letter);
    for (CMSAttachment& attachment : m_attachments) Use(attachment);
    for (CMSRecipient& recipient : m_recipients) Use(recipient);
    for (CMSFolder& folder : m_folders) Use(folder);
    Move();
    Delete();
  }

 private:
  void Collect() {
    for (const unsigned long id : Walk(m_store).ids) {
      if (const CMSFolder folder = m_store.GetFolder(id)) m_folders.push_back(folder);
      if (const CMSDocument letter = m_store.GetDocument(id)) m_letters.push_back(letter);
      if (const CMSAttachment one = m_store.GetAttachment(id)) m_attachments.push_back(one);
    }
    for (const CMSDocument& letter : m_letters) {
      std::list<CMSRecipient> recipients;
      letter.Recipients(recipients);
      m_recipients.insert(m_recipients.end(), recipients.begin(), recipients.end());
    }
  }
  void Create() {
    Try([&] {
      CMSFolder folder = m_store.Root().CreateFolder("new", "", 0);
      Fill(folder);
      Try([&] { m_letters.push_back(m_letters.at(0).Clone(folder, true)); });
    });
    Try([&] { (void)m_store.FindRecipient("PACKET", true); });
    Try([&] { (void)m_store.WriteCustomData("client", "key", "value"); });
  }
  void Fill(CMSFolder& folder) {
    CMSDocument letter = folder.CreateDocument(std::string(300, 's'), "", "", "", "", "", "", "",
                                               "", docflag::Complete | docflag::Incoming, 1);
    m_letters.insert(m_letters.begin(), letter);
    letter.AddAttachment(fuzz::SourceFile(m_base), false, "n", "n", 0);
    letter.CreateEmptyLetterText();
    letter.AddRecipient("", "PACKET", "", "", "", "", "", "", "r", "", "", "", "", "", 0, 0);
  }
  void Use(CMSDocument& letter) {
    Try([&] { letter.Name(std::string(200, 't').c_str()); });
    Try([&] { letter.Flag(letter.Flag() ^ docflag::MarkedUnread); });
    Try([&] { letter.LetterPath("path"); });
    Try([&] { letter.ClearKey(); });
    Try([&] { letter.AddAttachment(fuzz::SourceFile(m_base), false, "n", "n", 0); });
  }
  void Use(CMSAttachment& attachment) {
    Try([&] { (void)attachment.FileSize(); });
    Try([&] { (void)attachment.Put(CKitFolder(m_base)); });
    Try([&] { attachment.Size(5); });
    Try([&] { attachment.Flag(attachment.Flag() ^ attachmentflag::Read); });
    Try([&] { attachment.Get(fuzz::SourceFile(m_base).c_str(), false); });
  }
  void Use(CMSRecipient& recipient) {
    Try([&] { recipient.TransEnvFileName("RENAMED"); });
    Try([&] { recipient.Flag(recipientflag::Sent); });
  }
  void Use(CMSFolder& folder) {
    Try([&] { folder.Name("renamed"); });
    Try([&] { (void)folder.GetRawStorageSize(); });
    Try([&] { (void)folder.GetUndeliveredDocumentCount(); });
  }
  void Move() {
    for (std::size_t i = 0; i < m_letters.size() && !m_folders.empty(); ++i)
      Try([&] { m_letters[i].Move(m_folders[i % m_folders.size()]); });
    for (std::size_t i = 0; i < m_folders.size(); ++i)
      Try([&] { m_folders[i].Move(m_folders[(i * 7 + 3) % m_folders.size()]); });
  }
  void Delete() {
    for (std::size_t i = 0; i < m_attachments.size(); i += 2)
      Try([&] { m_attachments[i].Document().DeleteAttachment(m_attachments[i]); });
    for (std::size_t i = 0; i < m_recipients.size(); i += 2)
      Try([&] { m_recipients[i].Document().DeleteRecipient(m_recipients[i]); });
    for (std::size_t i = 0; i < m_letters.size(); ++i)
      Try([&] {
        if (i % 2 == 0) m_letters[i].RemoveAttachments();
        if (i % 3 == 0) m_letters[i].Parent().DeleteDocument(m_letters[i]);
      });
    for (std::size_t i = 0; i < m_folders.size(); i += 2)
      Try([&] { m_folders[i].Parent().DeleteFolder(m_folders[i]); });
  }

  CMSMessageStore& m_store;
  const std::string& m_base;
  std::vector<CMSFolder> m_folders;
  std::vector<CMSDocument> m_letters;
  std::vector<CMSAttachment> m_attachments;
  std::vector<CMSRecipient> m_recipients;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string& base = fuzz::EmptyScratch();
  const std::string directory = fuzz::MakeStore(base, fuzz::Unpack(data, size));
  const fuzz::GuardedFiles guard(base, fuzz::GuardedFiles::Stray::Refuse);
  Try([&] {
    CMSMessageStore store = OpenStore(directory, true);
    const Walk walk(store);
  });
  Try([&] {
    CMSMessageStore store = OpenStore(directory);
    const Client client(store, base);
  });
  Try([&] {
    CMSMessageStore store = OpenStore(directory);
    const Walk walk(store);
  });
  return 0;
}
