#include "ObjectDB.h"

#include <cassert>
#include <new>
#include <thread>

#include "Object.h"
#include "ObjectAccess.h"
#include "kit/KitErrors.h"

// Whoever holds the lock of a part mostly waits for a record from memory, which is far less than to
// be put to sleep and woken: on that, two threads that read at random lost half of their time. Only
// a deletion may hold it for longer.
class CMSObjectDBBase::PartGuard {
 public:
  explicit PartGuard(std::mutex& lock) : m_lock(lock, std::try_to_lock) {
    for (unsigned tries = 0; !m_lock.owns_lock() && tries < kPatience; ++tries) {
      std::this_thread::yield();
      (void)m_lock.try_lock();
    }
    if (!m_lock.owns_lock()) m_lock.lock();
  }

 private:
  static constexpr unsigned kPatience = 20;
  std::unique_lock<std::mutex> m_lock;
};

CMSObjectDBBase::~CMSObjectDBBase() {
  assert(!IsInUse());
}

CMSDBObject* CMSObjectDBBase::Get(std::uint32_t key) {
  Part& part = PartOf(key);
  const PartGuard guard(part.lock);
  CMSDBObject* cell = Find(part, key);
  if (cell == nullptr) {
    const std::uint32_t record = m_file.Find(key);
    if (record == 0) return nullptr;
    cell = &FindOrMake(part, key, record);
  }
  AddReference(part, *cell);
  return cell;
}

// The part's lock is not held while the insert waits for the file to grow: whoever has to close a
// record for that may need handles.
CMSDBObject* CMSObjectDBBase::Create(std::uint32_t key, const void* data) {
  const std::uint32_t record = m_file.Insert(key, data);
  if (record == 0) return nullptr;
  try {
    Part& part = PartOf(key);
    const PartGuard guard(part.lock);
    CMSDBObject& cell = FindOrMake(part, key, record);
    AddReference(part, cell);
    return &cell;
  } catch (const std::bad_alloc&) {
    Delete(key);
    throw;
  }
}

CMSDBObject* CMSObjectDBBase::Find(Part& part, std::uint32_t key) {
  if (part.first.references != 0 && part.first.key == key) return &part.first;
  if (part.others.empty()) return nullptr;
  const auto found = part.others.find(key);
  return found != part.others.end() ? &found->second : nullptr;
}

// A cell that another thread has just found the new object by is shared; a stale one never is,
// since no key comes twice while handles remember it.
CMSDBObject& CMSObjectDBBase::FindOrMake(Part& part, std::uint32_t key, std::uint32_t record) {
  if (CMSDBObject* const found = Find(part, key)) {
    assert(found->record == record);
    return *found;
  }
  CMSDBObject& cell = part.first.references == 0 ? part.first : Place(part, key);
  cell.key = key;
  cell.owner = this;
  cell.record.store(record, std::memory_order_release);
  return cell;
}

CMSDBObject& CMSObjectDBBase::Place(Part& part, std::uint32_t key) {
  Cells& cells = part.others;
  if (part.spare.empty()) return cells.try_emplace(cells.end(), key)->second;
  part.spare.key() = key;
  const auto place = cells.insert(cells.end(), std::move(part.spare));
  part.spare = {};
  return place->second;
}

bool CMSObjectDBBase::Delete(std::uint32_t key) {
  Part& part = PartOf(key);
  const PartGuard guard(part.lock);
  if (CMSDBObject* const cell = Find(part, key)) cell->record.store(0, std::memory_order_release);
  return m_file.Delete(key);
}

void CMSObjectDBBase::AddReference(CMSDBObject& cell) {
  Part& part = PartOf(cell.key);
  const PartGuard guard(part.lock);
  AddReference(part, cell);
}

void CMSObjectDBBase::AddReference(Part& part, CMSDBObject& cell) {
  ++cell.references;
  if (part.tells && m_store != nullptr) m_store->AddRef();
}

// The store may close with its last handle, so it is let go last.
void CMSObjectDBBase::Release(CMSDBObject& cell) {
  Part& part = PartOf(cell.key);
  CKitReference* store = nullptr;
  {
    const PartGuard guard(part.lock);
    if (part.tells) store = m_store;
    if (--cell.references == 0) {
      cell.owner = nullptr;
      if (&cell != &part.first) part.spare = part.others.extract(cell.key);
    }
  }
  if (store != nullptr) store->Release();
}

template <class Body>
void CMSObjectDBBase::ForEachCell(Part& part, Body body) {
  if (part.first.references != 0) body(part.first);
  for (auto& [key, cell] : part.others) body(cell);
}

void CMSObjectDBBase::TellStore() {
  for (Part& part : m_parts) {
    const PartGuard guard(part.lock);
    part.tells = true;
    ForEachCell(part, [&](const CMSDBObject& cell) {
      for (std::uint32_t i = 0; i < cell.references; ++i) m_store->AddRef();
    });
  }
}

bool CMSObjectDBBase::IsInUse() {
  bool isInUse = false;
  for (Part& part : m_parts) {
    const PartGuard guard(part.lock);
    ForEachCell(part, [&](const CMSDBObject&) { isInUse = true; });
  }
  return isInUse;
}

CMSDBObject& CMSFieldAccess::Checked(CMSDBObject* cell) {
  if (cell == nullptr) throw XKitStatus(kit::kStatusInvalidHandle, "the handle names no object");
  return *cell;
}

std::uint32_t CMSFieldAccess::Number(const CMSDBObject& cell) {
  const std::uint32_t number = cell.record.load(std::memory_order_acquire);
  if (number == 0)
    throw XKitStatus(kit::kStatusInvalidHandle,
                     "the object with ID " + std::to_string(cell.key) + " has been deleted");
  return number;
}

void CMSFieldAccess::CheckFits(const std::string& text, std::size_t width, const char* what) {
  if (text.find('\0') != std::string::npos)
    throw XKitStatus(kit::kStatusInvalidArgument, std::string(what) + " holds a zero byte");
  if (text.size() >= width)
    throw XKitStatus(kit::kStatusInvalidArgument,
                     std::string(what) + " has " + std::to_string(text.size()) +
                         " bytes, at most " + std::to_string(width - 1) + " fit");
}
