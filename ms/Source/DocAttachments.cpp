// Taking attachments in and giving them up, files included.
//
// The copy of a file is made before the change that records it, without any lock, and goes again
// when that change does not come about. A file is removed only after the change that gave up its
// record: a crash in between leaves a file without a record, which does no harm.
#include <string_view>
#include <vector>

#include "AttachmentFiles.h"
#include "DocRecord.h"
#include "FieldSetters.h"
#include "Rollback.h"
#include "kit/KitFile.h"
#include "kit/KitFolder.h"
#include "kit/LogDispatcher.h"

using Access = CMSFieldAccess;
using Record = CMSAttachmentData;

namespace {

constexpr char kBodyFile[] = "blank.txt";
constexpr char kStoredPath[] = "path of the stored file";

// The source's own name, without what could be taken for a path or is no name on some platform.
std::string FileNameOf(const std::string& source) {
  constexpr std::string_view kForbidden = "\\/:*?\"<>|";
  std::string name = CKitFile::BaseName(source) + CKitFile::Extension(source);
  for (char& c : name) {
    if (kForbidden.find(c) != std::string_view::npos || (c >= 0 && c < ' ')) c = '_';
  }
  return name.empty() || name == "." || name == ".." ? "unnamed" : name;
}

Record NewRecord(const std::string& name, const std::string& sourceName, long flag) {
  Record data{};
  PutChecked(data.Name, name, "attachment name");
  PutChecked(data.AttachmentName, sourceName, "attachment's source name");
  data.Flag = static_cast<std::int32_t>(flag);
  return data;
}

void PutSource(Record& data, const std::string& source) {
  const auto info = attachmentfiles::Describe(source);
  data.Attributes = info.attributes;
  data.DateTime = info.modified;
  data.Size = info.length;
}

// What was secret, or is now, leaves no readable remains. The copy must be safe before.
void RemoveSource(CMSMessageStoreImp& store, const std::string& source, long flag) {
  store.Durability().Pay();
  store.Durability().CheckHealthy();
  if ((flag & (attachmentflag::Encrypted | attachmentflag::Body)) == 0) {
    CKitFile::RemoveEx(source);
  } else {
    ZeroAndDeleteFile(source);
  }
}

}  // namespace

// A directory of its own for one file, removed with the file unless Keep is called.
class CMSDocument::CPlacedFile {
 public:
  CPlacedFile(CMSMessageStoreImp& store, const std::string& name)
      : m_store(store),
        m_path(attachmentfiles::MakePlace(store.Directory(), name, store.Durability())) {}
  CPlacedFile(const CPlacedFile&) = delete;
  CPlacedFile& operator=(const CPlacedFile&) = delete;
  ~CPlacedFile() {
    // A store that takes no more changes may not have got rid of the record either: a file without
    // a record does no harm, a record without its file does.
    if (m_kept || (m_named && m_store.Durability().HasFailed())) return;
    // The exception on its way out tells what failed first; another one can only be noted.
    RunOrLog(
        [this] { attachmentfiles::Remove(m_store.Directory(), Stored(), m_store.Durability()); },
        "ms\\Source\\DocAttachments", 1);
  }
  const std::string& Path() const { return m_path; }
  std::string Stored() const { return attachmentfiles::ToStored(m_store.Directory(), m_path); }
  void Keep(bool keep = true) { m_kept = keep; }
  // From here on there may be a record of it.
  void Named() { m_named = true; }

 private:
  CMSMessageStoreImp& m_store;
  const std::string m_path;
  bool m_kept = false;
  bool m_named = false;
};

CMSAttachment CMSDocument::AddAttachment(const CKitString& source, bool move,
                                         const CKitString& name, const CKitString& sourceName,
                                         long flag) {
  CMSMessageStoreImp& store = StoreOf(*this);
  RequireWritable(store);
  Record data = NewRecord(name, sourceName, flag);
  if ((flag & attachmentflag::FileRemoved) != 0) return LinkWithoutFile(data, FileNameOf(source));
  PutSource(data, source);
  CPlacedFile place(store, FileNameOf(source));
  attachmentfiles::CopyIn(source, place.Path(), store.Durability());
  CMSAttachment attachment = LinkAttachment(data, place);
  if (attachment && move) RemoveSource(store, source, flag);
  return attachment;
}

CMSAttachment CMSDocument::CreateEmptyLetterText() {
  CMSMessageStoreImp& store = StoreOf(*this);
  RequireWritable(store);
  Record data = NewRecord(kBodyFile, kBodyFile, attachmentflag::Body);
  data.DateTime = CKitDateTime::Now().Seconds();
  CPlacedFile place(store, kBodyFile);
  attachmentfiles::CreateEmpty(place.Path(), store.Durability());
  return LinkAttachment(data, place);
}

// The letter may have gone while the file was being copied.
CMSAttachment CMSDocument::LinkAttachment(Record& data, CPlacedFile& place) {
  PutChecked(data.InternalFileName, place.Stored(), kStoredPath);
  CMSMessageStoreImp& store = StoreOf(*this);
  return store.Change([&] {
    RequireAlive(*this);
    place.Named();
    return LinkRecord(data, store.IssueID(), &place);
  });
}

// The directory, which is named after the ID, comes with the file (CMSAttachment::Get).
CMSAttachment CMSDocument::LinkWithoutFile(Record& data, const std::string& name) {
  CMSMessageStoreImp& store = StoreOf(*this);
  return store.Change([&] {
    RequireAlive(*this);
    const std::uint32_t id = store.IssueID();
    PutChecked(data.InternalFileName, attachmentfiles::NameWithoutFile(id, name), kStoredPath);
    return LinkRecord(data, id, nullptr);
  });
}

// Record, link and totals. place: of the file, if there is one.
CMSAttachment CMSDocument::LinkRecord(Record& data, std::uint32_t id, CPlacedFile* place) {
  CMSMessageStoreImp& store = StoreOf(*this);
  data.DocID = static_cast<std::uint32_t>(ID());
  const CMSDocumentData before = Access::Copy(*this);
  CMSAttachment attachment = store.CreateAttachment(id, data);
  if (!attachment) return attachment;
  if (place != nullptr) place->Keep();
  Rollback undo([&] {
    Access::Write(*this, [&](CMSDocumentData& record) { record = before; });
    const bool isGone = store.RemoveAttachment(attachment);
    if (place != nullptr) place->Keep(!isGone);
  });
  CountIn(attachment, data);
  NotifyReadBy(attachment, 0);
  undo.Disarm();
  store.OnAttachmentSizeChanged(data.Size);
  return attachment;
}

// All at once, so that the letter's record is never half changed.
void CMSDocument::CountIn(const CMSAttachment& attachment, const Record& data) {
  Access::Write(*this, [&](CMSDocumentData& record) {
    record.AttachmentCount = WrappedSum(record.AttachmentCount, 1);
    record.Size = record.Size + static_cast<std::uint32_t>(std::int32_t{data.Size});
    if ((data.Flag & attachmentflag::Body) != 0)
      record.BodyID = static_cast<std::uint32_t>(attachment.ID());
    if ((data.Flag & attachmentflag::Encrypted) != 0) NoteEncryption(record);
  });
}

void CMSDocument::DeleteAttachment(CMSAttachment& attachment) {
  CMSMessageStoreImp& store = StoreOf(*this);
  const std::string file = store.Change([&] { return UnlinkAttachment(attachment); });
  if (!file.empty()) store.RemoveFiles({file});
}

std::string CMSDocument::UnlinkAttachment(CMSAttachment& attachment) {
  CMSMessageStoreImp& store = StoreOf(*this);
  RequireSameStore(StoreOf(*this), attachment);
  if (attachment.DocID() != ID()) {
    Report(StoreOf(*this), "CMSDocument::DeleteAttachment detected mismatch in parent-child IDs");
    return {};
  }
  const auto id = static_cast<std::uint32_t>(attachment.ID());
  const Record data = Access::Copy(attachment);
  const bool wasUnread = IsUnread() || IsMarkedAsUnread();
  const bool wasEncrypted = (data.Flag & attachmentflag::Encrypted) != 0;
  const bool isLastEncrypted = wasEncrypted && !HasEncrypted(attachment);
  if (!store.RemoveAttachment(attachment)) return {};
  Access::Write(*this, [&](CMSDocumentData& record) {
    if (record.BodyID == id) record.BodyID = 0;
    record.AttachmentCount = WrappedSum(record.AttachmentCount, -1);
    record.Size = record.Size - static_cast<std::uint32_t>(std::int32_t{data.Size});
    if (isLastEncrypted) ForgetEncryption(record);
  });
  store.OnAttachmentSizeChanged(WrappedDifference(0, data.Size));
  store.Listeners().DocumentChanged(*this);
  if (wasUnread && !IsUnread() && !IsMarkedAsUnread()) NotifyRead();
  return Access::TextOf(data.InternalFileName);
}

void CMSDocument::RemoveAttachments() {
  CMSMessageStoreImp& store = StoreOf(*this);
  std::vector<std::string> files;
  store.Change([&] {
    if ((Flag() & attachmentflag::FileRemoved) != 0) return;
    std::list<CMSAttachment> attachments;
    Attachments(attachments);
    for (CMSAttachment& attachment : attachments) {
      if (attachment.DocID() != ID()) continue;  // another letter's; the walk has reported it
      const long flag = attachment.Flag();
      if ((flag & attachmentflag::RemoveEntirely) != 0) {
        files.push_back(UnlinkAttachment(attachment));
      } else {
        attachment.Flag(flag | attachmentflag::FileRemoved);
        files.push_back(Access::Text(attachment, &Record::InternalFileName));
      }
    }
    Flag(Flag() | attachmentflag::FileRemoved);
  });
  store.RemoveFiles(files);
}
