// This library, through its public calls.
#include <optional>
#include <stdexcept>

#include "bench/Letters.h"
#include "bench/peers/Peer.h"
#include "tests/support/OpenStore.h"

namespace {

class MsReader final : public Reader {
 public:
  explicit MsReader(const CMSMessageStore& store) : m_store(store) {}
  std::int32_t Flag(Id letter) override {
    return static_cast<std::int32_t>(m_store.GetDocument(letter).Flag());
  }

 private:
  CMSMessageStore m_store;
};

class MsPeer final : public Peer {
 public:
  MsPeer(const std::string& directory, Promise promise)
      : m_store(OpenStore(directory, false, nullptr,
                          promise == Promise::None ? CMSDurabilityLevel::Process
                                                   : CMSDurabilityLevel::Operation)) {}

  void Begin() override { m_batch.emplace(m_store); }
  void Commit() override {
    m_batch->Commit();
    m_batch.reset();
  }

  Id AddFolder(const std::string& name) override {
    return static_cast<Id>(m_store.Root().CreateFolder(name, "", 0).ID());
  }
  Id AddLetter(Id folder, std::size_t number) override {
    return AddLetterWithFiles(folder, number, "");
  }
  Id AddLetterWithFiles(Id folder, std::size_t number, const std::string& source) override {
    return static_cast<Id>(PutLetter(Open(folder), number, source).ID());
  }
  void SetFlag(Id letter, std::int32_t flag) override { m_store.GetDocument(letter).Flag(flag); }
  void Move(Id letter, Id folder) override {
    CMSFolder target = m_store.GetFolder(folder);
    m_store.GetDocument(letter).Move(target);
  }
  void Rename(const std::string& packet, const std::string& name) override {
    m_store.FindRecipient(packet.c_str(), true).TransEnvFileName(name.c_str());
  }
  void Delete(Id letter) override {
    CMSDocument document = m_store.GetDocument(letter);
    document.Parent().DeleteDocument(document);
  }

  std::unique_ptr<Reader> NewReader() override { return std::make_unique<MsReader>(m_store); }
  std::string SubjectOf(Id letter) override { return m_store.GetDocument(letter).Name(); }
  Listing List(Id folder) override {
    Listing listing;
    m_store.GetFolder(folder).ForEachSummary([&](const CMSDocumentSummary& letter) {
      ++listing.letters;
      listing.subjectBytes += letter.Subject.size();
      listing.flags += static_cast<std::uint64_t>(letter.Flag);
      listing.times += letter.CreationTime;
    });
    return listing;
  }
  Id FindPacket(const std::string& packet) override {
    const CMSRecipient found = m_store.FindRecipient(packet.c_str(), true);
    return found ? static_cast<Id>(found.DocID()) : kNone;
  }
  std::uint32_t Unread(Id folder) override {
    return static_cast<std::uint32_t>(m_store.GetFolder(folder).GetUnreadDocumentCount());
  }

 private:
  // The folder that letters are put into is kept at hand, as a client keeps it.
  CMSFolder& Open(Id folder) {
    if (!m_folder || m_folder.ID() != folder) m_folder = m_store.GetFolder(folder);
    return m_folder;
  }

  CMSMessageStore m_store;
  CMSFolder m_folder;
  std::optional<CMSBatch> m_batch;
};

}  // namespace

std::unique_ptr<Peer> OpenMs(const std::string& directory, Promise promise) {
  return std::make_unique<MsPeer>(directory, promise);
}
