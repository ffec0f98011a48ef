// Objects of a store: finding, making, linking and removing them.
#include "AttachmentFiles.h"
#include "MessageStoreImp.h"
#include "ObjectAccess.h"
#include "Rollback.h"
#include "kit/KitErrors.h"

namespace {

SIDInfo Link(std::uint32_t parent, CMSObjectType type, unsigned long child) {
  return {parent, static_cast<std::int32_t>(type), static_cast<std::uint32_t>(child)};
}

}  // namespace

CMSDocument CMSMessageStoreImp::GetDocument(std::uint32_t id) {
  return CMSDocument(m_documents->Get(id));
}

CMSFolder CMSMessageStoreImp::GetFolder(std::uint32_t id) {
  return CMSFolder(m_folders->Get(id));
}

CMSAttachment CMSMessageStoreImp::GetAttachment(std::uint32_t id) {
  return CMSAttachment(m_attachments->Get(id));
}

CMSRecipient CMSMessageStoreImp::GetRecipient(std::uint32_t id) {
  return CMSRecipient(m_recipients->Get(id));
}

CMSRecipient CMSMessageStoreImp::FindRecipient(const char* packet, bool incoming) {
  const CSharedLocker guard(m_lock);
  const CPacketName name(packet != nullptr ? packet : "");
  std::uint32_t from = 0;
  while (const auto id = m_packets->Find(name, from)) {
    CMSRecipient recipient = GetRecipient(*id);
    if (recipient) {
      const CMSDocument document = recipient.Document();
      if (document && document.IsIncoming() == incoming) return recipient;
    }
    if (*id == kNoContainer) break;
    from = *id + 1;
  }
  return {};
}

bool CMSMessageStoreImp::Exists(CMSObjectType type, std::uint32_t id) const {
  const auto in = [id](auto& database) { return database.File().Index().Find(id).has_value(); };
  switch (type) {
    case CMSObjectType::Attachment:
      return in(*m_attachments);
    case CMSObjectType::Recipient:
      return in(*m_recipients);
    case CMSObjectType::Document:
      return in(*m_documents);
    case CMSObjectType::Folder:
      return in(*m_folders);
  }
  return false;
}

unsigned int CMSMessageStoreImp::DocumentCount() const {
  const CSharedLocker guard(m_lock);
  return m_documents->File().UsedCount();
}

template <class Handle, class T>
Handle CMSMessageStoreImp::Create(CMSObjectDB<T>& database, CMSObjectType type, std::uint32_t id,
                                  std::uint32_t parent, const T& data) {
  Handle handle(database.Create(id, data));
  if (!handle || parent == 0) return handle;
  Rollback undo([&] { database.Delete(id); });
  m_relations->Add(Link(parent, type, id));
  undo.Disarm();
  return handle;
}

template <class T>
bool CMSMessageStoreImp::Remove(CMSObjectDB<T>& database, CMSObjectType type, std::uint32_t id,
                                std::uint32_t parent) {
  m_relations->Remove(Link(parent, type, id));
  return database.Delete(id);
}

CMSFolder CMSMessageStoreImp::CreateFolder(std::uint32_t id, std::uint32_t parent,
                                           const std::string& name, const std::string& props,
                                           std::int32_t type) {
  const CSharedLocker guard(m_lock);
  CMSFolderData data{};
  CMSFieldAccess::CheckFits(name, sizeof data.Name, "the name of a folder");
  CMSFieldAccess::CheckFits(props, sizeof data.Props, "the properties of a folder");
  data.ParentID = parent;
  data.Type = type;
  CMSFieldAccess::PutText(data.Name, name);
  CMSFieldAccess::PutText(data.Props, props);
  if (id == 0) id = IssueID();
  CMSFolder folder = Create<CMSFolder>(*m_folders, CMSObjectType::Folder, id, parent, data);
  if (!folder) return folder;
  if (parent != 0) GetFolder(parent).IncFolderCount();
  m_listeners.FolderAdded(folder);
  return folder;
}

CMSDocument CMSMessageStoreImp::CreateDocument(const CMSDocumentData& data) {
  const CSharedLocker guard(m_lock);
  return Create<CMSDocument>(*m_documents, CMSObjectType::Document, IssueID(), data.ParentID, data);
}

CMSAttachment CMSMessageStoreImp::CreateAttachment(std::uint32_t id,
                                                   const CMSAttachmentData& data) {
  const CSharedLocker guard(m_lock);
  return Create<CMSAttachment>(*m_attachments, CMSObjectType::Attachment, id, data.DocID, data);
}

CMSRecipient CMSMessageStoreImp::CreateRecipient(const CMSRecipientData& data) {
  const CSharedLocker guard(m_lock);
  const std::uint32_t id = IssueID();
  CMSRecipient recipient =
      Create<CMSRecipient>(*m_recipients, CMSObjectType::Recipient, id, data.DocID, data);
  if (!recipient) return recipient;
  Rollback undo([&] { Remove(*m_recipients, CMSObjectType::Recipient, id, data.DocID); });
  m_packets->Add(CMSFieldAccess::TextOf(data.TransEnvFileName), id);
  undo.Disarm();
  return recipient;
}

bool CMSMessageStoreImp::RemoveFolder(const CMSFolder& folder) {
  const CSharedLocker guard(m_lock);
  return Remove(*m_folders, CMSObjectType::Folder, static_cast<std::uint32_t>(folder.ID()),
                static_cast<std::uint32_t>(folder.ParentID()));
}

bool CMSMessageStoreImp::RemoveDocument(const CMSDocument& document) {
  const CSharedLocker guard(m_lock);
  return Remove(*m_documents, CMSObjectType::Document, static_cast<std::uint32_t>(document.ID()),
                static_cast<std::uint32_t>(document.ParentID()));
}

bool CMSMessageStoreImp::RemoveAttachment(const CMSAttachment& attachment) {
  const CSharedLocker guard(m_lock);
  return Remove(*m_attachments, CMSObjectType::Attachment,
                static_cast<std::uint32_t>(attachment.ID()),
                static_cast<std::uint32_t>(attachment.DocID()));
}

bool CMSMessageStoreImp::RemoveRecipient(const CMSRecipient& recipient) {
  const CSharedLocker guard(m_lock);
  const auto id = static_cast<std::uint32_t>(recipient.ID());
  m_packets->Remove(recipient.TransEnvFileName(), id);
  return Remove(*m_recipients, CMSObjectType::Recipient, id,
                static_cast<std::uint32_t>(recipient.DocID()));
}

namespace {

// The new link first, then the record, the old link last: cut short anywhere, the child is never
// without a link to the parent that its record names.
template <class Handle, class T>
void MoveLink(CMSRelationsDB& relations, CMSObjectType type, const Handle& child,
              LittleU32 T::*parent, std::uint32_t target) {
  const std::uint32_t source = CMSFieldAccess::Value(child, parent);
  if (source == target) return;
  const auto name = [&](std::uint32_t id) {
    CMSFieldAccess::Write(child, [&](T& record) { record.*parent = id; });
  };
  relations.Add(Link(target, type, child.ID()));
  Rollback undo([&] {
    if (CMSFieldAccess::Value(child, parent) != source) name(source);
    relations.Remove(Link(target, type, child.ID()));
  });
  name(target);
  relations.Remove(Link(source, type, child.ID()));
  undo.Disarm();
}

}  // namespace

void CMSMessageStoreImp::Relink(const CMSFolder& folder, std::uint32_t target) {
  const CSharedLocker guard(m_lock);
  MoveLink(*m_relations, CMSObjectType::Folder, folder, &CMSFolderData::ParentID, target);
}

void CMSMessageStoreImp::Relink(const CMSDocument& document, std::uint32_t target) {
  const CSharedLocker guard(m_lock);
  MoveLink(*m_relations, CMSObjectType::Document, document, &CMSDocumentData::ParentID, target);
}

void CMSMessageStoreImp::RemoveFiles(const std::vector<std::string>& stored) {
  if (stored.empty()) return;
  m_durability.AfterPayment(
      [this, stored] { attachmentfiles::Remove(m_directory, stored, m_durability); });
}

void CMSMessageStoreImp::RenamePacket(const CMSRecipient& recipient, const std::string& name) {
  const CSharedLocker guard(m_lock);
  const auto id = static_cast<std::uint32_t>(recipient.ID());
  const CKitString old = recipient.TransEnvFileName();
  m_packets->Add(name, id);
  Rollback undo([&] { m_packets->Remove(name, id); });
  CMSFieldAccess::Write(recipient, [&](CMSRecipientData& record) {
    CMSFieldAccess::PutText(record.TransEnvFileName, name);
  });
  undo.Disarm();
  m_packets->Remove(old, id);
}
