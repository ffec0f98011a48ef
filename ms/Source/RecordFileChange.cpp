// Inserting, deleting and growing.
#include <atomic>
#include <cstring>
#include <utility>

#include "Errors.h"
#include "RecordFile.h"
#include "kit/KitErrors.h"
#include "kit/LogDispatcher.h"

namespace {

constexpr char kGrowthUseless[] = "DB %s has encountered an unknown error while growing data file";
constexpr char kIndexRefused[] = "DB %s has encountered an error adding data in index file";
constexpr char kInvalidContainer[] = "DB %s has detected inserting object into invalid container";
constexpr char kUsedContainer[] = "DB %s has detected inserting object into used container";
constexpr char kChainBroken[] = "DB %s has detected error in chain of free containers";
constexpr char kInvalidIndex[] = "DB %s has detected invalid index being deleting object";
constexpr char kMismatchDeleting[] =
    "DB %s has detected mismatch in index and real data key being deleting object";
constexpr char kRedeletion[] = "DB %s has detected object redeletion";

// Each byte is as the one before it, and the first is zero.
bool IsZero(const std::byte* data, std::size_t size) {
  return size == 0 || (data[0] == std::byte{0} && std::memcmp(data, data + 1, size - 1) == 0);
}

}  // namespace

std::uint32_t CMSRecordFile::Insert(std::uint32_t key, const void* data) {
  const CSharedLocker guard(m_lock);
  m_context.CheckWritable(m_fileName);
  MakeRoom();
  if (H().TC == H().UC || H().FI == kNoContainer) Corrupted(kGrowthUseless);
  RaiseDC();
  const std::uint32_t index = H().FI;
  if (!AddToIndex(key, index)) {
    ReportCorruption(m_context, kIndexRefused, m_fileName);
    return 0;  // DC stays raised: maintenance shall see that something was cut short
  }
  CheckFreeContainer(index);
  Unlink(index);
  // The key last: should the process die here, the record is whole or not there.
  std::memcpy(Data(index), data, m_dataSize);
  std::atomic_signal_fence(std::memory_order_release);
  CMSContainerHead& head = Container(index);
  head = CMSContainerHead{};
  std::atomic_signal_fence(std::memory_order_release);
  head.key = key;
  FlushHeader();
  FlushContainer(index);
  LowerDC();
  return index + 1;
}

// The reason of a failed write is in the log; to the caller it is a refusal like any other.
bool CMSRecordFile::AddToIndex(std::uint32_t key, std::uint32_t index) {
  m_refusal.reset();
  try {
    return m_index.Add(key, index);
  } catch (const XKitFile& error) {
    m_refusal = error;
    LogEvent(severity::Error, error.what(), "ms\\Source\\RecordFile", 1);
    return false;
  }
}

void CMSRecordFile::ThrowRefusal() const {
  const CSharedLocker guard(m_lock);
  if (m_refusal) throw XKitFile(*m_refusal);
}

// Keeps the lock, except while it waits for another thread to close the last accessor and grow the
// file.
void CMSRecordFile::MakeRoom() {
  while (H().TC == H().UC && (m_readers != 0 || m_writers != 0)) {
    if (HeldByThisThread())
      throw XKitStatus(
          kit::kStatusDeadlock,
          "'" + m_fileName + "' must grow, but the thread that asks holds one of its records open");
    m_growthFailure = {};
    m_remapped.Reset();
    m_growthRequested.Set();
    const unsigned depth = m_lock.Release();
    m_remapped.Wait();
    m_lock.Retake(depth);
    if (!m_growthFailure.Ok()) break;
  }
  if (H().TC == H().UC && m_growthFailure.Ok()) {
    m_remapped.Reset();
    m_growthFailure = Grow();
    m_remapped.Set();
  }
  if (m_growthFailure.Ok()) return;
  const platform::Status failure = std::exchange(m_growthFailure, {});
  throw CMSDBException(CMSDBException::kWriteFailed,
                       "cannot grow '" + m_fileName + "': " + failure.Text());
}

void CMSRecordFile::GrowIfAskedFor() {
  if (m_readers != 0 || m_writers != 0 || !m_growthRequested.Poll()) return;
  m_remapped.Reset();
  if (H().TC == H().UC) m_growthFailure = Grow();
  m_remapped.Set();
}

// A growth that fails leaves the file as it was, mapped as it was.
platform::Status CMSRecordFile::Grow() {
  const std::uint64_t length = OffsetOf(H().TC);
  m_view.reset();
  platform::Status grown = AppendContainers(length);
  if (grown.Ok()) grown = Map(length + kGrowthStep * ContainerSize());
  if (!grown.Ok()) {
    const platform::Status cut = m_file->Truncate(length);
    if (!cut.Ok())
      m_context.durability.Refuse("cannot truncate '" + m_fileName + "': " + cut.Text());
    const platform::Status mapped = Map(length);
    return mapped.Ok() ? grown : mapped;
  }
  m_target->Written(Kind::Primary);
  ChainNewContainers();
  return grown;
}

// Really written, not just extended: a full disk shows here, and not as a fault in the mapped file.
platform::Status CMSRecordFile::AppendContainers(std::uint64_t from) {
  const std::uint64_t added = kGrowthStep * ContainerSize();
  if (const platform::Status status = m_file->WriteZeros(from, added); !status.Ok()) return status;
  platform::FileInfo info;
  const platform::Status status = m_file->GetInfo(info);
  return status.Ok() && info.length > from + added ? m_file->Truncate(from + added) : status;
}

// The new run goes in front of whatever was free already.
void CMSRecordFile::ChainNewContainers() {
  RaiseDC();
  const std::uint32_t first = H().TC;
  const std::uint32_t last = first + kGrowthStep - 1;
  const std::uint32_t head = H().FI;
  for (std::uint32_t i = first; i <= last; ++i) {
    CMSContainerHead& container = Container(i);
    container.previous = i == first ? kNoContainer : i - 1;
    container.next = i == last ? head : i + 1;
    container.key = 0;
    FlushContainer(i);
  }
  if (head != kNoContainer) {
    Container(head).previous = last;
    FlushContainer(head);
  }
  H().FI = first;
  H().TC = first + kGrowthStep;
  FlushHeader();
  LowerDC();
}

void CMSRecordFile::CheckFreeContainer(std::uint32_t index) const {
  if (index >= H().TC) Corrupted(kChainBroken);
  const CMSContainerHead& head = Container(index);
  if (head.previous == head.next && (head.previous != kNoContainer || H().TC - H().UC != 1))
    Corrupted(kInvalidContainer);
  if ((H().R1 & CMSFileHeader::kZeroFreed) != 0 &&
      (head.key != 0 || !IsZero(Data(index), m_dataSize)))
    Corrupted(kUsedContainer);
  if (head.previous != kNoContainer) Corrupted(kChainBroken);
  if (head.next != kNoContainer && head.next >= H().TC) Corrupted(kChainBroken);
}

void CMSRecordFile::Unlink(std::uint32_t index) {
  const std::uint32_t next = Container(index).next;
  if (next != kNoContainer) {
    Container(next).previous = kNoContainer;
    FlushContainer(next);
  }
  H().FI = next;
  H().UC = H().UC + 1;
}

// A failed check leaves DC raised: maintenance shall see that something was cut short.
bool CMSRecordFile::Delete(std::uint32_t key) {
  const CSharedLocker guard(m_lock);
  m_context.CheckWritable(m_fileName);
  const auto entry = m_index.Find(key);
  if (!entry) return false;
  RaiseDC();
  const std::uint32_t index = CheckedIndex(key, *entry);
  PutToChain(index);
  FlushHeader();
  FlushContainer(index);
  RemoveFromIndex(key);
  LowerDC();
  return true;
}

// The container is free by now, so an index that still leads to it is damage in the making.
void CMSRecordFile::RemoveFromIndex(std::uint32_t key) {
  try {
    m_index.Remove(key);
  } catch (const std::exception& error) {
    m_context.durability.Refuse(error.what());
    throw;
  }
}

std::uint32_t CMSRecordFile::CheckedIndex(std::uint32_t key, std::uint32_t index) const {
  if (index >= H().TC) Corrupted(kInvalidIndex);
  if (Container(index).key != key) Corrupted(kMismatchDeleting);
  if (!Container(index).InUse()) Corrupted(kRedeletion);
  return index;
}

void CMSRecordFile::PutToChain(std::uint32_t index) {
  const std::uint32_t head = H().FI;
  if (head != kNoContainer && head >= H().TC) Corrupted(kChainBroken);
  CMSContainerHead& container = Container(index);
  container.next = head;
  if (head != kNoContainer) {
    Container(head).previous = index;
    FlushContainer(head);
  }
  H().FI = index;
  H().UC = H().UC - 1;
  if ((H().R1 & CMSFileHeader::kZeroFreed) != 0) {
    container.key = 0;
    std::memset(Data(index), 0, m_dataSize);
  }
}
