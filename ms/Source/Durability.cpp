#include "Durability.h"

#include <algorithm>
#include <array>
#include <utility>

#include "kit/KitErrors.h"
#include "kit/KitString.h"
#include "kit/LogDispatcher.h"

namespace {

// Files kept open until they are synced. Beyond that many, those so far are synced early.
constexpr std::size_t kMaxPendingFiles = 64;

// How deep the calling thread is in changes of each store it is changing. Rarely more than one.
// Trivially destructible: a client's global store may still be used while the process exits.
struct Depth {
  const CMSDurability* owner;
  unsigned depth;
  bool isBatch;
};
constexpr std::size_t kMaxStores = 16;
thread_local std::array<Depth, kMaxStores> t_depths{};

// The entry of that owner; null when there is none. An owner of null finds a free entry.
Depth* Find(const CMSDurability* owner) {
  const auto entry = std::find_if(t_depths.begin(), t_depths.end(),
                                  [owner](const Depth& d) { return d.owner == owner; });
  return entry != t_depths.end() ? &*entry : nullptr;
}

Depth& Enter(const CMSDurability* owner) {
  Depth* entry = Find(owner);
  if (entry == nullptr) entry = Find(nullptr);
  if (entry == nullptr)
    throw XKitStatus(kit::kStatusInvalidArgument,
                     "one thread cannot change more than 16 stores within each other");
  entry->owner = owner;
  ++entry->depth;
  return *entry;
}

// True when that was the outermost.
bool Leave(const CMSDurability* owner) {
  Depth* const entry = Find(owner);
  if (entry == nullptr || --entry->depth > 0) return false;
  *entry = {};
  return true;
}

}  // namespace

CMSSyncTarget::CMSSyncTarget(CMSDurability& durability, std::string name)
    : m_durability(durability), m_name(std::move(name)) {
  const std::lock_guard guard(m_durability.m_state);
  m_durability.m_targets.push_back(this);
}

// A target that leaves dirty leaves its debt unpaid; the store pays all before it lets its files
// go.
CMSSyncTarget::~CMSSyncTarget() {
  const std::lock_guard paying(m_durability.m_paying);
  const std::lock_guard guard(m_durability.m_state);
  std::erase(m_durability.m_targets, this);
}

// A sync pays for both kinds.
bool CMSSyncTarget::TakeDebt(bool derivedToo) {
  const bool isPrimary = m_dirty.exchange(false, std::memory_order_acq_rel);
  if (!isPrimary && !derivedToo) return false;
  return m_derivedDirty.exchange(false, std::memory_order_acq_rel) || isPrimary;
}

void CMSFileTarget::Written(Kind kind) {
  Flushed(kind, [this] { return m_file.Sync(); });
}

void CMSFileTarget::Changed(Kind kind, platform::View& view, std::uint64_t offset,
                            std::uint64_t length) {
  Flushed(kind, [&] { return view.Flush(offset, length); });
}

CMSDurability::CMSDurability(CMSDurabilityLevel level, std::string directory)
    : m_level(level), m_directory(std::move(directory)) {}

void CMSDurability::CheckHealthy() const {
  if (!HasFailed()) return;
  const std::lock_guard guard(m_failureLock);
  throw XKitStatus(kit::kStatusReadOnly, m_failure);
}

void CMSDurability::CheckMayWrite() const {
  if (m_atOdds.load(std::memory_order_acquire) || !IsWithin()) CheckHealthy();
}

void CMSDurability::Begin() {
  Enter(this);
}

void CMSDurability::BeginBatch() {
  Enter(this).isBatch = true;
}

// At level Immediate each single write is waited for.
bool CMSDurability::GathersNow() const {
  const Depth* const entry = Find(this);
  return entry != nullptr && entry->isBatch && m_level != CMSDurabilityLevel::Immediate;
}

void CMSDurability::WriteGathered() {
  std::vector<CMSGatherer*> gatherers;
  {
    const std::lock_guard guard(m_state);
    gatherers = m_gatherers;
  }
  for (CMSGatherer* gatherer : gatherers) gatherer->WriteGathered();
}

void CMSDurability::Register(CMSGatherer& gatherer) {
  const std::lock_guard guard(m_state);
  m_gatherers.push_back(&gatherer);
}

void CMSDurability::Unregister(CMSGatherer& gatherer) {
  const std::lock_guard guard(m_state);
  std::erase(m_gatherers, &gatherer);
}

bool CMSDurability::IsWithin() const {
  return Find(this) != nullptr;
}

bool CMSDurability::IsOutermost() const {
  const Depth* entry = Find(this);
  return entry != nullptr && entry->depth == 1;
}

void CMSDurability::End() {
  const bool gathered = IsOutermost() && GathersNow();
  Leave(this);
  if (gathered) RunOrLog([this] { WriteGathered(); }, "ms\\Source\\Durability", 3);
}

void CMSDurability::Commit() {
  const bool gathered = IsOutermost() && GathersNow();
  const bool outermost = Leave(this);
  if (gathered) WriteGathered();  // may throw: the scope is left by then
  if (outermost && m_level != CMSDurabilityLevel::Process) Pay();
  CheckHealthy();
}

void CMSDurability::Pay() {
  if (m_level == CMSDurabilityLevel::Process) return;
  const std::lock_guard paying(m_paying);
  if (HasFailed()) return;
  const auto putOff = TakePutOff();
  SyncPending();
  SyncTargets(false);
  RunPutOff(putOff);
}

bool CMSDurability::PayAll() {
  const std::lock_guard paying(m_paying);
  if (HasFailed()) return false;
  const auto putOff = TakePutOff();
  SyncPending();
  SyncTargets(true);
  RunPutOff(putOff);
  const std::lock_guard guard(m_state);
  if (m_volumeDirty) {
    const platform::Status status = platform::Files().SyncVolume(m_directory);
    // Where nobody can ask for that it is left to the system, which needs a few seconds.
    if (status.Why() != platform::Cause::Unsupported) Note(m_directory, status);
  }
  m_volumeDirty = false;
  return !HasFailed();
}

// All write-outs begin before the first is waited for, so that the medium sees one batch.
void CMSDurability::SyncTargets(bool derivedToo) {
  std::vector<CMSSyncTarget*> due;
  {
    const std::lock_guard guard(m_state);
    due.reserve(m_targets.size());  // no debt may be forgotten for want of memory
    for (CMSSyncTarget* target : m_targets) {
      if (target->TakeDebt(derivedToo)) due.push_back(target);
    }
  }
  if (due.size() > 1)
    for (CMSSyncTarget* target : due) Note(target->m_name, target->StartWriteOut());
  for (CMSSyncTarget* target : due) Note(target->m_name, target->Sync());
}

void CMSDurability::SyncPending() {
  std::vector<PendingFile> files;
  std::set<std::string> directories;
  {
    const std::lock_guard guard(m_state);
    files.swap(m_files);
    directories.swap(m_directories);
  }
  if (files.size() > 1)
    for (const auto& pending : files) Note(pending.path, pending.file->StartWriteOut());
  for (const auto& pending : files) Note(pending.path, pending.file->Sync());
  for (const auto& directory : directories) {
    const platform::Status status = platform::Files().SyncDirectory(directory);
    // A directory that has gone again owes nothing; its parent, which lost it, is on the list too.
    if (status.Why() != platform::Cause::NotFound) Note(directory, status);
  }
}

void CMSDurability::AfterPayment(std::function<void()> work) {
  if (m_level != CMSDurabilityLevel::Operation || !IsWithin()) {
    Pay();
    CheckHealthy();
    work();
    return CheckHealthy();
  }
  const std::lock_guard guard(m_state);
  m_putOff.push_back(std::move(work));
}

// Before the sync begins: what is put off later may follow changes that it does not cover.
std::vector<std::function<void()>> CMSDurability::TakePutOff() {
  const std::lock_guard guard(m_state);
  return std::exchange(m_putOff, {});
}

// After a sync that failed, what was put off stays undone for good. What it owes is paid at once:
// nobody would hear of it later.
void CMSDurability::RunPutOff(const std::vector<std::function<void()>>& putOff) {
  if (HasFailed() || putOff.empty()) return;
  for (const auto& work : putOff) {
    try {
      work();
    } catch (const XKitFile& error) {
      LogEvent(severity::Error, error.what(), "ms\\Source\\Durability", 2);
    }
  }
  SyncPending();
}

void CMSDurability::FileWritten(std::unique_ptr<platform::File> file, const std::string& path) {
  if (m_level == CMSDurabilityLevel::Immediate) {
    Note(path, file->Sync());
    return;
  }
  bool full = false;
  {
    const std::lock_guard guard(m_state);
    if (m_level == CMSDurabilityLevel::Process) {
      m_volumeDirty = true;
      return;
    }
    m_files.push_back({std::move(file), path});
    full = m_files.size() >= kMaxPendingFiles;
  }
  if (full) {
    const std::lock_guard paying(m_paying);
    SyncPending();
  }
}

void CMSDurability::FileGoes(const std::string& path) {
  const std::lock_guard guard(m_state);
  std::erase_if(m_files, [&](const PendingFile& pending) { return pending.path == path; });
}

void CMSDurability::DirectoryChanged(const std::string& path) {
  const std::string directory = path.empty() ? "." : path;
  if (m_level == CMSDurabilityLevel::Immediate) {
    Note(directory, platform::Files().SyncDirectory(directory));
    return;
  }
  const std::lock_guard guard(m_state);
  if (m_level == CMSDurabilityLevel::Process)
    m_volumeDirty = true;
  else
    m_directories.insert(directory);
}

void CMSDurability::Note(const std::string& file, const platform::Status& status) {
  if (status.Ok()) return;
  try {
    const std::string why = status.Code() != 0 ? ": " + status.Text() : "";
    Fail("cannot sync '" + file + "'" + why);
  } catch (const std::bad_alloc&) {
    Fail({});
  }
}

void CMSDurability::Refuse(const std::string& reason) {
  Fail(reason);
  m_atOdds.store(true, std::memory_order_release);
}

void CMSDurability::Fail(const std::string& reason) {
  {
    const std::lock_guard guard(m_failureLock);
    if (HasFailed()) return;
    try {
      m_failure = reason + "; the store takes no further changes";
    } catch (const std::bad_alloc&) {
      // That it failed matters more than the words for it.
    }
    m_failed.store(true, std::memory_order_release);
  }
  LogEvent(severity::Error, m_failure.c_str(), "ms\\Source\\Durability", 1);
}
