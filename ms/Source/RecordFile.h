// A record database file: numbered containers of one size, mapped whole.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "EngineContext.h"
#include "Format.h"
#include "Index.h"
#include "kit/Event.h"
#include "kit/KitErrors.h"
#include "kit/SharedLock.h"
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
  CSharedLock& Lock() const { return m_lock; }
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

  // The record itself, for as long as the caller holds Lock(); as BeginRead otherwise.
  const std::byte* Read(std::uint32_t number, std::uint32_t key) const;

  // For the accessors. A number whose container bears another key than expected is reported;
  // reading goes on, writing throws. Each Begin is paired with its End on the same thread.
  const std::byte* BeginRead(std::uint32_t number, std::uint32_t key);
  void EndRead();
  std::byte* BeginWrite(std::uint32_t number, std::uint32_t key);
  void EndWrite(std::uint32_t number);

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
  const std::byte* BeginAccess(std::uint32_t number, std::uint32_t key, const char* mismatch,
                               bool writing) const;

  void AddHolder();
  void RemoveHolder();
  bool HeldByThisThread() const;
  void GrowIfAskedFor();

  CMSFileHeader& H() const;
  CMSContainerHead& Container(std::uint32_t index) const;
  std::byte* Data(std::uint32_t index) const;
  std::uint64_t OffsetOf(std::uint32_t index) const;
  std::uint64_t ContainerSize() const { return sizeof(CMSContainerHead) + m_dataSize; }
  void FlushHeader();
  void FlushContainer(std::uint32_t index);
  void RaiseDC();
  void LowerDC();
  [[noreturn]] void Corrupted(const char* format) const;

  const CMSEngineContext m_context;
  const std::string m_fileName;
  const std::uint32_t m_dataSize;
  mutable CSharedLock m_lock;  // guards header, chain, containers and everything below
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
