#include "RecordFile.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "Errors.h"
#include "OpenFile.h"
#include "kit/KitFile.h"

namespace {

constexpr std::size_t kHoldersAtOnce = 16;
constexpr std::uint32_t kBeforeFlags = 40;

constexpr char kWrongHeader[] = "DB %s has wrong file header";
constexpr char kMismatchReading[] = " DB %s detected mismatch in index and real data key (reading)";
constexpr char kMismatchWriting[] = " DB %s detected mismatch in index and real data key (writing)";
constexpr char kMismatchGetting[] =
    " DB %s detected mismatch in index and real data key (getting object)";

}  // namespace

CMSRecordFile::CMSRecordFile(const CMSEngineContext& context, const std::string& directory,
                             const std::string& name, std::uint32_t dataSize)
    : m_context(context),
      m_fileName(CKitFile::Join(directory, name + ".db")),
      m_dataSize(dataSize),
      m_index(context, directory, name) {
  const CSharedLocker guard(m_lock);
  m_holders.reserve(kHoldersAtOnce);  // no change under way shall fail for want of this
  Open(directory);
}

CMSRecordFile::~CMSRecordFile() = default;

void CMSRecordFile::Open(const std::string& directory) {
  m_file = OpenStoreFile(m_context, m_fileName);
  m_target = std::make_unique<CMSFileTarget>(m_context.durability, m_fileName, *m_file);
  if (!m_context.readOnly) m_context.durability.DirectoryChanged(directory);
  platform::FileInfo info;
  KitCheck(m_file->GetInfo(info), "examine", m_fileName);
  CMSFileHeader header;
  std::uint64_t length = info.length;
  if (length >= sizeof header) {
    std::size_t done = 0;
    const platform::Status status = m_file->Read(0, &header, sizeof header, done);
    if (!status.Ok() || done < sizeof header)
      throw CMSDBException(CMSDBException::kHeaderUnreadable,
                           "cannot read the header of '" + m_fileName + "'" +
                               (status.Ok() ? "" : ": " + status.Text()));
    if (!IsGood(header, length)) Corrupted(kWrongHeader);
  } else if (length == 0 && !m_context.readOnly) {
    CreateHeader();
    length = sizeof header;
  } else {
    Corrupted(kWrongHeader);
  }
  const platform::Status mapped = Map(length);
  if (!mapped.Ok())
    throw CMSDBException(CMSDBException::kCannotOpen,
                         "cannot map '" + m_fileName + "': " + mapped.Text());
}

bool CMSRecordFile::IsGood(const CMSFileHeader& header, std::uint64_t length) const {
  const std::uint64_t needed = header.DO + header.TC * ContainerSize();
  return header.SI == CMSFileHeader::kSignature && header.VE == CMSFileHeader::kVersion &&
         header.DO >= sizeof header && header.KS == CMSFileHeader::kKeySize &&
         header.DS == m_dataSize && header.TC >= header.UC &&
         (header.TC == header.UC) == (header.FI == kNoContainer) && needed <= length;
}

void CMSRecordFile::CreateHeader() {
  CMSFileHeader header;
  header.DS = m_dataSize;
  std::size_t done = 0;
  const platform::Status status = m_file->Write(0, &header, sizeof header, done);
  if (!status.Ok() && done != 0) KitCheck(m_file->Truncate(0), "truncate", m_fileName);
  if (!status.Ok())
    throw CMSDBException(CMSDBException::kWriteFailed,
                         "cannot write the header of '" + m_fileName + "': " + status.Text());
  KitCheck(m_file->Truncate(sizeof header), "truncate", m_fileName);
  m_target->Written(Kind::Primary);
}

platform::Status CMSRecordFile::Map(std::uint64_t length) {
  m_view.reset();
  const auto access = m_context.readOnly ? platform::Access::Read : platform::Access::ReadWrite;
  return m_file->Map(length, access, m_view);
}

std::uint32_t CMSRecordFile::UsedCount() const {
  const CSharedLocker guard(m_lock);
  return H().UC;
}

void CMSRecordFile::ForEachKey(const std::function<void(std::uint32_t)>& body) const {
  const CSharedLocker guard(m_lock);
  for (std::uint32_t i = 0; i < H().TC; ++i) {
    if (Container(i).InUse()) body(Container(i).key);
  }
}

CMSFileHeader CMSRecordFile::Header() const {
  const CSharedLocker guard(m_lock);
  return H();
}

std::uint32_t CMSRecordFile::Find(std::uint32_t key) {
  {
    const CReadLocker guard(m_lock);
    const auto index = m_index.Peek(key);
    if (!index) return 0;
    // What is asked for most, the flags of letters, lies at the end of a record. Fetched while the
    // head is compared, it costs a fifth less where no cache holds the records.
    if (*index < H().TC) __builtin_prefetch(Data(*index) + m_dataSize - kBeforeFlags);
    if (Peek(*index + 1, key) != nullptr) return *index + 1;
  }
  const CSharedLocker guard(m_lock);
  const auto index = m_index.Find(key);
  if (!index) return 0;
  if (*index >= H().TC || Container(*index).key != key)
    ReportCorruption(m_context, kMismatchGetting, m_fileName);
  return *index + 1;
}

const std::byte* CMSRecordFile::ReadReported(std::uint32_t number, std::uint32_t key) const {
  return BeginAccess(number, key, kMismatchReading, false);
}

const std::byte* CMSRecordFile::BeginRead(std::uint32_t number, std::uint32_t key) {
  const CSharedLocker guard(m_lock);
  const std::byte* data = BeginAccess(number, key, kMismatchReading, false);
  AddHolder();
  ++m_readers;
  return data;
}

std::byte* CMSRecordFile::BeginWrite(std::uint32_t number, std::uint32_t key, Kind kind) {
  const CSharedLocker guard(m_lock);
  m_context.CheckWritable(m_fileName);
  BeginAccess(number, key, kMismatchWriting, true);
  AddHolder();
  ++m_writers;
  RaiseDC(kind);
  return Data(number - 1);
}

// A read of the wrong record is tolerated, a write into one is not. A number beyond the file's end
// names no bytes to give at all.
const std::byte* CMSRecordFile::BeginAccess(std::uint32_t number, std::uint32_t key,
                                            const char* mismatch, bool writing) const {
  const std::uint32_t index = number - 1;
  const bool inside = index < H().TC;
  if (!inside || Container(index).key != key) {
    if (writing || !inside) Corrupted(mismatch);
    ReportCorruption(m_context, mismatch, m_fileName);
  }
  return Data(index);
}

void CMSRecordFile::EndRead() {
  const CSharedLocker guard(m_lock);
  --m_readers;
  RemoveHolder();
  GrowIfAskedFor();
}

void CMSRecordFile::EndWrite(std::uint32_t number, Kind kind) {
  const CSharedLocker guard(m_lock);
  m_target->Changed(kind, *m_view, OffsetOf(number - 1) + sizeof(CMSContainerHead), m_dataSize);
  LowerDC(kind);
  --m_writers;
  RemoveHolder();
  GrowIfAskedFor();
}

void CMSRecordFile::AddHolder() {
  const auto self = std::this_thread::get_id();
  for (auto& holder : m_holders) {
    if (holder.thread == self) {
      ++holder.count;
      return;
    }
  }
  m_holders.push_back({self, 1});
}

void CMSRecordFile::RemoveHolder() {
  const auto self = std::this_thread::get_id();
  const auto holder = std::find_if(m_holders.begin(), m_holders.end(),
                                   [self](const Holder& h) { return h.thread == self; });
  if (holder != m_holders.end() && --holder->count == 0) m_holders.erase(holder);
}

bool CMSRecordFile::HeldByThisThread() const {
  const auto self = std::this_thread::get_id();
  return std::any_of(m_holders.begin(), m_holders.end(),
                     [self](const Holder& h) { return h.thread == self; });
}

// There is no view when the system refused to map the file again after a growth.
void CMSRecordFile::NotMapped() const {
  throw CMSDBException(CMSDBException::kCannotOpen, "'" + m_fileName + "' is not mapped any more");
}

void CMSRecordFile::FlushHeader(Kind kind) {
  m_target->Changed(kind, *m_view, 0, sizeof(CMSFileHeader));
}

void CMSRecordFile::FlushContainer(std::uint32_t index) {
  m_target->Changed(Kind::Primary, *m_view, OffsetOf(index), ContainerSize());
}

void CMSRecordFile::RaiseDC(Kind kind) {
  H().DC = H().DC + 1;
  FlushHeader(kind);
}

void CMSRecordFile::LowerDC(Kind kind) {
  if (H().DC != 0) H().DC = H().DC - 1;
  FlushHeader(kind);
}

void CMSRecordFile::Corrupted(const char* format) const {
  ReportAndThrow(m_context, format, m_fileName, CMSDBException::kCorrupted);
}

void CMSRecordFile::CheckInvariants() const {
  const CSharedLocker guard(m_lock);
  const auto require = [](bool holds, const char* what) {
    if (!holds) throw std::logic_error(what);
  };
  m_index.CheckInvariants();
  require(m_index.Size() == H().UC, "UC differs from the number of keys");
  m_index.ForEach([&](std::uint32_t key, std::uint32_t index) {
    require(index < H().TC && Container(index).InUse() && Container(index).key == key,
            "a key leads to a container that is not its own");
  });
  std::uint32_t free = 0;
  std::uint32_t previous = kNoContainer;
  for (std::uint32_t at = H().FI; at != kNoContainer; at = Container(at).next, ++free) {
    require(at < H().TC && free < H().TC, "the chain of free containers leads astray");
    require(Container(at).previous == previous, "a free container's previous link is wrong");
    require((H().R1 & CMSFileHeader::kZeroFreed) == 0 ||
                (Container(at).key == 0 &&
                 std::all_of(Data(at), Data(at) + m_dataSize,
                             [](std::byte byte) { return byte == std::byte{0}; })),
            "a free container is not zero");
    previous = at;
  }
  require(free == H().TC - H().UC, "the chain of free containers has another length");
}
