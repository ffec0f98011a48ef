#include "LetterSnapshot.h"

#include "DocWalk.h"

using Access = CMSFieldAccess;

namespace {

template <std::size_t... N>
void End(char (&... fields)[N]) {
  ((fields[N - 1] = '\0'), ...);
}

void EndTexts(CMSDocumentData& r) {
  End(r.Name, r.RegNumber, r.ObsoleteSenderNetAddr, r.SenderIDWG, r.SenderWSName, r.SenderWGName,
      r.SenderUserName, r.SenderIDU);
}
void EndTexts(CMSAttachmentData& r) {
  End(r.InternalFileName, r.Name, r.AttachmentName);
}
void EndTexts(CMSRecipientData& r) {
  End(r.TransEnvFileName, r.ObsoleteNetAddr, r.IDWS, r.IDWG, r.IDU, r.WSName, r.WGName, r.UserName,
      r.Annotation, r.Receiver, r.Reader);
}

template <class T>
T RecordOf(const CMSObject<T>& handle) {
  T record = Access::Read(handle, [](const T& stored) { return stored; });
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
