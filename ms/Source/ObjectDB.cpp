#include "ObjectDB.h"

#include <cassert>
#include <new>

#include "Object.h"
#include "ObjectAccess.h"
#include "kit/KitErrors.h"

CMSObjectDBBase::~CMSObjectDBBase() {
  assert(!IsInUse());
}

CMSDBObject* CMSObjectDBBase::Get(std::uint32_t key) {
  Part& part = PartOf(key);
  const CSharedLocker guard(part.lock);
  const auto found = part.cells.find(key);
  if (found == part.cells.end()) {
    const std::uint32_t record = m_file.Find(key);
    return record != 0 ? &NewCell(part, key, record) : nullptr;
  }
  AddReference(part, found->second);
  return &found->second;
}

// The map's lock is not held while the insert waits for the file to grow: whoever has to close a
// record for that may need handles.
CMSDBObject* CMSObjectDBBase::Create(std::uint32_t key, const void* data) {
  const std::uint32_t record = m_file.Insert(key, data);
  if (record == 0) return nullptr;
  try {
    Part& part = PartOf(key);
    const CSharedLocker guard(part.lock);
    return &NewCell(part, key, record);
  } catch (const std::bad_alloc&) {
    Delete(key);
    throw;
  }
}

CMSDBObject& CMSObjectDBBase::Place(Part& part, std::uint32_t key) {
  Cells& cells = part.cells;
  if (part.spare.empty()) return cells.try_emplace(cells.end(), key)->second;
  part.spare.key() = key;
  const auto place = cells.insert(cells.end(), std::move(part.spare));
  part.spare = {};
  return place->second;
}

// New keys are the greatest so far, as a rule. A cell that another thread has just found the new
// object by is shared; a stale one never is, since no key comes twice while handles remember it.
CMSDBObject& CMSObjectDBBase::NewCell(Part& part, std::uint32_t key, std::uint32_t record) {
  CMSDBObject& cell = Place(part, key);
  assert(cell.owner == nullptr || cell.record == record);
  cell.key = key;
  cell.owner = this;
  cell.record.store(record, std::memory_order_release);
  AddReference(part, cell);
  return cell;
}

bool CMSObjectDBBase::Delete(std::uint32_t key) {
  Part& part = PartOf(key);
  const CSharedLocker guard(part.lock);
  const auto found = part.cells.find(key);
  if (found != part.cells.end()) found->second.record.store(0, std::memory_order_release);
  return m_file.Delete(key);
}

void CMSObjectDBBase::AddReference(CMSDBObject& cell) {
  Part& part = PartOf(cell.key);
  const CSharedLocker guard(part.lock);
  AddReference(part, cell);
}

void CMSObjectDBBase::AddReference(Part& part, CMSDBObject& cell) {
  ++cell.references;
  if (!part.tells)
    ++part.references;
  else if (m_store != nullptr)
    m_store->AddRef();
}

// The store may close with its last handle, so it is let go last.
void CMSObjectDBBase::Release(CMSDBObject& cell) {
  Part& part = PartOf(cell.key);
  CKitReference* store = nullptr;
  {
    const CSharedLocker guard(part.lock);
    if (part.tells)
      store = m_store;
    else
      --part.references;
    if (--cell.references == 0) {
      cell.owner = nullptr;
      part.spare = part.cells.extract(cell.key);
    }
  }
  if (store != nullptr) store->Release();
}

void CMSObjectDBBase::TellStore() {
  for (Part& part : m_parts) {
    const CSharedLocker guard(part.lock);
    part.tells = true;
    for (; part.references != 0; --part.references) m_store->AddRef();
  }
}

bool CMSObjectDBBase::IsInUse() {
  for (Part& part : m_parts) {
    const CSharedLocker guard(part.lock);
    if (!part.cells.empty()) return true;
  }
  return false;
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
