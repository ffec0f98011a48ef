#include "DocRecord.h"

#include "Doc.h"
#include "FieldSetters.h"
#include "Subject.h"
#include "kit/KitDateTime.h"

CMSDocumentData MakeDocumentRecord(std::uint32_t folder, const CKitString& subject,
                                   const CKitString& regNumber, const CKitString& created,
                                   const CKitString& obsoleteSenderNetAddr,
                                   const CKitString& senderIDWG, const CKitString& senderIDU,
                                   const CKitString& senderWSName, const CKitString& senderWGName,
                                   const CKitString& senderUserName, long flags, long regNum) {
  CMSDocumentData record{};
  record.ParentID = folder;
  CMSFieldAccess::CheckFits(subject, subject.size() + 1, "subject");  // for zero bytes alone
  PutSubject(record, subject);
  PutChecked(record.RegNumber, regNumber, "registration number");
  record.CreationTime = CKitDateTime::Parse(created).Seconds();
  PutChecked(record.ObsoleteSenderNetAddr, obsoleteSenderNetAddr, "sender's network address");
  PutChecked(record.SenderIDWG, senderIDWG, "sender's workgroup ID");
  PutChecked(record.SenderIDU, senderIDU, "sender's user ID");
  PutChecked(record.SenderWSName, senderWSName, "sender's workstation name");
  PutChecked(record.SenderWGName, senderWGName, "sender's workgroup name");
  PutChecked(record.SenderUserName, senderUserName, "sender's user name");
  record.Flag = static_cast<std::int32_t>(flags & ~docflag::Encrypted);
  record.RegNum = static_cast<std::int32_t>(regNum);
  return record;
}
