// Taking attachments in and giving them up, files included.
//
// The copy of a file is made before the change that records it, without any lock, and goes again
// when that change does not come about. A file is removed only after the change that gave up its
// record: a crash in between leaves a file without a record, which does no harm.
#include <string_view>
#include <vector>

#include "AttachmentFiles.h"
#include "FieldSetters.h"
#include "Rollback.h"
#include "kit/KitFile.h"
#include "kit/KitFolder.h"
#include "kit/LogDispatcher.h"

using Access = CMSFieldAccess;
using Record = CMSAttachmentData;

namespace {

constexpr char kBodyFile[] = "blank.txt";

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

// A directory of its own for one file, removed with the file unless Keep is called. Without a file
// yet, only its name is chosen: the directory comes with the file (CMSAttachment::Get).
class CMSDocument::CPlacedFile {
 public:
  CPlacedFile(CMSMessageStoreImp& store, const std::string& name, bool withFile)
      : m_store(store), m_path(Place(store, name, withFile)) {}
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
  static std::string Place(CMSMessageStoreImp& store, const std::string& name, bool withFile) {
    return withFile ? attachmentfiles::MakePlace(store.Directory(), name, store.Durability())
                    : CKitFile::Join(CKitFolder::UniqueDirectoryName(store.Directory()), name);
  }

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
  const bool withFile = (flag & attachmentflag::FileRemoved) == 0;
  if (withFile) PutSource(data, source);
  CPlacedFile place(store, FileNameOf(source), withFile);
  PutChecked(data.InternalFileName, place.Stored(), "path of the stored file");
  if (withFile) attachmentfiles::CopyIn(source, place.Path(), store.Durability());
  CMSAttachment attachment = LinkAttachment(data, place);
  if (attachment && withFile && move) RemoveSource(store, source, flag);
  return attachment;
}

CMSAttachment CMSDocument::CreateEmptyLetterText() {
  CMSMessageStoreImp& store = StoreOf(*this);
  RequireWritable(store);
  Record data = NewRecord(kBodyFile, kBodyFile, attachmentflag::Body);
  data.DateTime = CKitDateTime::Now().Seconds();
  CPlacedFile place(store, kBodyFile, true);
  PutChecked(data.InternalFileName, place.Stored(), "path of the stored file");
  attachmentfiles::CreateEmpty(place.Path(), store.Durability());
  return LinkAttachment(data, place);
}

// Record, link and totals. The letter may have gone while the file was being copied.
CMSAttachment CMSDocument::LinkAttachment(Record& data, CPlacedFile& place) {
  CMSMessageStoreImp& store = StoreOf(*this);
  return store.Change([&] {
    RequireAlive(*this);
    data.DocID = static_cast<std::uint32_t>(ID());
    const auto before = Access::Read(*this, [](const CMSDocumentData& record) { return record; });
    place.Named();
    CMSAttachment attachment = store.CreateAttachment(data);
    if (!attachment) return attachment;
    place.Keep();
    Rollback undo([&] {
      Access::Write(*this, [&](CMSDocumentData& record) { record = before; });
      place.Keep(!store.RemoveAttachment(attachment));
    });
    IncAttachmentCount();
    OnAttachmentFlagChanged(attachment, 0);
    OnAttachmentSizeChanged(attachment, data.Size);
    undo.Disarm();
    return attachment;
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
  const Record data = Access::Read(attachment, [](const Record& record) { return record; });
  const bool wasUnread = IsUnread() || IsMarkedAsUnread();
  if (!store.RemoveAttachment(attachment)) return {};
  Access::Write(*this, [&](CMSDocumentData& record) {
    if (record.BodyID == id) record.BodyID = 0;
  });
  AddSize(WrappedDifference(0, data.Size));
  DecAttachmentCount();
  if ((data.Flag & attachmentflag::Encrypted) != 0) StoreEncryptedState();
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
