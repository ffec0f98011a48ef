// Walks over the attachments and recipients of a letter, and what they add up to.
#include "AttachmentFiles.h"
#include "DocWalk.h"
#include "kit/LogDispatcher.h"

using Access = CMSFieldAccess;
using Record = CMSDocumentData;

namespace {

// A link whose record is gone has nothing to show: it is reported and stepped over.
template <class Handle, class Open>
bool NextChild(const CMSDocument& document, Handle& child, CMSRelationsDB::locator& place,
               const char* text, Open open) {
  CMSMessageStoreImp& store = StoreOf(document);
  const CSharedLocker guard(store.Lock());
  unsigned long id = 0;
  while (store.Relations().Next(place, id)) {
    child = open(store, static_cast<std::uint32_t>(id));
    if (!child) {
      Report(StoreOf(document), text);
      continue;
    }
    if (child.DocID() != document.ID()) Report(StoreOf(document), text);
    return true;
  }
  return false;
}

}  // namespace

CMSRelationsDB::locator CMSDocument::GetFirstAttachmentPosition() const {
  return StoreOf(*this).Relations().First(ID(), CMSObjectType::Attachment);
}
CMSRelationsDB::locator CMSDocument::GetFirstRecipientPosition() const {
  return StoreOf(*this).Relations().First(ID(), CMSObjectType::Recipient);
}

bool CMSDocument::GetNextAttachment(CMSAttachment& attachment,
                                    CMSRelationsDB::locator& place) const {
  return NextChild(*this, attachment, place,
                   "CMSDocument::GetNextAttachment detected mismatch in parent-child IDs",
                   [](auto& store, std::uint32_t id) { return store.GetAttachment(id); });
}
bool CMSDocument::GetNextRecipient(CMSRecipient& recipient, CMSRelationsDB::locator& place) const {
  return NextChild(*this, recipient, place,
                   "CMSDocument::GetNextRecipient detected mismatch in parent-child IDs",
                   [](auto& store, std::uint32_t id) { return store.GetRecipient(id); });
}

bool CMSDocument::GetNextAttachmentEx(CMSAttachment& attachment, CMSRelationsDB::locator& place,
                                      long value, long mask) const {
  const CSharedLocker guard(StoreOf(*this).Lock());
  while (GetNextAttachment(attachment, place)) {
    if ((attachment.Flag() & mask) == value) return true;
  }
  return false;
}

int CMSDocument::GetAttachmentCountEx(long value, long mask) const {
  const CSharedLocker guard(StoreOf(*this).Lock());
  int count = 0;
  EachAttachment(*this, value, mask, [&](const CMSAttachment&) { ++count; });
  return count;
}

int CMSDocument::GetAttachmentCount() const {
  const CSharedLocker guard(StoreOf(*this).Lock());
  const int count = GetAttachmentCountEx(0, 0);
  if (count != Access::Value(*this, &Record::AttachmentCount)) {
    Report(StoreOf(*this),
           "CMSDocument::GetAttachmentCount detected mismatch in real and expected number "
           "of letter attachments");
  }
  return count;
}

int CMSDocument::GetRecipientCount() const {
  const CSharedLocker guard(StoreOf(*this).Lock());
  int count = 0;
  EachRecipient(*this, [&](const CMSRecipient&) { ++count; });
  if (count != Access::Value(*this, &Record::RecipientCount)) {
    Report(StoreOf(*this),
           "CMSDocument::GetRecipientCount detected mismatch in real and expected number "
           "of letter recipients");
  }
  return count;
}

void CMSDocument::Attachments(std::list<CMSAttachment>& attachments) const {
  CMSAttachment attachment;
  auto place = GetFirstAttachmentPosition();
  while (GetNextAttachment(attachment, place)) attachments.push_back(attachment);
}
void CMSDocument::Recipients(std::list<CMSRecipient>& recipients) const {
  CMSRecipient recipient;
  auto place = GetFirstRecipientPosition();
  while (GetNextRecipient(recipient, place)) recipients.push_back(recipient);
}

unsigned long CMSDocument::FileSize() const {
  std::list<CKitString> files;
  {
    const CSharedLocker guard(StoreOf(*this).Lock());
    EachAttachment(*this, 0, 0, [&](const CMSAttachment& attachment) {
      files.push_back(attachment.InternalFileName());
    });
  }
  unsigned long size = 0;
  for (const CKitString& file : files) {
    size += static_cast<unsigned long>(attachmentfiles::Length(file));
  }
  return size;
}

unsigned long CMSDocument::GetRawStorageSize() const {
  constexpr unsigned long kLetter = sizeof(Record);
  constexpr unsigned long kAttachment = sizeof(CMSAttachmentData);
  constexpr unsigned long kRecipient = sizeof(CMSRecipientData);
  return FileSize() + kLetter + kAttachment * static_cast<unsigned long>(GetAttachmentCount()) +
         kRecipient * static_cast<unsigned long>(GetRecipientCount());
}

void CMSDocument::AttachmentInfo(CMSDocAttachmentInfo& info) const {
  info = {};
  const CSharedLocker guard(StoreOf(*this).Lock());
  EachAttachment(*this, 0, attachmentflag::NotCounted, [&](const CMSAttachment& attachment) {
    const long flag = attachment.Flag();
    Summarise(info.encryption, (flag & attachmentflag::Encrypted) != 0);
    Summarise(info.signature, attachment.IsSigned());
    Summarise(info.read, (flag & attachmentflag::Read) != 0);
  });
}

void CMSDocument::RcptInfo(CMSDocRcptInfo& info) const {
  info = {};
  const CSharedLocker guard(StoreOf(*this).Lock());
  EachRecipient(*this, [&](const CMSRecipient& recipient) {
    const long flag = recipient.Flag();
    Summarise(info.bit4, (flag & 0x4) != 0);
    Summarise(info.bit8, (flag & 0x8) != 0);
    Summarise(info.bit20, (flag & 0x20) != 0);
    Summarise(info.bit40, (flag & 0x40) != 0);
    Summarise(info.bit200, (flag & 0x200) != 0);
  });
}

CMSRecipient CMSDocument::GetCurrentRecipient() const {
  CMSRecipient current;
  const CSharedLocker guard(StoreOf(*this).Lock());
  const bool found = AnyRecipient(*this, [&](const CMSRecipient& recipient) {
    if ((recipient.Flag() & recipientflag::Current) == 0) return false;
    current = recipient;
    return true;
  });
  if (found) return current;
  const std::string text = KitFormat("Unable to find current recipient for document #x%08X",
                                     static_cast<unsigned int>(ID()));
  LogEvent(severity::Repaired, text.c_str(), "Doc", __LINE__);
  return {};
}

void CMSDocument::SetCategory(const char* groupID, const char* userID, long category) {
  const CKitString group(groupID);
  const CKitString user(userID);
  StoreOf(*this).Change([&] {
    EachRecipient(*this, [&](CMSRecipient& recipient) {
      if (recipient.DocID() != ID()) return;
      if (recipient.IDWG() == group && recipient.IDU() == user) recipient.Category(category);
    });
  });
}
