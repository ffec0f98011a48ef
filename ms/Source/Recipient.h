// Recipients: the addressees of a letter and what became of it with each.
#pragma once

#include "Object.h"
#include "kit/Identifiers.h"
#include "kit/KitString.h"

class CMSDocument;

// Bits of CMSRecipient::Flag that the store reads; all others are the client's.
namespace recipientflag {
inline constexpr long Current = 0x1;  // stands for the local user
inline constexpr long Sent = 0x4;
inline constexpr long Delivered = 0x20;
}  // namespace recipientflag

// Errors as for CMSDocument. Times have a numeric getter and date text (kit/KitDateTime.h) both
// ways.
class MS_API CMSRecipient : public CMSObject<CMSRecipientData> {
 public:
  // A recipient described in memory.
  struct MS_API CMSRcptData {
    CMSRcptData() = default;
    CMSRcptData(const CKitString& packDate, const CKitString& transEnvFileName,
                const CKitString& obsoleteNetAddr, const CKitString& idWS, const CKitString& idWG,
                const CKitString& idU, const CKitString& wsName, const CKitString& wgName,
                const CKitString& userName, const CKitString& annotation,
                const CKitString& receiver, const CKitString& receiveDate, const CKitString& reader,
                const CKitString& readDate);

    CKitString PackDate;
    CKitString TransEnvFileName;
    CKitString ObsoleteNetAddr;
    CStationID IDWS;
    CGroupID IDWG;
    CUserID IDU;
    CKitString WSName;
    CKitString WGName;
    CKitString UserName;
    CKitString Annotation;
    CKitString Receiver;
    CKitString ReceiveDate;
    CKitString Reader;
    CKitString ReadDate;
  };

  CMSRecipient() = default;

  unsigned long DocID() const;
  CMSDocument Document() const;
  unsigned long PackTime() const;
  CKitString PackDateTime() const;
  void PackDateTime(const char* dateText);
  CKitString TransEnvFileName() const;  // 259; its first 12 characters are the packet name
  void TransEnvFileName(const char* name);
  CKitString ObsoleteNetAddr() const;  // 16
  void ObsoleteNetAddr(const char* address);
  CKitString IDWS() const;  // 9
  void IDWS(const char* id);
  CKitString IDWG() const;  // 13
  void IDWG(const char* id);
  CKitString IDU() const;  // 8
  void IDU(const char* id);
  CKitString WSName() const;  // 99
  void WSName(const char* name);
  CKitString WGName() const;  // 57
  void WGName(const char* name);
  CKitString UserName() const;  // 57
  void UserName(const char* name);
  CKitString Annotation() const;  // 255
  void Annotation(const char* text);
  CKitString Receiver() const;  // 57
  void Receiver(const char* name);
  unsigned long ReceiveTime() const;
  CKitString ReceiveDateTime() const;
  void ReceiveDateTime(const char* dateText);
  CKitString Reader() const;  // 57
  void Reader(const char* name);
  unsigned long ReadTime() const;
  CKitString ReadDateTime() const;
  void ReadDateTime(const char* dateText);
  long Flag() const;
  void Flag(long flags);
  long Category() const;
  void Category(long category);

  // Copies nothing and answers an empty handle: children are copied with their letter, or by
  // CMSDocument::AcceptRecipients.
  CMSRecipient Clone(CMSDocument& target);

  // Sent and not delivered.
  bool IsUndelivered() const;
  static bool IsUndelivered(long flags);

 private:
  friend class CMSDocument;
  friend class CMSMessageStoreImp;
  explicit CMSRecipient(CMSDBObject* cell) : CMSObject(cell) {}
};
