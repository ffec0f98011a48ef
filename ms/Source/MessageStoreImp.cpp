#include "MessageStoreImp.h"

#include <algorithm>
#include <atomic>

#include "Convert.h"
#include "EngineContext.h"
#include "Errors.h"
#include "StoreFiles.h"
#include "kit/KitErrors.h"
#include "kit/KitFile.h"
#include "kit/KitFolder.h"
#include "kit/KitString.h"
#include "kit/LogDispatcher.h"

namespace {

std::atomic<long> g_nextSerialNumber{1};

constexpr std::uint32_t kRootID = 1;
constexpr char kActive[] = "Active";
// Entries of the counter cache that a crash may cost a client that has only asked for them.
constexpr unsigned kMostAskedFor = 256;

template <class T>
std::uint32_t HighestKey(CMSObjectDB<T>& database) {
  std::uint32_t highest = 0;
  const auto look = [&](std::uint32_t key) {
    if (key <= kMaxObjectID) highest = std::max(highest, key);
  };
  const CMSIndex& index = database.File().Index();
  look(index.GreatestKey());
  // Keys that no object can have hide the others behind them.
  if (index.GreatestKey() > kMaxObjectID)
    index.ForEach([&](std::uint32_t key, std::uint32_t) { look(key); });
  // An index that has lost entries does not tell all keys; the records do.
  if (index.Size() != database.File().UsedCount()) database.File().ForEachKey(look);
  return highest;
}

}  // namespace

CMSMessageStoreImp::CMSMessageStoreImp(const OpenArguments& arguments)
    : m_readOnly(arguments.readOnly),
      m_directory(CKitFile::FullName(arguments.directory)),
      m_name(arguments.name),
      m_serialNumber(g_nextSerialNumber++),
      m_isDefault(arguments.isDefault),
      m_durability(arguments.level, m_directory),
      m_master(m_durability, m_directory, m_readOnly) {
  const CSharedLocker guard(m_lock);
  Open(arguments);
}

CMSMessageStoreImp::~CMSMessageStoreImp() {
  const CSharedLocker guard(m_lock);
  // Should it not come to its end, the members let all files go, and the state stays "Active".
  RunOrLog([this] { Close(); }, "ms\\Source\\MessageStoreImp", __LINE__);
}

template <class Body>
void CMSMessageStoreImp::ForEachDatabase(Body body) const {
  body(*m_attachments);
  body(*m_recipients);
  body(*m_documents);
  body(*m_folders);
}

// As long as a handle on the store itself is left, nobody needs to know how many there are on its
// objects. Only one thread can give the last one of the former back first.
void CMSMessageStoreImp::Release() {
  if (!m_handlesAreTold) {
    if (ReleaseUnlessLast()) return;
    if (!m_handlesAreTold.exchange(true))
      ForEachDatabase([](auto& database) { database.TellStore(); });
  }
  CKitReference::Release();
}

bool CMSMessageStoreImp::IsSingleOwned() const {
  bool isInUse = false;
  ForEachDatabase([&](auto& database) { isInUse = isInUse || database.IsInUse(); });
  return !isInUse && CKitReference::IsSingleOwned();
}

void CMSMessageStoreImp::Open(const OpenArguments& arguments) {
  if (!m_readOnly) MakeDirectory();
  CMSConverter(m_directory, CMSMessageStore::s_bCheckDataConverting)
      .Run(arguments.keys, arguments.key, arguments.group);
  if (storefiles::IsHalfReplaced(m_directory))
    throw CMSDBException(CMSDBException::kCannotOpen,
                         "cannot open '" + m_directory +
                             "': a repair has replaced a part of its files; another one has to "
                             "finish that",
                         storefiles::IsUnderMaintenance(m_directory));
  const bool isNew = !storefiles::IsComplete(m_directory, m_readOnly, arguments.informer);
  try {
    OpenFiles(isNew);
  } catch (...) {
    // What ended the making is what the client has to hear of.
    if (isNew && !m_readOnly)
      RunOrLog([this] { DropNewFiles(); }, "ms\\Source\\MessageStoreImp", __LINE__);
    throw;
  }
}

void CMSMessageStoreImp::OpenFiles(bool isNew) {
  if (!isNew) m_master.CheckReadable();
  const bool wasCutOff = !isNew && !m_readOnly && m_master.ReadState() == kActive;
  // There is nothing to read in a directory without a store: no trace of the attempt stays behind.
  if (!isNew || !m_readOnly) MarkActive();
  OpenDatabases();
  if (storefiles::IsBeingReplaced(m_directory))
    throw CMSDBException(CMSDBException::kCannotOpen,
                         "cannot open '" + m_directory + "': the store is being repaired", true);
  // Whoever held the files until now may have written its last values meanwhile.
  if (!isNew || !m_readOnly) MarkActive();
  // Nobody holds it any more, so it was not closed, and what it counted last need not be there.
  if (wasCutOff && !m_master.DropAllExtraFolderData()) CannotWriteMaster("the counts of folders");
  ReadCounters();
  if (!m_readOnly) DropPacketsWithoutRecipient();
  RaiseLastID();
  // A store without any folder is one whose making was cut short before it came to the root.
  if (!m_readOnly && (isNew || m_folders->File().UsedCount() == 0)) CreateRoot();
}

// A writer that could not be seen to be active would pass for one that closed, should it be cut
// off.
void CMSMessageStoreImp::MarkActive() {
  if (!m_master.SetState(kActive) && !m_readOnly) CannotWriteMaster("the state of the store");
}

void CMSMessageStoreImp::CannotWriteMaster(const std::string& what) const {
  throw XKitFile(XKitFile::Cause::Other, 0, m_master.Path(),
                 "cannot write " + what + " to '" + m_master.Path() + "'");
}

// Whether there is nothing in the store but, perhaps, its root. Databases that are not open count
// by the length of their files.
bool CMSMessageStoreImp::IsBlank() const {
  constexpr std::uint64_t kLongestHeader = sizeof(CMSFileHeader);
  const auto isShort = [this](const char* name) {
    return CKitFile::Info(CKitFile::Join(m_directory, name)).length <= kLongestHeader;
  };
  return (m_attachments != nullptr ? m_attachments->File().UsedCount() == 0
                                   : isShort("attach3.db")) &&
         (m_recipients != nullptr ? m_recipients->File().UsedCount() == 0 : isShort("rcpt3.db")) &&
         (m_documents != nullptr ? m_documents->File().UsedCount() == 0 : isShort("docs3.db")) &&
         (m_folders != nullptr ? m_folders->File().UsedCount() <= 1 : isShort("folders3.db"));
}

// What keeps others out when the first database itself could not be made.
bool CMSMessageStoreImp::TakeFirstFile(std::unique_ptr<platform::File>& file) const {
  const platform::OpenOptions options{platform::Access::ReadWrite,
                                      platform::Disposition::OpenOrCreate,
                                      platform::Sharing::ReadOnly};
  return platform::Files().Open(CKitFile::Join(m_directory, "attach3.idx"), options, file).Ok();
}

// A store whose making failed must not stand in the way of the next try. The first database is the
// one that keeps others out, so it is closed last, and without it nothing here is ours. It is not
// needed where nobody can remove what others have opened meanwhile.
void CMSMessageStoreImp::DropNewFiles() {
  std::unique_ptr<platform::File> first;
  if (m_attachments == nullptr && !TakeFirstFile(first)) return;
  if (!IsBlank()) return;
  m_packets.reset();
  m_relations.reset();
  m_folders.reset();
  m_documents.reset();
  m_recipients.reset();
  if (!platform::OpenFilesCanBeRemoved()) {
    m_attachments.reset();
    first.reset();
  }
  for (const char* name : storefiles::kRequired) {
    const platform::Status status = platform::Files().Remove(CKitFile::Join(m_directory, name));
    if (!status.Ok() && status.Why() != platform::Cause::NotFound)
      LogEvent(severity::Error,
               ("cannot remove '" + std::string(name) + "': " + status.Text()).c_str(),
               "ms\\Source\\MessageStoreImp", __LINE__);
  }
  m_attachments.reset();
}

void CMSMessageStoreImp::MakeDirectory() {
  std::vector<std::string> parents;
  for (std::string path = m_directory; !path.empty() && !CKitFolder::Exists(path);
       path = CKitFile::DirectoryName(path))
    parents.push_back(CKitFile::DirectoryName(path));
  CKitFolder::MakePath(m_directory);
  for (const std::string& parent : parents) m_durability.DirectoryChanged(parent);
}

void CMSMessageStoreImp::ReadCounters() {
  const auto counters = m_master.ReadCounters();
  m_lastID = counters.lastID;
  m_size = counters.size;
}

void CMSMessageStoreImp::OpenDatabases() {
  const CMSEngineContext context{g_MSBaseInformer, m_durability, m_readOnly};
  m_attachments =
      std::make_unique<CMSObjectDB<CMSAttachmentData>>(context, m_directory, "attach3", this);
  m_recipients =
      std::make_unique<CMSObjectDB<CMSRecipientData>>(context, m_directory, "rcpt3", this);
  m_documents = std::make_unique<CMSObjectDB<CMSDocumentData>>(context, m_directory, "docs3", this);
  m_folders = std::make_unique<CMSObjectDB<CMSFolderData>>(context, m_directory, "folders3", this);
  m_relations = std::make_unique<CMSRelationsDB>(context, m_directory, "rltns3");
  m_packets = std::make_unique<CMSPacketTable>(context, m_directory, "packets3");
}

// A name without its recipient is the trace of a deletion that was cut short.
void CMSMessageStoreImp::DropPacketsWithoutRecipient() {
  m_packets->DropEntriesWithoutRecipient(m_recipients->File().Index());
}

// Whatever became of the master file, no ID is issued twice.
void CMSMessageStoreImp::RaiseLastID() {
  if (m_lastID > kMaxObjectID) m_lastID = kRootID;
  m_lastID = std::max({m_lastID, HighestKey(*m_attachments), HighestKey(*m_recipients),
                       HighestKey(*m_documents), HighestKey(*m_folders)});
}

void CMSMessageStoreImp::CreateRoot() {
  Change([&] {
    if (!GetFolder(kRootID) && !CreateFolder(kRootID, 0, "Root", "", 0))
      m_folders->File().ThrowRefusal();
  });
}

// The state tells of a clean close only once everything else is known to be on the medium, and
// while nobody else can have opened the store: the first file of an opening is the last one let go.
void CMSMessageStoreImp::Close() {
  const bool saved = SaveCounters();
  if (!saved && !m_readOnly)
    LogEvent(severity::Error, ("cannot save the counters in '" + m_master.Path() + "'").c_str(),
             "ms\\Source\\MessageStoreImp", __LINE__);
  const bool whole = saved && !m_wasCutShort;
  const bool safe = m_readOnly || (m_durability.PayAll() && whole);
  m_folders.reset();
  m_recipients.reset();
  m_documents.reset();
  m_relations.reset();
  m_packets.reset();
  if (safe) m_master.SetState(MSF::szClosedStateKeyValue);
  m_attachments.reset();
}

bool CMSMessageStoreImp::SaveCounters() {
  m_countersDue = false;
  m_askedFor = 0;
  return m_master.SaveCounters({m_lastID, m_size});
}

void CMSMessageStoreImp::CheckWritable() const {
  if (m_readOnly)
    throw XKitStatus(kit::kStatusReadOnly,
                     "the store '" + m_directory + "' is open for reading only");
  m_changes == 0 ? m_durability.CheckHealthy() : m_durability.CheckMayWrite();
}

std::uint32_t CMSMessageStoreImp::IssueID() {
  const CSharedLocker guard(m_lock);
  CheckWritable();
  if (m_lastID >= kMaxObjectID)
    throw XKitMsg("the store '" + m_directory + "' has used up its object IDs");
  ++m_lastID;
  CountersChanged();
  return m_lastID;
}

std::uint32_t CMSMessageStoreImp::LastID() const {
  const CSharedLocker guard(m_lock);
  return m_lastID;
}

void CMSMessageStoreImp::OnAttachmentSizeChanged(long difference) {
  const CSharedLocker guard(m_lock);
  m_size += static_cast<std::uint32_t>(difference);
  CountersChanged();
}

// They are written once as the outermost change or batch of the thread ends: a crash before that
// costs nothing that an opening or a repair does not find again.
void CMSMessageStoreImp::CountersChanged() {
  m_countersDue = true;
  if (!m_durability.IsWithin()) SaveDueCounters();
}

void CMSMessageStoreImp::SaveDueCounters() {
  const CSharedLocker guard(m_lock);
  if (!m_countersDue) return;
  m_askedForMost = 1;
  SaveCounters();
}

void CMSMessageStoreImp::SaveFolderCounters(std::uint32_t folder, std::string entry) {
  const CSharedLocker guard(m_lock);
  if (!m_master.SaveExtraFolderData(folder, std::move(entry))) return;
  if (m_durability.IsWithin())
    CountersChanged();
  else
    CountersAskedFor();
}

void CMSMessageStoreImp::DropFolderCounters(std::uint32_t folder) {
  const CSharedLocker guard(m_lock);
  if (m_master.DropExtraFolderData(folder)) CountersChanged();
}

// A new entry costs a new file. Who asks for one folder finds it there at once, and who goes over
// thousands of them does not pay for a file each.
void CMSMessageStoreImp::CountersAskedFor() {
  if (++m_askedFor < m_askedForMost) return;
  m_askedForMost = std::min(2 * m_askedForMost, kMostAskedFor);
  SaveCounters();
}

unsigned long CMSMessageStoreImp::FullSize() const {
  const CSharedLocker guard(m_lock);
  return m_size;
}

void CMSMessageStoreImp::SetCmpDocs(bool (*compare)(const CMSDocument&, const CMSDocument&)) {
  const CSharedLocker guard(m_lock);
  m_compare = compare;
}

bool (*CMSMessageStoreImp::CmpDocs() const)(const CMSDocument&, const CMSDocument&) {
  const CSharedLocker guard(m_lock);
  return m_compare;
}

CMSStoreChange::CMSStoreChange(CMSMessageStoreImp& store) : m_store(store) {
  m_store.m_lock.Lock();
  try {
    m_store.CheckWritable();
    m_store.m_durability.Begin();
  } catch (...) {
    m_store.m_lock.Unlock();
    throw;
  }
  ++m_store.m_changes;
  m_changesBefore = m_store.m_durability.Changes();
}

// A change that got somewhere and was cut off leaves something for the next check to look at.
CMSStoreChange::~CMSStoreChange() {
  if (!m_open) return;
  if (m_store.m_durability.Changes() != m_changesBefore) m_store.m_wasCutShort = true;
  --m_store.m_changes;
  m_store.m_durability.End();
  m_store.m_lock.Unlock();
}

void CMSStoreChange::Commit() {
  if (m_store.m_durability.IsOutermost()) m_store.SaveDueCounters();
  m_open = false;
  const bool isPart = --m_store.m_changes != 0;  // of a change that is to come to its end
  m_store.m_lock.Unlock();
  isPart ? m_store.m_durability.End() : m_store.m_durability.Commit();
}
