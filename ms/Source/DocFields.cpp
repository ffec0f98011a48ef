// The fields of a letter, and what follows from one record alone.
#include <charconv>

#include "FieldSetters.h"
#include "Subject.h"
#include "kit/RegistrationNumber.h"

using Access = CMSFieldAccess;
using Record = CMSDocumentData;

CKitString CMSDocument::Name() const {
  return Access::Read(*this, [](const Record& record) { return CKitString(SubjectOf(record)); });
}
void CMSDocument::Name(const char* subject) {
  const CKitString value(subject);
  ChangeRecord(*this, [&](Record& record) { PutSubject(record, value); });
}

CKitString CMSDocument::LetterPath() const {
  return Access::Text(*this, &Record::LetterPath);
}
void CMSDocument::LetterPath(const char* path) {
  const CKitString value(path);
  Access::CheckFits(value, sizeof(Record::LetterPath), "letter path");
  ChangeRecord(*this, [&](Record& record) { PutLetterPath(record, value); });
}

CKitString CMSDocument::RegNumber() const {
  return Access::Text(*this, &Record::RegNumber);
}
void CMSDocument::RegNumber(const char* number) {
  SetText(*this, &Record::RegNumber, number, "registration number");
}

unsigned long CMSDocument::CreationTime() const {
  return Access::Value(*this, &Record::CreationTime);
}
CKitString CMSDocument::CreationData() const {
  return DateOf(*this, &Record::CreationTime);
}
void CMSDocument::CreationData(const char* dateText) {
  SetDate(*this, &Record::CreationTime, dateText);
}

CKitString CMSDocument::ObsoleteSenderNetAddr() const {
  return Access::Text(*this, &Record::ObsoleteSenderNetAddr);
}
void CMSDocument::ObsoleteSenderNetAddr(const char* address) {
  SetText(*this, &Record::ObsoleteSenderNetAddr, address, "sender's network address");
}

CKitString CMSDocument::SenderIDWG() const {
  return Access::Text(*this, &Record::SenderIDWG);
}
void CMSDocument::SenderIDWG(const char* id) {
  SetText(*this, &Record::SenderIDWG, id, "sender's workgroup ID");
}

CKitString CMSDocument::SenderIDU() const {
  return Access::Text(*this, &Record::SenderIDU);
}
void CMSDocument::SenderIDU(const char* id) {
  SetText(*this, &Record::SenderIDU, id, "sender's user ID");
}

CKitString CMSDocument::SenderWSName() const {
  return Access::Text(*this, &Record::SenderWSName);
}
void CMSDocument::SenderWSName(const char* name) {
  SetText(*this, &Record::SenderWSName, name, "sender's workstation name");
}

CKitString CMSDocument::SenderWGName() const {
  return Access::Text(*this, &Record::SenderWGName);
}
void CMSDocument::SenderWGName(const char* name) {
  SetText(*this, &Record::SenderWGName, name, "sender's workgroup name");
}

CKitString CMSDocument::SenderUserName() const {
  return Access::Text(*this, &Record::SenderUserName);
}
void CMSDocument::SenderUserName(const char* name) {
  SetText(*this, &Record::SenderUserName, name, "sender's user name");
}

long CMSDocument::RegNum() const {
  return Access::Value(*this, &Record::RegNum);
}
void CMSDocument::RegNum(long number) {
  SetValue(*this, &Record::RegNum, static_cast<std::int32_t>(number));
}

long CMSDocument::DeletedTime() const {
  return Access::Value(*this, &Record::DeletedTime);
}
void CMSDocument::DeletedTime(long time) {
  SetValue(*this, &Record::DeletedTime, static_cast<std::int32_t>(time));
}

long CMSDocument::Flag() const {
  return Access::Value(*this, &Record::Flag);
}
unsigned long CMSDocument::Size() const {
  return Access::Value(*this, &Record::Size);
}
unsigned long CMSDocument::ParentID() const {
  return Access::Value(*this, &Record::ParentID);
}
CMSFolder CMSDocument::Parent() const {
  return StoreOf(*this).GetFolder(Access::Value(*this, &Record::ParentID));
}
unsigned long CMSDocument::BodyID() const {
  return Access::Value(*this, &Record::BodyID);
}
CMSAttachment CMSDocument::Body() const {
  const std::uint32_t id = Access::Value(*this, &Record::BodyID);
  return id == 0 ? CMSAttachment() : StoreOf(*this).GetAttachment(id);
}

CKitString CMSDocument::UniversalRegNumber() const {
  return Access::Read(*this, [](const Record& record) {
    CKitString text = Access::TextOf(record.RegNumber);
    if ((record.Flag & docflag::Incoming) != 0) return text;
    return CKitString(FormatRegistrationNumber(text, record.RegNum));
  });
}

namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// The last run of digits, and of a long one its end.
long LastNumber(const std::string& text) {
  constexpr std::size_t kMostDigits = 14;
  std::size_t end = text.size();
  while (end > 0 && !IsDigit(text[end - 1])) --end;
  std::size_t begin = end;
  while (begin > 0 && end - begin < kMostDigits && IsDigit(text[begin - 1])) --begin;
  std::int64_t number = 0;
  std::from_chars(text.data() + begin, text.data() + end, number);
  return static_cast<long>(number);
}

}  // namespace

long CMSDocument::DistillRegNumber() const {
  return Access::Read(*this, [](const Record& record) -> long {
    if ((record.Flag & docflag::Incoming) == 0) return record.RegNum;
    return LastNumber(Access::TextOf(record.RegNumber));
  });
}

CKitString CMSDocument::GetLocation() const {
  const std::string& store = StoreOf(*this).Name();
  const CMSFolder parent = Parent();
  return store.empty() ? parent.AdvFullName() : CKitString(store) + "/" + parent.FullName();
}

bool CMSDocument::operator<(const CMSDocument& other) const {
  const auto compare = GetMS()->CmpDocs();  // stale handles have an order too
  return compare != nullptr ? compare(*this, other) : ID() < other.ID();
}
bool CMSDocument::operator>(const CMSDocument& other) const {
  return other.ID() < ID();
}

// As one change: another thread's move in between would pass for damage.
void CMSDocument::Move(CMSFolder& target) {
  StoreOf(*this).Change([&] { Parent().MoveDocument(*this, target); });
}
