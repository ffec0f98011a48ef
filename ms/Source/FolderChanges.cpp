// Creating and moving what a folder contains.
//
// A step that a crash cuts off leaves either all of a letter or none of it, and at worst counts
// that a repair puts right: records and links come first, then the counts, then the events.
#include "DocRecord.h"
#include "FolderSupport.h"
#include "Rollback.h"

using namespace foldersupport;

namespace {

[[noreturn]] void Refuse(const char* text) {
  throw XKitStatus(kit::kStatusInvalidArgument, text);
}

bool IsWithin(const CMSFolder& target, const CMSFolder& folder) {
  bool within = false;
  Ascend(target, [&](const CMSFolder& above) {
    within = above == folder;
    return !within;
  });
  return within;
}

}  // namespace

CMSFolder CMSFolder::CreateFolder(CKitString name, CKitString props, long type) {
  CMSMessageStoreImp& store = StoreOf(*this);
  return store.Change([&] {
    RequireSameStore(store, *this);
    return store.CreateFolder(0, static_cast<std::uint32_t>(ID()), name, props,
                              static_cast<std::int32_t>(type));
  });
}

CMSDocument CMSFolder::CreateDocument(const CKitString& subject, const CKitString& regNumber,
                                      const CKitString& created,
                                      const CKitString& obsoleteSenderNetAddr,
                                      const CKitString& senderIDWG, const CKitString& senderIDU,
                                      const CKitString& senderWSName,
                                      const CKitString& senderWGName,
                                      const CKitString& senderUserName, long flags, long regNum) {
  CMSMessageStoreImp& store = StoreOf(*this);
  const CMSDocumentData record = MakeDocumentRecord(
      static_cast<std::uint32_t>(ID()), subject, regNumber, created, obsoleteSenderNetAddr,
      senderIDWG, senderIDU, senderWSName, senderWGName, senderUserName, flags, regNum);
  return store.Change([&] {
    RequireSameStore(store, *this);
    CMSDocument document = store.CreateDocument(record);
    if (!document) return document;
    const int count = GetDocumentCount();
    Rollback undo([&] {
      CMSFieldAccess::Write(*this, [&](CMSFolderData& data) { data.DocumentCount = count; });
      store.RemoveDocument(document);
      store.Master().DropExtraFolderData(static_cast<std::uint32_t>(ID()));
    });
    IncDocumentCount();
    const Share share = ShareOf(document);
    AdjustExtraCounters(share.unread, share.undelivered);
    undo.Disarm();
    store.Listeners().DocumentAdded(document);
    return document;
  });
}

void CMSFolder::MoveDocument(CMSDocument& document, CMSFolder& target) {
  CMSMessageStoreImp& store = StoreOf(*this);
  store.Change([&] {
    RequireSameStore(store, *this);
    RequireSameStore(store, document);
    RequireSameStore(store, target);
    if (!IsChild(store, *this, document,
                 "CMSFolder::MoveDocument detected mismatch in parent-child IDs"))
      return;
    if (target == *this) return;
    const Share share = ShareOf(document);
    store.Relink(document, static_cast<std::uint32_t>(target.ID()));
    DecDocumentCount();
    target.IncDocumentCount();
    AdjustExtraCounters(-share.unread, -share.undelivered);
    target.AdjustExtraCounters(share.unread, share.undelivered);
    store.Listeners().DocumentRemoved(document);
    store.Listeners().DocumentAdded(document);
  });
}

void CMSFolder::MoveFolder(CMSFolder& folder, CMSFolder& target) {
  CMSMessageStoreImp& store = StoreOf(*this);
  store.Change([&] {
    RequireSameStore(store, *this);
    RequireSameStore(store, folder);
    RequireSameStore(store, target);
    if (folder.IsRoot()) Refuse("the root folder cannot be moved");
    if (IsWithin(target, folder)) Refuse("a folder cannot be moved into itself or below itself");
    if (!IsChild(store, *this, folder,
                 "CMSFolder::MoveFolder detected mismatch in parent-child IDs"))
      return;
    if (target == *this) return;
    store.Relink(folder, static_cast<std::uint32_t>(target.ID()));
    DecFolderCount();
    target.IncFolderCount();
    store.Listeners().FolderRemoved(folder);
    store.Listeners().FolderChanged(folder);
  });
}

void CMSFolder::Move(CMSFolder& target) {
  CMSMessageStoreImp& store = StoreOf(*this);
  store.Change([&] {
    CMSFolder parent = Parent();
    if (IsRoot()) Refuse("the root folder cannot be moved");
    if (parent) return parent.MoveFolder(*this, target);
    Report(store, "CMSFolder::MoveFolder detected mismatch in parent-child IDs");
  });
}

CMSFolder CMSFolder::Clone(CMSFolder& target) const {
  return target.CreateFolder(Name(), Props(), Type());
}
