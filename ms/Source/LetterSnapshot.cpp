#include "LetterSnapshot.h"

#include "DocWalk.h"
#include "RecordTexts.h"

using Access = CMSFieldAccess;

namespace {

template <class T>
T RecordOf(const CMSObject<T>& handle) {
  T record = Access::Copy(handle);
  EndTexts(record);
  return record;
}

}  // namespace

CMSDocumentData HeaderOf(const CMSDocument& document) {
  return RecordOf(document);
}

CMSLetterSnapshot SnapshotOf(const CMSDocument& document) {
  CMSLetterSnapshot letter;
  const CSharedLocker guard(StoreOf(document).Lock());
  letter.record = RecordOf(document);
  EachAttachment(document, 0, 0, [&](const CMSAttachment& attachment) {
    letter.attachments.push_back({attachment, RecordOf(attachment), attachment.InternalFileName()});
  });
  EachRecipient(document, [&](const CMSRecipient& recipient) {
    letter.recipients.push_back({recipient, RecordOf(recipient)});
  });
  return letter;
}
