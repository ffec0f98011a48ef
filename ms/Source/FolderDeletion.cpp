#include "FolderDeletion.h"

#include <unordered_set>

#include "FolderSupport.h"

using namespace foldersupport;

namespace {

constexpr char kFolderMismatch[] = "CMSFolder::DeleteFolder detected mismatch in parent-child IDs";
constexpr char kDocumentMismatch[] =
    "CMSFolder::DeleteDocument detected mismatch in parent-child IDs";

// A folder whose sub-folders are being deleted.
struct Level {
  CMSFolder folder;
  CMSRelationsDB::locator next;
};

}  // namespace

// Cut short, it takes along the files of what it has removed by then.
template <class Body>
void CMSFolder::CDeletion::Run(Body body) {
  try {
    m_store.Change(body);
  } catch (const XKitMsg&) {
    if (!m_store.Durability().HasFailed()) m_store.RemoveFiles(m_files);
    throw;
  }
  m_store.RemoveFiles(m_files);
}

void CMSFolder::DeleteDocument(CMSDocument& document) {
  CMSMessageStoreImp& store = StoreOf(*this);
  CDeletion deletion(store);
  deletion.Run([&] {
    RequireSameStore(store, *this);
    RequireSameStore(store, document);
    deletion.Document(*this, document);
  });
}

void CMSFolder::DeleteFolder(CMSFolder& folder) {
  CMSMessageStoreImp& store = StoreOf(*this);
  CDeletion deletion(store);
  deletion.Run([&] {
    RequireSameStore(store, *this);
    RequireSameStore(store, folder);
    if (folder.IsRoot())
      throw XKitStatus(kit::kStatusInvalidArgument, "the root folder cannot be deleted");
    if (IsChild(store, *this, folder, kFolderMismatch)) deletion.Tree(*this, folder);
  });
}

void CMSFolder::CDeletion::Document(CMSFolder& parent, const CMSDocument& document) {
  if (!IsChild(m_store, parent, document, kDocumentMismatch)) return;
  const Share share = ShareOf(document);
  // Cut off from here on, the letter is one that a repair removes.
  CMSFieldAccess::Write(document, [](CMSDocumentData& record) {
    record.Flag = static_cast<std::int32_t>(record.Flag & ~docflag::Complete);
  });
  Attachments(document);
  Recipients(document);
  m_store.RemoveDocument(document);
  parent.DecDocumentCount();
  parent.AdjustExtraCounters(-share.unread, -share.undelivered);
  m_store.Listeners().DocumentRemoved(document);
}

// Children of the letter that name another one are not its own to delete; the walk reports them.
void CMSFolder::CDeletion::Attachments(const CMSDocument& document) {
  unsigned long size = 0;
  CMSAttachment attachment;
  auto place = document.GetFirstAttachmentPosition();
  while (document.GetNextAttachment(attachment, place)) {
    if (!attachment || attachment.DocID() != document.ID()) continue;
    const CKitString file = CMSFieldAccess::Text(attachment, &CMSAttachmentData::InternalFileName);
    size += static_cast<unsigned long>(attachment.Size());
    m_store.RemoveAttachment(attachment);
    m_files.push_back(file);
  }
  if (size != 0) m_store.OnAttachmentSizeChanged(static_cast<long>(0 - size));
}

void CMSFolder::CDeletion::Recipients(const CMSDocument& document) {
  CMSRecipient recipient;
  auto place = document.GetFirstRecipientPosition();
  while (document.GetNextRecipient(recipient, place)) {
    if (recipient && recipient.DocID() == document.ID()) m_store.RemoveRecipient(recipient);
  }
}

// Every folder is entered once. The one that the deletion started from counts as entered, and the
// root never is: links in a circle lead to neither.
void CMSFolder::CDeletion::Tree(CMSFolder& parent, const CMSFolder& folder) {
  std::unordered_set<unsigned long> entered{parent.ID(), folder.ID()};
  std::vector<Level> levels;
  levels.push_back({folder, folder.GetFirstFolderPosition()});
  Documents(levels.back().folder);
  while (!levels.empty()) {
    CMSFolder child;
    Level& level = levels.back();
    if (level.folder.GetNextFolder(child, level.next)) {
      if (!IsChild(m_store, level.folder, child, kFolderMismatch)) continue;
      if (child.IsRoot() || !entered.insert(child.ID()).second) {
        Report(m_store, kFolderMismatch);
        continue;
      }
      levels.push_back({child, child.GetFirstFolderPosition()});
      Documents(child);
    } else {
      const CMSFolder emptied = level.folder;
      levels.pop_back();
      EmptyFolder(levels.empty() ? parent : levels.back().folder, emptied);
    }
  }
}

// The counters go first: nobody needs them adjusted letter by letter any more.
void CMSFolder::CDeletion::Documents(CMSFolder& folder) {
  m_store.DropFolderCounters(static_cast<std::uint32_t>(folder.ID()));
  CMSDocument document;
  auto place = folder.GetFirstDocumentPosition();
  while (folder.GetNextDocument(document, place)) Document(folder, document);
}

// A listener may have asked for the counters meanwhile, so they go again.
void CMSFolder::CDeletion::EmptyFolder(CMSFolder& parent, const CMSFolder& folder) {
  m_store.RemoveFolder(folder);
  m_store.DropFolderCounters(static_cast<std::uint32_t>(folder.ID()));
  parent.DecFolderCount();
  m_store.Listeners().FolderRemoved(folder);
}
