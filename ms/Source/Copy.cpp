// Copies of letters and of their children.
//
// The source is read at one moment and its store let go of before the target is changed: two stores
// can be copied into each other at the same time, and a letter can take from itself.
#include <algorithm>
#include <cstring>
#include <exception>

#include "Batch.h"
#include "Copy.h"
#include "FieldSetters.h"
#include "FolderSupport.h"
#include "Subject.h"
#include "kit/KitFile.h"
#include "kit/LogDispatcher.h"

using Access = CMSFieldAccess;
using Record = CMSDocumentData;
using foldersupport::Share;
using foldersupport::ShareOf;

namespace {

constexpr long kWithheld = docflag::Complete | docflag::Incoming;

// Without the creation time: date text would lose its seconds, so it is left to CopyFields.
CMSDocument CreateHeader(CMSFolder& target, const Record& from, long flags) {
  return target.CreateDocument(SubjectOf(from), Access::TextOf(from.RegNumber), "",
                               Access::TextOf(from.ObsoleteSenderNetAddr),
                               Access::TextOf(from.SenderIDWG), Access::TextOf(from.SenderIDU),
                               Access::TextOf(from.SenderWSName), Access::TextOf(from.SenderWGName),
                               Access::TextOf(from.SenderUserName), flags, from.RegNum);
}

void CopyTimeAndCryptInfo(Record& to, const Record& from) {
  to.CreationTime = from.CreationTime;
  std::copy(std::begin(from.CryptInfo), std::end(from.CryptInfo), to.CryptInfo);
}

// The field of the letter path brings the rest of a long subject along.
void CopyFields(Record& to, const Record& from) {
  CopyTimeAndCryptInfo(to, from);
  std::memcpy(to.LetterPath, from.LetterPath, sizeof to.LetterPath);
  std::memcpy(to.Key, from.Key, sizeof to.Key);
  std::memcpy(to.KeyIntegrity, from.KeyIntegrity, sizeof to.KeyIntegrity);
  std::memcpy(to.KeyInit, from.KeyInit, sizeof to.KeyInit);
  std::memcpy(to.KeyGroup, from.KeyGroup, sizeof to.KeyGroup);
  if ((from.Flag & docflag::Deleted) != 0) to.DeletedTime = from.DeletedTime;
}

// Without a file a name that a damaged record makes too long need not stay.
CMSAttachment AddCopy(CMSDocument& letter, const CMSLetterSnapshot::Attachment& source, long flag) {
  constexpr std::size_t kLongestName = 240;
  const std::string name = CKitFile::BaseName(source.path) + CKitFile::Extension(source.path);
  const bool dropsName = (flag & attachmentflag::FileRemoved) != 0 && name.size() > kLongestName;
  return letter.AddAttachment(dropsName ? CKitString() : CKitString(source.path), false,
                              Access::TextOf(source.record.Name),
                              Access::TextOf(source.record.AttachmentName), flag);
}

// Date text would lose the seconds, so the times follow on their own.
CMSRecipient AddCopy(CMSDocument& letter, const CMSRecipientData& from) {
  const auto text = [](const auto& field) { return Access::TextOf(field); };
  CMSRecipient copy =
      letter.AddRecipient("", text(from.TransEnvFileName), text(from.ObsoleteNetAddr),
                          text(from.IDWS), text(from.IDWG), text(from.IDU), text(from.WSName),
                          text(from.WGName), text(from.UserName), text(from.Annotation),
                          text(from.Receiver), "", text(from.Reader), "", from.Flag, from.Category);
  if (!copy) return copy;
  ChangeRecord(copy, [&](CMSRecipientData& to) {
    to.PackTime = from.PackTime;
    to.ReceiveTime = from.ReceiveTime;
    to.ReadTime = from.ReadTime;
  });
  return copy;
}

// The flag for the copy: an attachment whose file is gone gets none either.
long FlagForCopy(const CMSLetterSnapshot::Attachment& source, bool missingFiles) {
  const long flag = source.record.Flag;
  if ((flag & attachmentflag::FileRemoved) != 0) return flag;
  if (!source.path.empty() && CKitFile::Exists(source.path)) return flag;
  if (missingFiles) return flag | attachmentflag::FileRemoved;
  const CKitString stored = Access::TextOf(source.record.InternalFileName);
  throw XKitStatus(
      kit::kStatusAttachmentMissing,
      KitFormat("the letter with ID %lu cannot be copied: the file '%s' of its attachment with "
                "ID %lu is missing",
                static_cast<unsigned long>(source.record.DocID),
                source.path.empty() ? stored.c_str() : source.path.c_str(), source.handle.ID()));
}

// Answers the ID of the copy's body; 0 when the source has none.
std::uint32_t CopyAttachments(CMSDocument& letter, const CMSLetterSnapshot& source,
                              bool missingFiles) {
  std::uint32_t body = 0;
  for (const auto& from : source.attachments) {
    CMSAttachment copy = AddCopy(letter, from, FlagForCopy(from, missingFiles));
    if (!copy) throw CMSDocument::XCloneError();
    copy.Attributes(from.record.Attributes);
    copy.DateTime(CKitDateTime(from.record.DateTime));
    copy.Size(from.record.Size);
    if (from.handle.ID() == source.record.BodyID) body = static_cast<std::uint32_t>(copy.ID());
  }
  return body;
}

void CopyRecipients(CMSDocument& letter, const CMSLetterSnapshot& source) {
  for (const auto& from : source.recipients) {
    if (!AddCopy(letter, from.record)) throw CMSDocument::XCloneError();
  }
}

// A copy that fails is taken back.
struct CUndoableBatch : CMSBatch {
  explicit CUndoableBatch(const CMSMessageStore& store) : CMSBatch(store, Entries::OneByOne) {}
};

// What became of the letter with this recipient is left out.
CMSRecipientData WithoutState(CMSRecipientData data) {
  data.Flag = 0;
  data.PackTime = data.ReceiveTime = data.ReadTime = 0;
  data.TransEnvFileName[0] = data.Receiver[0] = data.Reader[0] = 0;
  return data;
}

template <class Handle>
bool IsIn(const std::list<Handle>* handles, const Handle& handle) {
  return handles != nullptr &&
         std::find(handles->begin(), handles->end(), handle) != handles->end();
}

// A record that the store refused, which is reported already.
template <class Handle>
void RequireCopied(const Handle& copy, const CMSDocument& letter, const Handle& source) {
  if (copy) return;
  throw CMSDBException(CMSDBException::kWriteFailed,
                       KitFormat("the letter with ID %lu cannot take in a copy of the object with "
                                 "ID %lu: its record was refused",
                                 letter.ID(), source.ID()));
}

}  // namespace

CMSDocument CMSDocument::BlankCopy(CMSFolder& target) const {
  const Record source = HeaderOf(*this);
  RequireWritable(StoreOf(target));
  CUndoableBatch batch(target.MS());
  CMSDocument copy = CreateHeader(target, source, source.Flag & ~docflag::Complete);
  if (copy) ChangeRecord(copy, [&](Record& record) { CopyTimeAndCryptInfo(record, source); });
  batch.Commit();
  return copy;
}

CMSDocument CMSDocument::Clone(CMSFolder& target, bool missingFiles) const {
  CMSLetterCopy copy(*this, target, missingFiles);
  CUndoableBatch batch(target.MS());
  copy.Make();
  batch.Commit();  // nothing passes for whole before all of it is safe
  copy.Finish();
  batch.Commit();
  return copy.Keep();
}

CMSLetterCopy::CMSLetterCopy(const CMSDocument& source, CMSFolder& target, bool missingFiles)
    : m_source(SnapshotOf(source)),
      m_target(target),
      m_missingFiles(missingFiles),
      m_withheld(m_source->record.Flag & kWithheld) {}

CMSLetterCopy::~CMSLetterCopy() {
  if (!m_copy) return;
  try {
    Withdraw();
  } catch (const std::exception& error) {
    // The exception on its way out tells what failed first; this one can only be noted.
    LogEvent(severity::Error, error.what(), "ms\\Source\\Copy", 1);
  }
}

void CMSLetterCopy::Make() {
  RequireWritable(StoreOf(m_target));
  const Record& header = m_source->record;
  m_copy = CreateHeader(m_target, header, header.Flag & ~kWithheld);
  if (!m_copy) throw CMSDocument::XCloneError();
  StoreOf(m_copy).Change(
      [&] { Access::Write(m_copy, [&](Record& record) { CopyFields(record, header); }); });
  m_body = CopyAttachments(m_copy, *m_source, m_missingFiles);
  CopyRecipients(m_copy, *m_source);
  m_source.reset();
}

void CMSLetterCopy::Finish() {
  CMSMessageStoreImp& store = StoreOf(m_copy);
  store.Change([&] {
    const Share before = ShareOf(m_copy);
    Access::Write(m_copy, [&](Record& record) {
      record.Flag = static_cast<std::int32_t>(record.Flag | m_withheld);
      if (m_body != 0) record.BodyID = m_body;
    });
    const Share after = ShareOf(m_copy);
    if (const CMSFolder parent = m_copy.Parent())
      parent.AdjustExtraCounters(after.unread - before.unread,
                                 after.undelivered - before.undelivered);
    store.Listeners().DocumentAdded(m_copy);
    store.Listeners().DocumentChanged(m_copy);
  });
}

// The files go with the payment, so it is made here. In a store that refuses changes by now, the
// mark is all that can be done, and tells a repair to remove the rest.
void CMSLetterCopy::Withdraw() {
  CUndoableBatch batch(m_copy.MS());
  Access::Write(m_copy, [](Record& record) {
    record.Flag = static_cast<std::int32_t>((record.Flag & ~docflag::Complete) | docflag::Deleted);
  });
  if (CMSFolder parent = m_copy.Parent()) parent.DeleteDocument(m_copy);
  batch.Commit();
}

void CMSDocument::AcceptRecipients(const CMSDocument& source, const std::list<CMSRecipient>* except,
                                   bool keepState) {
  const CMSLetterSnapshot letter = SnapshotOf(source);
  RequireWritable(StoreOf(*this));
  CUndoableBatch batch(MS());
  for (const auto& from : letter.recipients) {
    if (from.record.DocID != source.ID() || IsIn(except, from.handle)) continue;
    RequireCopied(AddCopy(*this, keepState ? from.record : WithoutState(from.record)), *this,
                  from.handle);
  }
  batch.Commit();
}

void CMSDocument::AcceptAttachments(const CMSDocument& source,
                                    const std::list<CMSAttachment>* except) {
  const CMSLetterSnapshot letter = SnapshotOf(source);
  RequireWritable(StoreOf(*this));
  CUndoableBatch batch(MS());
  for (const auto& from : letter.attachments) {
    if (from.record.DocID != source.ID() || IsIn(except, from.handle)) continue;
    CMSAttachment copy = AddCopy(*this, from, from.record.Flag);
    RequireCopied(copy, *this, from.handle);
    copy.Size(from.record.Size);
    copy.DateTime(CKitDateTime(from.record.DateTime));
  }
  batch.Commit();
}

CMSAttachment CMSAttachment::Clone(CMSDocument&) {
  return {};
}

CMSRecipient CMSRecipient::Clone(CMSDocument&) {
  return {};
}
