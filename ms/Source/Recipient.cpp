#include "Recipient.h"

#include "FieldSetters.h"

using Access = CMSFieldAccess;
using Record = CMSRecipientData;

CMSRecipient::CMSRcptData::CMSRcptData(const CKitString& packDate,
                                       const CKitString& transEnvFileName,
                                       const CKitString& obsoleteNetAddr, const CKitString& idWS,
                                       const CKitString& idWG, const CKitString& idU,
                                       const CKitString& wsName, const CKitString& wgName,
                                       const CKitString& userName, const CKitString& annotation,
                                       const CKitString& receiver, const CKitString& receiveDate,
                                       const CKitString& reader, const CKitString& readDate)
    : PackDate(packDate),
      TransEnvFileName(transEnvFileName),
      ObsoleteNetAddr(obsoleteNetAddr),
      IDWS(idWS),
      IDWG(idWG),
      IDU(idU),
      WSName(wsName),
      WGName(wgName),
      UserName(userName),
      Annotation(annotation),
      Receiver(receiver),
      ReceiveDate(receiveDate),
      Reader(reader),
      ReadDate(readDate) {}

unsigned long CMSRecipient::DocID() const {
  return Access::Value(*this, &Record::DocID);
}
CMSDocument CMSRecipient::Document() const {
  return StoreOf(*this).GetDocument(Access::Value(*this, &Record::DocID));
}

unsigned long CMSRecipient::PackTime() const {
  return Access::Value(*this, &Record::PackTime);
}
CKitString CMSRecipient::PackDateTime() const {
  return DateOf(*this, &Record::PackTime);
}
void CMSRecipient::PackDateTime(const char* dateText) {
  SetDate(*this, &Record::PackTime, dateText);
}

CKitString CMSRecipient::TransEnvFileName() const {
  return Access::Text(*this, &Record::TransEnvFileName);
}
void CMSRecipient::TransEnvFileName(const char* name) {
  const CKitString to(name);
  Access::CheckFits(to, sizeof(Record::TransEnvFileName), "envelope file name");
  CMSMessageStoreImp& store = StoreOf(*this);
  store.Change([&] { store.RenamePacket(*this, to); });
}

CKitString CMSRecipient::ObsoleteNetAddr() const {
  return Access::Text(*this, &Record::ObsoleteNetAddr);
}
void CMSRecipient::ObsoleteNetAddr(const char* address) {
  SetText(*this, &Record::ObsoleteNetAddr, address, "recipient's network address");
}

CKitString CMSRecipient::IDWS() const {
  return Access::Text(*this, &Record::IDWS);
}
void CMSRecipient::IDWS(const char* id) {
  SetText(*this, &Record::IDWS, id, "recipient's workstation ID");
}

CKitString CMSRecipient::IDWG() const {
  return Access::Text(*this, &Record::IDWG);
}
void CMSRecipient::IDWG(const char* id) {
  SetText(*this, &Record::IDWG, id, "recipient's workgroup ID");
}

CKitString CMSRecipient::IDU() const {
  return Access::Text(*this, &Record::IDU);
}
void CMSRecipient::IDU(const char* id) {
  SetText(*this, &Record::IDU, id, "recipient's user ID");
}

CKitString CMSRecipient::WSName() const {
  return Access::Text(*this, &Record::WSName);
}
void CMSRecipient::WSName(const char* name) {
  SetText(*this, &Record::WSName, name, "recipient's workstation name");
}

CKitString CMSRecipient::WGName() const {
  return Access::Text(*this, &Record::WGName);
}
void CMSRecipient::WGName(const char* name) {
  SetText(*this, &Record::WGName, name, "recipient's workgroup name");
}

CKitString CMSRecipient::UserName() const {
  return Access::Text(*this, &Record::UserName);
}
void CMSRecipient::UserName(const char* name) {
  SetText(*this, &Record::UserName, name, "recipient's user name");
}

CKitString CMSRecipient::Annotation() const {
  return Access::Text(*this, &Record::Annotation);
}
void CMSRecipient::Annotation(const char* text) {
  SetText(*this, &Record::Annotation, text, "annotation");
}

CKitString CMSRecipient::Receiver() const {
  return Access::Text(*this, &Record::Receiver);
}
void CMSRecipient::Receiver(const char* name) {
  SetText(*this, &Record::Receiver, name, "receiver");
}

unsigned long CMSRecipient::ReceiveTime() const {
  return Access::Value(*this, &Record::ReceiveTime);
}
CKitString CMSRecipient::ReceiveDateTime() const {
  return DateOf(*this, &Record::ReceiveTime);
}
void CMSRecipient::ReceiveDateTime(const char* dateText) {
  SetDate(*this, &Record::ReceiveTime, dateText);
}

CKitString CMSRecipient::Reader() const {
  return Access::Text(*this, &Record::Reader);
}
void CMSRecipient::Reader(const char* name) {
  SetText(*this, &Record::Reader, name, "reader");
}

unsigned long CMSRecipient::ReadTime() const {
  return Access::Value(*this, &Record::ReadTime);
}
CKitString CMSRecipient::ReadDateTime() const {
  return DateOf(*this, &Record::ReadTime);
}
void CMSRecipient::ReadDateTime(const char* dateText) {
  SetDate(*this, &Record::ReadTime, dateText);
}

long CMSRecipient::Flag() const {
  return Access::Value(*this, &Record::Flag);
}
void CMSRecipient::Flag(long flags) {
  CMSMessageStoreImp& store = StoreOf(*this);
  store.Change([&] {
    const long old = Flag();
    Access::Write(*this, [&](Record& record) { record.Flag = static_cast<std::int32_t>(flags); });
    if (CMSDocument letter = Document()) {
      letter.OnRecipientFlagChanged(*this, old);
    } else {
      Report(StoreOf(*this),
             "CMSDocument::OnRecipientFlagChanged detected mismatch in parent-child IDs");
    }
  });
}

long CMSRecipient::Category() const {
  return Access::Value(*this, &Record::Category);
}
void CMSRecipient::Category(long category) {
  SetValue(*this, &Record::Category, static_cast<std::int32_t>(category));
}

bool CMSRecipient::IsUndelivered() const {
  return IsUndelivered(Flag());
}
bool CMSRecipient::IsUndelivered(long flags) {
  return (flags & recipientflag::Sent) != 0 && (flags & recipientflag::Delivered) == 0;
}
