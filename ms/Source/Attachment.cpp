#include "Attachment.h"

#include "AttachmentFiles.h"
#include "FieldSetters.h"
#include "kit/KitFile.h"
#include "kit/KitFolder.h"

using Access = CMSFieldAccess;
using Record = CMSAttachmentData;

namespace {

// Passes a change on to the letter. When the attachment names a letter that is not there, the text
// is reported.
template <class Tell>
void TellLetter(const CMSAttachment& attachment, const char* text, Tell tell) {
  if (CMSDocument letter = attachment.Document()) {
    tell(letter);
  } else {
    Report(StoreOf(attachment), text);
  }
}

// The stored file's path for operations that need one.
std::string RequirePath(const CMSAttachment& attachment) {
  const CKitString path = attachment.InternalFileName();
  if (!path.empty()) return path;
  const CKitString stored = Access::Text(attachment, &Record::InternalFileName);
  throw XKitFile(XKitFile::Cause::NotFound, 0, stored,
                 KitFormat("the attachment with ID %lu has no file: '%s' names none of the store",
                           attachment.ID(), stored.c_str()));
}

bool IsSameFile(const std::string& a, const std::string& b) {
  const platform::FileInfo one = CKitFile::Info(a);
  const platform::FileInfo other = CKitFile::Info(b);
  return one.kind != platform::FileKind::None && one.stamp == other.stamp;
}

}  // namespace

unsigned long CMSAttachment::DocID() const {
  return Access::Value(*this, &Record::DocID);
}
CMSDocument CMSAttachment::Document() const {
  return StoreOf(*this).GetDocument(Access::Value(*this, &Record::DocID));
}

CKitString CMSAttachment::Name() const {
  return Access::Text(*this, &Record::Name);
}
void CMSAttachment::Name(const char* name) {
  SetText(*this, &Record::Name, name, "attachment name");
}

CKitString CMSAttachment::AttachmentName() const {
  return Access::Text(*this, &Record::AttachmentName);
}
void CMSAttachment::AttachmentName(const char* name) {
  SetText(*this, &Record::AttachmentName, name, "attachment's source name");
}

CKitString CMSAttachment::InternalFileName() const {
  return attachmentfiles::ToFull(StoreOf(*this).Directory(),
                                 Access::Text(*this, &Record::InternalFileName));
}

long CMSAttachment::Attributes() const {
  return Access::Value(*this, &Record::Attributes);
}
void CMSAttachment::Attributes(long attributes) {
  SetValue(*this, &Record::Attributes, static_cast<std::int32_t>(attributes));
}

CKitDateTime CMSAttachment::DateTime() const {
  return CKitDateTime(Access::Value(*this, &Record::DateTime));
}
void CMSAttachment::DateTime(const CKitDateTime& time) {
  StoreOf(*this).Change([&] {
    Access::Write(*this, [&](Record& record) { record.DateTime = time.Seconds(); });
    TellLetter(*this, "CMSDocument::OnAttachmentTimeChanged detected mismatch in parent-child IDs",
               [&](CMSDocument& letter) { letter.OnAttachmentTimeChanged(*this); });
  });
}

long CMSAttachment::Size() const {
  return Access::Value(*this, &Record::Size);
}
void CMSAttachment::Size(long size) {
  StoreOf(*this).Change([&] {
    CorrectSize(
        WrappedDifference(static_cast<std::int32_t>(size), Access::Value(*this, &Record::Size)));
  });
}
void CMSAttachment::CorrectSize(long change) {
  StoreOf(*this).Change([&] {
    Access::Write(*this, [&](Record& record) { record.Size = WrappedSum(record.Size, change); });
    TellLetter(*this, "CMSDocument::OnAttachmentSizeChanged detected mismatch in parent-child IDs",
               [&](CMSDocument& letter) { letter.OnAttachmentSizeChanged(*this, change); });
  });
}

long CMSAttachment::Flag() const {
  return Access::Value(*this, &Record::Flag);
}
void CMSAttachment::Flag(long flags) {
  StoreOf(*this).Change([&] {
    const long old = Flag();
    Access::Write(*this, [&](Record& record) { record.Flag = static_cast<std::int32_t>(flags); });
    TellLetter(*this, "CMSDocument::OnAttachmentFlagChanged detected mismatch in parent-child IDs",
               [&](CMSDocument& letter) { letter.OnAttachmentFlagChanged(*this, old); });
  });
}

unsigned long CMSAttachment::FileSize() const {
  return static_cast<unsigned long>(attachmentfiles::Length(InternalFileName()));
}

bool CMSAttachment::IsSigned() const {
  return (Flag() & (attachmentflag::Signed | attachmentflag::SignedOtherwise)) != 0;
}

CKitString CMSAttachment::Put(const CKitFolder& folder) const {
  const std::string path = RequirePath(*this);
  const std::string target = CKitFile::NormalizeFileName(
      CKitFile::Join(folder.Path(), CKitFile::BaseName(path) + CKitFile::Extension(path)));
  CKitFile::Copy(path, target);
  return target;
}

void CMSAttachment::Get(const char* source, bool move) {
  CMSMessageStoreImp& store = StoreOf(*this);
  const std::string from = CKitString(source);
  const auto info = attachmentfiles::Describe(from);
  const std::string target = RequirePath(*this);
  const bool another = !IsSameFile(from, target);
  RequireWritable(store);
  // A file of that name may be waiting for its removal; the new one must not go with it.
  store.Durability().Pay();
  if (another) attachmentfiles::CopyIn(from, target, store.Durability());
  ChangeRecord(*this, [&](Record& record) {
    record.Attributes = info.attributes;
    record.DateTime = info.modified;
    record.Size = info.length;
  });
  if (!move || !another) return;
  store.Durability().Pay();
  store.Durability().CheckHealthy();
  CKitFile::RemoveEx(from);
}
