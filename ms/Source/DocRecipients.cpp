// Recipients coming and going.
#include "DocWalk.h"
#include "Rollback.h"

namespace {

using Record = CMSRecipientData;

std::uint32_t Seconds(const CKitString& dateText) {
  return CKitDateTime::Parse(dateText).Seconds();
}

}  // namespace

CMSRecipient CMSDocument::AddRecipient(const CKitString& packDate,
                                       const CKitString& transEnvFileName,
                                       const CKitString& obsoleteNetAddr, const CKitString& idWS,
                                       const CKitString& idWG, const CKitString& idU,
                                       const CKitString& wsName, const CKitString& wgName,
                                       const CKitString& userName, const CKitString& annotation,
                                       const CKitString& receiver, const CKitString& receiveDate,
                                       const CKitString& reader, const CKitString& readDate,
                                       long flags, long category) {
  Record data{};
  data.PackTime = Seconds(packDate);
  PutChecked(data.TransEnvFileName, transEnvFileName, "envelope file name");
  PutChecked(data.ObsoleteNetAddr, obsoleteNetAddr, "recipient's network address");
  PutChecked(data.IDWS, idWS, "recipient's workstation ID");
  PutChecked(data.IDWG, idWG, "recipient's workgroup ID");
  PutChecked(data.IDU, idU, "recipient's user ID");
  PutChecked(data.WSName, wsName, "recipient's workstation name");
  PutChecked(data.WGName, wgName, "recipient's workgroup name");
  PutChecked(data.UserName, userName, "recipient's user name");
  PutChecked(data.Annotation, annotation, "annotation");
  PutChecked(data.Receiver, receiver, "receiver");
  data.ReceiveTime = Seconds(receiveDate);
  PutChecked(data.Reader, reader, "reader");
  data.ReadTime = Seconds(readDate);
  data.Flag = static_cast<std::int32_t>(flags);
  data.Category = static_cast<std::int32_t>(category);

  CMSMessageStoreImp& store = StoreOf(*this);
  return store.Change([&] {
    RequireAlive(*this);
    data.DocID = static_cast<std::uint32_t>(ID());
    const bool wasUndelivered = IsUndelivered();
    CMSRecipient recipient = store.CreateRecipient(data);
    if (!recipient) return recipient;
    Rollback undo([&] { store.RemoveRecipient(recipient); });
    IncRecipientCount();
    undo.Disarm();
    if (IsOutgoing() && !wasUndelivered && recipient.IsUndelivered()) NotifyUndelivered(true);
    return recipient;
  });
}

void CMSDocument::DeleteRecipient(CMSRecipient& recipient) {
  CMSMessageStoreImp& store = StoreOf(*this);
  store.Change([&] {
    RequireSameStore(StoreOf(*this), recipient);
    if (recipient.DocID() != ID()) {
      Report(StoreOf(*this), "CMSDocument::DeleteRecipient detected mismatch in parent-child IDs");
      return;
    }
    const bool wasUndelivered = IsUndelivered();
    if (!store.RemoveRecipient(recipient)) return;
    DecRecipientCount();
    if (wasUndelivered && !IsUndelivered()) NotifyUndelivered(false);
  });
}
