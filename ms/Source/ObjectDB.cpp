#include "ObjectDB.h"

#include <cassert>
#include <new>

#include "Object.h"
#include "ObjectAccess.h"
#include "kit/KitErrors.h"

CMSObjectDBBase::~CMSObjectDBBase() {
  assert(m_cells.empty());
}

CMSDBObject* CMSObjectDBBase::Get(std::uint32_t key) {
  const CSharedLocker guard(m_lock);
  const auto found = m_cells.find(key);
  if (found == m_cells.end()) {
    const std::uint32_t record = m_file.Find(key);
    return record != 0 ? NewCell(key, record) : nullptr;
  }
  AddReference(found->second);
  return &found->second;
}

// The map's lock is not held while the insert waits for the file to grow: whoever has to close a
// record for that may need handles.
CMSDBObject* CMSObjectDBBase::Create(std::uint32_t key, const void* data) {
  const std::uint32_t record = m_file.Insert(key, data);
  if (record == 0) return nullptr;
  try {
    const CSharedLocker guard(m_lock);
    return NewCell(key, record);
  } catch (const std::bad_alloc&) {
    m_file.Delete(key);
    throw;
  }
}

CMSDBObject& CMSObjectDBBase::Place(std::uint32_t key) {
  if (m_spare.empty()) return m_cells.try_emplace(m_cells.end(), key)->second;
  m_spare.key() = key;
  const auto place = m_cells.insert(m_cells.end(), std::move(m_spare));
  m_spare = {};
  return place->second;
}

// New keys are the greatest so far, as a rule. A cell that another thread has just found the new
// object by is shared; a stale one never is, since no key comes twice while handles remember it.
CMSDBObject* CMSObjectDBBase::NewCell(std::uint32_t key, std::uint32_t record) {
  CMSDBObject& cell = Place(key);
  assert(cell.owner == nullptr || cell.record == record);
  cell.key = key;
  cell.owner = this;
  cell.record.store(record, std::memory_order_release);
  AddReference(cell);
  return &cell;
}

bool CMSObjectDBBase::Delete(std::uint32_t key) {
  const CSharedLocker guard(m_lock);
  const auto found = m_cells.find(key);
  if (found != m_cells.end()) found->second.record.store(0, std::memory_order_release);
  return m_file.Delete(key);
}

void CMSObjectDBBase::AddReference(CMSDBObject& cell) {
  const CSharedLocker guard(m_lock);
  ++cell.references;
  if (m_store != nullptr) m_store->AddRef();
}

void CMSObjectDBBase::Release(CMSDBObject& cell) {
  const CSharedLocker guard(m_lock);
  if (--cell.references != 0) return;
  cell.owner = nullptr;
  m_spare = m_cells.extract(cell.key);
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
