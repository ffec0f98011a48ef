// A record database file: numbered containers of one size, mapped whole.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "EngineContext.h"
#include "Format.h"
#include "Index.h"
#include "kit/Event.h"
#include "kit/KitErrors.h"
#include "kit/ReadMostlyLock.h"
#include "platform/File.h"

// Records are named by number (container index + 1; 0 names none) and found by key through the
// index that the file owns. A record is used in place, through an accessor (CMSDB::ReadPtr,
// WritePtr). While any accessor is open the file cannot be mapped anew, so an insert that needs to
// grow it waits for the thread that closes the last one.
//
// Invariants at rest: TC >= UC; a container in use has no links and a key that the index maps to
// it; the others form one chain from FI, linked both ways, and are all zero behind their links when
// R1 says so; DC is 0.
//
// Every failure is a CMSDBException; see the codes in Errors.h. Where the store is at fault, a
// report goes before it.
class CMSRecordFile {
 public:
  // Opens "<directory>/<name>.db" and ".idx"; makes them when they are not there and the context is
  // writable.
  CMSRecordFile(const CMSEngineContext& context, const std::string& directory,
                const std::string& name, std::uint32_t dataSize);
  ~CMSRecordFile();
  CMSRecordFile(const CMSRecordFile&) = delete;
  CMSRecordFile& operator=(const CMSRecordFile&) = delete;

  const std::string& FileName() const { return m_fileName; }
  CReadMostlyLock& Lock() const { return m_lock; }
  const CMSIndex& Index() const { return m_index; }
  std::uint32_t UsedCount() const;
  // Calls body with the key of every container in use. Reads the whole file.
  void ForEachKey(const std::function<void(std::uint32_t)>& body) const;
  CMSFileHeader Header() const;

  // The new record's number, or 0 (after a report) when the index refused the key. Waits for open
  // accessors of other threads when the file must grow; XKitStatus 1131 when the calling thread
  // itself holds one.
  std::uint32_t Insert(std::uint32_t key, const void* data);
  // Throws what the index could not be written for, if that made the last insertion answer 0.
  void ThrowRefusal() const;
  // False when the index does not know the key.
  bool Delete(std::uint32_t key);
  // The record's number, 0 when the index does not know the key. A container that bears another key
  // is reported.
  std::uint32_t Find(std::uint32_t key);

  // Calls body with the record, const std::byte*, and answers what it answers; a container that
  // bears another key is treated as by BeginRead. Several threads may read at a time: the body only
  // copies out. numberOf() answers the record's number; it is asked once nothing can be deleted any
  // more, and throws for a record that is gone.
  template <class NumberOf, class Body>
  auto Read(NumberOf numberOf, std::uint32_t key, Body body) const;

  // Calls body(i, record) for each of the keys, with null for one that the index or its container
  // does not know. As for Read, the body only copies out.
  template <class Body>
  void ReadMany(std::span<const std::uint32_t> keys, Body body) const;

  // For the accessors. A number whose container bears another key than expected is reported;
  // reading goes on, writing throws. Each Begin is paired with its End on the same thread.
  using Kind = CMSSyncTarget::Kind;
  const std::byte* BeginRead(std::uint32_t number, std::uint32_t key);
  void EndRead();
  std::byte* BeginWrite(std::uint32_t number, std::uint32_t key, Kind kind);
  void EndWrite(std::uint32_t number, Kind kind);

  // Throws std::logic_error naming the first broken invariant; for tests and debug builds.
  void CheckInvariants() const;

 private:
  struct Holder {
    std::thread::id thread;
    unsigned count;
  };

  void Open(const std::string& directory);
  void CreateHeader();
  bool IsGood(const CMSFileHeader& header, std::uint64_t length) const;
  platform::Status Map(std::uint64_t length);

  void MakeRoom();
  platform::Status Grow();
  platform::Status AppendContainers(std::uint64_t from);
  void ChainNewContainers();
  bool AddToIndex(std::uint32_t key, std::uint32_t index);
  void RemoveFromIndex(std::uint32_t key);
  void CheckFreeContainer(std::uint32_t index) const;
  void Unlink(std::uint32_t index);
  void PutToChain(std::uint32_t index);
  std::uint32_t CheckedIndex(std::uint32_t key, std::uint32_t index) const;
  const std::byte* Peek(std::uint32_t number, std::uint32_t key) const;
  const std::byte* ReadReported(std::uint32_t number, std::uint32_t key) const;
  const std::byte* BeginAccess(std::uint32_t number, std::uint32_t key, const char* mismatch,
                               bool writing) const;

  void AddHolder();
  void RemoveHolder();
  bool HeldByThisThread() const;
  void GrowIfAskedFor();

  CMSFileHeader& H() const {
    if (m_view == nullptr) NotMapped();
    return *reinterpret_cast<CMSFileHeader*>(m_view->Base());
  }
  [[noreturn]] void NotMapped() const;
  CMSContainerHead& Container(std::uint32_t index) const {
    return *reinterpret_cast<CMSContainerHead*>(m_view->Base() + OffsetOf(index));
  }
  std::byte* Data(std::uint32_t index) const {
    return m_view->Base() + OffsetOf(index) + sizeof(CMSContainerHead);
  }
  std::uint64_t OffsetOf(std::uint32_t index) const { return H().DO + index * ContainerSize(); }
  std::uint64_t ContainerSize() const { return sizeof(CMSContainerHead) + m_dataSize; }
  void FlushHeader(Kind kind = Kind::Primary);
  void FlushContainer(std::uint32_t index);
  void RaiseDC(Kind kind = Kind::Primary);
  void LowerDC(Kind kind = Kind::Primary);
  [[noreturn]] void Corrupted(const char* format) const;

  const CMSEngineContext m_context;
  const std::string m_fileName;
  const std::uint32_t m_dataSize;
  mutable CReadMostlyLock m_lock;  // guards header, chain, containers and everything below
  CMSIndex m_index;
  std::unique_ptr<platform::File> m_file;
  std::unique_ptr<CMSFileTarget> m_target;
  std::unique_ptr<platform::View> m_view;
  unsigned m_readers = 0;
  unsigned m_writers = 0;
  std::vector<Holder> m_holders;      // which threads have accessors open
  std::optional<XKitFile> m_refusal;  // of the last insertion, by a write that failed
  platform::Status m_growthFailure;   // of a growth made for a waiting inserter
  CKitEvent m_remapped{CKitEvent::Kind::Manual};
  CKitEvent m_growthRequested{CKitEvent::Kind::Automatic};
};

template <class NumberOf, class Body>
auto CMSRecordFile::Read(NumberOf numberOf, std::uint32_t key, Body body) const {
  {
    const CReadLocker guard(m_lock);
    if (const std::byte* record = Peek(numberOf(), key)) return body(record);
  }
  const CSharedLocker guard(m_lock);
  return body(ReadReported(numberOf(), key));
}

// Null when there is no such container, or one with another key.
inline const std::byte* CMSRecordFile::Peek(std::uint32_t number, std::uint32_t key) const {
  const std::uint32_t index = number - 1;
  return index < H().TC && Container(index).key == key ? Data(index) : nullptr;
}

template <class Body>
void CMSRecordFile::ReadMany(std::span<const std::uint32_t> keys, Body body) const {
  const CReadLocker guard(m_lock);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const auto index = m_index.Peek(keys[i]);
    body(i, index ? Peek(*index + 1, keys[i]) : nullptr);
  }
}
