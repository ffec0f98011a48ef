#include "LetterSnapshot.h"

#include "DocWalk.h"

using Access = CMSFieldAccess;

namespace {

template <class T>
T RecordOf(const CMSObject<T>& handle) {
  return Access::Read(handle, [](const T& record) { return record; });
}

}  // namespace

CMSLetterSnapshot SnapshotOf(const CMSDocument& document) {
  CMSLetterSnapshot letter;
  const CSharedLocker guard(StoreOf(document).Lock());
  letter.record = RecordOf(document);
  EachAttachment(document, 0, 0, [&](const CMSAttachment& attachment) {
    const CMSAttachmentData record = RecordOf(attachment);
    if (record.DocID != document.ID()) return;
    letter.attachments.push_back({attachment, record, attachment.InternalFileName()});
  });
  EachRecipient(document, [&](const CMSRecipient& recipient) {
    const CMSRecipientData record = RecordOf(recipient);
    if (record.DocID == document.ID()) letter.recipients.push_back({recipient, record});
  });
  return letter;
}
