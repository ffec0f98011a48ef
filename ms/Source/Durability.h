// Which files still owe the medium something, and when the debt is paid.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "Batch.h"
#include "platform/File.h"

class CMSDurability;

// One file of the store that changes while it is open.
class CMSSyncTarget {
 public:
  // Of a change. Primary: nothing could restore it; Derived: a repair works it out again, so no
  // call waits for it.
  enum class Kind { Primary, Derived };

  CMSSyncTarget(CMSDurability& durability, std::string name);
  virtual ~CMSSyncTarget();
  CMSSyncTarget(const CMSSyncTarget&) = delete;
  CMSSyncTarget& operator=(const CMSSyncTarget&) = delete;

  const std::string& Name() const { return m_name; }

 protected:
  CMSDurability& Owner() { return m_durability; }
  // The promise of one flush whose bytes the system already holds; now gets them to the medium at
  // once.
  template <class Now>
  void Flushed(Kind kind, Now now);

 private:
  friend class CMSDurability;
  virtual platform::Status StartWriteOut() = 0;
  virtual platform::Status Sync() = 0;

  bool TakeDebt(bool derivedToo);

  CMSDurability& m_durability;
  const std::string m_name;
  std::atomic<bool> m_dirty{false};  // by something primary
  std::atomic<bool> m_derivedDirty{false};
};

// A target that is one open file, perhaps mapped.
class CMSFileTarget : public CMSSyncTarget {
 public:
  CMSFileTarget(CMSDurability& durability, std::string name, platform::File& file)
      : CMSSyncTarget(durability, std::move(name)), m_file(file) {}
  // Bytes were written to the file.
  void Written(Kind kind);
  // A range of the view was changed.
  void Changed(Kind kind, platform::View& view, std::uint64_t offset, std::uint64_t length);

 private:
  platform::Status StartWriteOut() override { return m_file.StartWriteOut(); }
  platform::Status Sync() override { return m_file.Sync(); }
  platform::File& m_file;
};

// Has changes in memory that belong into a file, from calls of a batch.
class CMSGatherer {
 public:
  virtual ~CMSGatherer() = default;
  // XKitFile when that fails; the store then takes no further change.
  virtual void WriteGathered() = 0;
};

// The debts of one open store. Thread-safe.
//
// Calls that change the store run between Begin and End or Commit, nested per thread; the outermost
// Commit waits (level Operation) for everything primary that is dirty by then, whoever changed it.
// Threads that commit together share one wait. The first sync that fails ends all changes: no later
// success is believed.
class CMSDurability {
 public:
  CMSDurability(CMSDurabilityLevel level, std::string directory);

  CMSDurabilityLevel Level() const { return m_level; }
  // XKitStatus 19 once a sync has failed.
  void CheckHealthy() const;
  // What each write asks. A sync that fails does not cut off the change under way, which would
  // leave the open store with a half of it; that change fails when it has come to its end.
  void CheckMayWrite() const;
  // Something went wrong that leaves file and memory at odds: no further write, and no further
  // change, as after a failed sync.
  void Refuse(const std::string& reason);
  bool HasFailed() const { return m_failed.load(std::memory_order_acquire); }

  void Begin();
  // The same for a batch: until the outermost scope ends, index entries of the calling thread may
  // wait in memory (GathersNow), to be written in few pieces.
  void BeginBatch();
  bool GathersNow() const;
  // Writes what waits. XKitFile when that fails.
  void WriteGathered();
  // Rises with every flush; tells whether anything was changed between two looks at it.
  std::uint64_t Changes() const { return m_changes.load(std::memory_order_relaxed); }

  // Whether the calling thread is in any scope, and in just one.
  bool IsWithin() const;
  bool IsOutermost() const;
  // Leaves the scope without a promise. What waits is written, or the failure logged.
  void End();
  // Leaves the scope; the outermost one pays. XKitStatus 19 when that fails, XKitFile when what
  // waited could not be written.
  void Commit();
  // Pays now, within any scope, for what is in the files.
  void Pay();

  // A file was made or rewritten beside the engine's own (an attachment); its bytes must reach the
  // medium before the promise. Takes the file over.
  void FileWritten(std::unique_ptr<platform::File> file, const std::string& path);
  // A file is about to be removed or replaced: it owes nothing any more, and it must not be open.
  void FileGoes(const std::string& path);
  // Entries of the directory came or went; "" is the current one.
  void DirectoryChanged(const std::string& path);

  // Runs work that must not reach the medium before the changes made so far: at once, unless the
  // calling thread is within a scope whose promise is still to come (level Operation). Work that
  // was put off is run by the next payment; its XKitFile is logged.
  void AfterPayment(std::function<void()> work);

  // A gatherer must live as long as the scopes in which it gathers.
  void Register(CMSGatherer& gatherer);
  void Unregister(CMSGatherer& gatherer);

  // Syncs every target, derived ones too, whatever the level; false after logging when that fails.
  bool PayAll();

 private:
  friend class CMSSyncTarget;
  struct PendingFile {
    std::unique_ptr<platform::File> file;
    std::string path;
  };

  void SyncTargets(bool derivedToo);
  void SyncPending();
  std::vector<std::function<void()>> TakePutOff();
  void RunPutOff(const std::vector<std::function<void()>>& putOff);
  // Remembers and logs a failed sync.
  void Note(const std::string& file, const platform::Status& status);
  // From here on there are no further changes; the first reason is kept.
  void Fail(const std::string& reason);

  const CMSDurabilityLevel m_level;
  const std::string m_directory;
  std::atomic<bool> m_failed{false};
  std::atomic<bool> m_atOdds{false};  // no write at all may follow
  std::atomic<std::uint64_t> m_changes{0};

  std::mutex m_paying;  // held for a whole payment, taken before m_state
  mutable std::mutex m_failureLock;
  std::string m_failure;  // guarded by m_failureLock, set once
  std::mutex m_state;
  std::vector<CMSSyncTarget*> m_targets;  // guarded by m_state, as is all below
  std::vector<CMSGatherer*> m_gatherers;
  std::vector<PendingFile> m_files;
  std::set<std::string> m_directories;
  std::vector<std::function<void()>> m_putOff;
  bool m_volumeDirty = false;  // level Process: files written beside the engine's own
};

// The mark must be seen by whoever syncs the file without the bytes it stands for; hence the full
// order.
template <class Now>
void CMSSyncTarget::Flushed(Kind kind, Now now) {
  m_durability.m_changes.fetch_add(1, std::memory_order_relaxed);
  std::atomic<bool>& dirty = kind == Kind::Primary ? m_dirty : m_derivedDirty;
  switch (m_durability.Level()) {
    case CMSDurabilityLevel::Immediate:
      m_durability.Note(m_name, now());
      break;
    case CMSDurabilityLevel::Operation:
      dirty.store(true, std::memory_order_seq_cst);
      break;
    case CMSDurabilityLevel::Process:
      dirty.store(true, std::memory_order_relaxed);
      break;
  }
}
