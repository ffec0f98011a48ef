// What stands behind the handles of one open store.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Attachment.h"
#include "Doc.h"
#include "Durability.h"
#include "Folder.h"
#include "ListenerRegistry.h"
#include "MasterFile.h"
#include "MessageStore.h"
#include "ObjectDB.h"
#include "PacketTable.h"
#include "Records.h"
#include "Relations.h"
#include "kit/KitReference.h"
#include "kit/SharedLock.h"

// Lock order: this store's lock first, then an object database's. The counter cache of a folder
// takes the folder database's lock and calls back here; it therefore takes this lock before both.
class CMSMessageStoreImp : public CKitReference {
 public:
  struct OpenArguments {
    std::string directory;
    CKeyCarrier& keys;
    CAbstractAsymmKey* key;
    CGroupID& group;
    bool isDefault;
    bool readOnly;
    CMSClientInformer* informer;
    std::string name;
    CMSDurabilityLevel level;
  };
  explicit CMSMessageStoreImp(const OpenArguments& arguments);
  ~CMSMessageStoreImp() override;

  void Release() override;
  // Whether nobody but the caller holds the store or one of its objects.
  bool IsSingleOwned() const;

  CSharedLock& Lock() const { return m_lock; }
  long SerialNumber() const { return m_serialNumber; }
  bool IsReadOnly() const { return m_readOnly || m_durability.HasFailed(); }
  bool IsDefault() const { return m_isDefault; }
  const std::string& Name() const { return m_name; }
  // Normalised, native, from the root on.
  const std::string& Directory() const { return m_directory; }
  CMSDurability& Durability() { return m_durability; }
  CMSMasterFile& Master() { return m_master; }
  CMSListenerRegistry& Listeners() { return m_listeners; }

  // Runs one change: with the store's lock held, the store writable, and the durability level's
  // promise kept when the outermost change of the thread returns. Answers what body answers.
  template <class Body>
  auto Change(Body body);

  CMSDocument GetDocument(std::uint32_t id);
  CMSFolder GetFolder(std::uint32_t id);
  CMSAttachment GetAttachment(std::uint32_t id);
  CMSRecipient GetRecipient(std::uint32_t id);
  CMSRecipient FindRecipient(const char* packet, bool incoming);
  bool Exists(CMSObjectType type, std::uint32_t id) const;
  unsigned int DocumentCount() const;

  // Records, links and packet names. Each takes the whole step or none of it: a creation that fails
  // half way is undone before its exception leaves, and answers an empty handle when the record
  // itself was refused. Counters of parents are the callers' business, as are events except those
  // of folder creation.
  CMSFolder CreateFolder(std::uint32_t id, std::uint32_t parent, const std::string& name,
                         const std::string& props, std::int32_t type);
  CMSDocument CreateDocument(const CMSDocumentData& data);
  CMSAttachment CreateAttachment(std::uint32_t id, const CMSAttachmentData& data);
  CMSRecipient CreateRecipient(const CMSRecipientData& data);
  // Record and link; false when the record was gone already.
  bool RemoveFolder(const CMSFolder& folder);
  bool RemoveDocument(const CMSDocument& document);
  bool RemoveAttachment(const CMSAttachment& attachment);
  bool RemoveRecipient(const CMSRecipient& recipient);
  // Changes the parent in the child's record and the link.
  void Relink(const CMSFolder& folder, std::uint32_t target);
  void Relink(const CMSDocument& document, std::uint32_t target);
  // The files of attachments whose records are gone, by their stored names; called after the change
  // that removed the records. All are tried; XKitFile for the first that cannot be removed, except
  // within a batch, where they go after its promise and a failure is logged.
  void RemoveFiles(const std::vector<std::string>& stored);
  // Changes the envelope name in the record and the table.
  void RenamePacket(const CMSRecipient& recipient, const std::string& name);

  // A new ID; the counters are written as the outermost change ends. XKitStatus 19 on a store that
  // takes no changes; XKitMsg when the numbers are used up.
  std::uint32_t IssueID();
  // The greatest that was ever issued.
  std::uint32_t LastID() const;
  // Adds to the size counter, which is written likewise.
  void OnAttachmentSizeChanged(long difference);
  unsigned long FullSize() const;
  // The folder's entry in the counter cache. What a change makes of it is written as the outermost
  // change ends; what was merely asked for may wait for others.
  void SaveFolderCounters(std::uint32_t folder, std::string entry);
  void DropFolderCounters(std::uint32_t folder);
  // Writes the counters if they have changed since they were written last.
  void SaveDueCounters();

  // Closing leaves the store as one that was cut off, for the next check to look at.
  void Distrust() { m_wasCutShort = true; }

  CMSRelationsDB& Relations() { return *m_relations; }
  CMSObjectDB<CMSFolderData>& Folders() { return *m_folders; }
  CMSObjectDB<CMSDocumentData>& Documents() { return *m_documents; }

  void SetCmpDocs(bool (*compare)(const CMSDocument&, const CMSDocument&));
  bool (*CmpDocs() const)(const CMSDocument&, const CMSDocument&);

 private:
  friend class CMSStoreChange;

  void Open(const OpenArguments& arguments);
  void OpenFiles(bool isNew);
  void MarkActive();
  [[noreturn]] void CannotWriteMaster(const std::string& what) const;
  bool IsBlank() const;
  bool TakeFirstFile(std::unique_ptr<platform::File>& file) const;
  void DropNewFiles();
  bool PrepareFiles(const OpenArguments& arguments);
  void OpenDatabases();
  void DropPacketsWithoutRecipient();
  void RaiseLastID();
  void CreateRoot();
  void Close();
  void MakeDirectory();
  void ReadCounters();
  void CountersChanged();
  void CountersAskedFor();
  bool SaveCounters();
  void CheckWritable() const;
  template <class Body>
  void ForEachDatabase(Body body) const;
  template <class Handle, class T>
  Handle Create(CMSObjectDB<T>& database, CMSObjectType type, std::uint32_t id,
                std::uint32_t parent, const T& data);
  template <class T>
  bool Remove(CMSObjectDB<T>& database, CMSObjectType type, std::uint32_t id, std::uint32_t parent);

  mutable CSharedLock m_lock;
  std::atomic<bool> m_handlesAreTold{false};
  const bool m_readOnly;
  const std::string m_directory;
  const std::string m_name;
  const long m_serialNumber;
  const bool m_isDefault;
  bool (*m_compare)(const CMSDocument&, const CMSDocument&) = nullptr;
  std::uint32_t m_lastID = 1;
  std::uint32_t m_size = 0;
  bool m_countersDue = false;
  unsigned m_askedFor = 0;      // folders whose entry was made outside of changes since then
  unsigned m_askedForMost = 1;  // and how many there may be before they are written
  unsigned m_changes = 0;       // open ones, each within the one before
  std::atomic<bool> m_wasCutShort{false};  // a change got half way
  CMSListenerRegistry m_listeners;
  CMSDurability m_durability;
  CMSMasterFile m_master;
  std::unique_ptr<CMSObjectDB<CMSAttachmentData>> m_attachments;
  std::unique_ptr<CMSObjectDB<CMSRecipientData>> m_recipients;
  std::unique_ptr<CMSObjectDB<CMSDocumentData>> m_documents;
  std::unique_ptr<CMSObjectDB<CMSFolderData>> m_folders;
  std::unique_ptr<CMSRelationsDB> m_relations;
  std::unique_ptr<CMSPacketTable> m_packets;
};

// One change under way (CMSMessageStoreImp::Change).
class CMSStoreChange {
 public:
  explicit CMSStoreChange(CMSMessageStoreImp& store);
  ~CMSStoreChange();
  CMSStoreChange(const CMSStoreChange&) = delete;
  CMSStoreChange& operator=(const CMSStoreChange&) = delete;
  // Lets the lock go, then keeps the promise: others may work while this thread waits for the
  // medium.
  void Commit();

 private:
  CMSMessageStoreImp& m_store;
  std::uint64_t m_changesBefore = 0;
  bool m_open = true;
};

template <class Body>
auto CMSMessageStoreImp::Change(Body body) {
  CMSStoreChange change(*this);
  if constexpr (std::is_void_v<decltype(body())>) {
    body();
    change.Commit();
  } else {
    auto result = body();
    change.Commit();
    return result;
  }
}
