// Objects over records: one shared cell for every object that some handle names.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "DB.h"
#include "kit/KitReference.h"
#include "kit/SharedLock.h"

class CMSObjectDBBase;

// The cell. It lives in its database's map for as long as handles hold it, also after the object is
// gone.
struct CMSDBObject {
  std::uint32_t key = 0;
  CMSObjectDBBase* owner = nullptr;
  std::atomic<std::uint32_t> record{0};  // 0: the object is gone
  std::uint32_t references = 0;          // guarded by the owner's lock
};

// Lock order: this object's map lock, then the record file's, then its index's.
class CMSObjectDBBase {
 public:
  // The store is told (AddRef) of every cell reference that is handed out; whoever drops one
  // releases the store afterwards. May be null in tests of the engine alone.
  CMSObjectDBBase(CMSRecordFile& file, CKitReference* store) : m_file(file), m_store(store) {}
  ~CMSObjectDBBase();
  CMSObjectDBBase(const CMSObjectDBBase&) = delete;
  CMSObjectDBBase& operator=(const CMSObjectDBBase&) = delete;

  CMSRecordFile& File() { return m_file; }
  CKitReference* Store() const { return m_store; }

  // The object's cell with one more reference; null when the index does not know the key.
  CMSDBObject* Get(std::uint32_t key);
  // A new object's cell with its first reference; null when the record was refused
  // (CMSRecordFile::Insert).
  CMSDBObject* Create(std::uint32_t key, const void* data);
  // Every handle on the object turns stale, and the record goes. False when there is no such
  // object.
  bool Delete(std::uint32_t key);

  // One reference more for a copied handle (with the store's).
  void AddReference(CMSDBObject& cell);
  // One less; the last one frees the cell. The caller still has the store's reference to give back.
  void Release(CMSDBObject& cell);

 private:
  CMSDBObject& Place(std::uint32_t key);
  CMSDBObject* NewCell(std::uint32_t key, std::uint32_t record);

  CMSRecordFile& m_file;
  CKitReference* const m_store;
  CSharedLock m_lock;
  std::map<std::uint32_t, CMSDBObject> m_cells;
  // Of the cell that was freed last: most lookups follow one another, and need no memory then.
  std::map<std::uint32_t, CMSDBObject>::node_type m_spare;
};

template <class T>
class CMSObjectDB {
 public:
  using CMSDBObject = ::CMSDBObject;
  using Database = CMSDB<unsigned long, T>;

  CMSObjectDB(const CMSEngineContext& context, const std::string& directory,
              const std::string& name, CKitReference* store)
      : m_file(context, directory, name), m_objects(m_file, store) {}

  Database& File() { return m_file; }
  CMSDBObject* Get(std::uint32_t key) { return m_objects.Get(key); }
  CMSDBObject* Create(std::uint32_t key, const T& data) { return m_objects.Create(key, &data); }
  bool Delete(std::uint32_t key) { return m_objects.Delete(key); }

 private:
  Database m_file;
  CMSObjectDBBase m_objects;
};
