// Objects over records: one shared cell for every object that some handle names.
#pragma once

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "DB.h"
#include "kit/KitReference.h"

class CMSObjectDBBase;

// The cell. It lives in its database's map for as long as handles hold it, also after the object is
// gone.
struct CMSDBObject {
  std::uint32_t key = 0;
  CMSObjectDBBase* owner = nullptr;
  std::atomic<std::uint32_t> record{0};  // 0: the object is gone
  std::uint32_t references = 0;          // guarded by the lock of its part of the map
};

// The map of cells is in parts with a lock each, so that threads seldom meet. Lock order: a part's
// lock, then the record file's, then its index's.
//
// Each reference to a cell is a reference to the store too. While somebody else is known to hold
// the store, those of the cells are enough; from TellStore on each is given and taken one by one.
class CMSObjectDBBase {
 public:
  // The store may be null in tests of the engine alone.
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

  // One reference more for a copied handle.
  void AddReference(CMSDBObject& cell);
  // One less; the last one frees the cell, and perhaps the store with this database.
  void Release(CMSDBObject& cell);

  // Turns the references to cells into references to the store.
  void TellStore();
  // Whether there is any cell.
  bool IsInUse();

 private:
  using Cells = std::map<std::uint32_t, CMSDBObject>;
  // Two threads that look objects up write to the first cache line of a part, and to nothing else
  // that they share. Of a part's cells there is seldom more than one.
  struct alignas(64) Part {
    std::mutex lock;    // guards all below; never taken twice
    CMSDBObject first;  // in use while it has references
    Cells others;
    // Of the cell that was freed last. At first one that was never used, so that the change that
    // comes first cannot lack memory for it.
    Cells::node_type spare = [] {
      Cells made;
      return made.extract(made.try_emplace(0).first);
    }();
    bool tells = false;
  };
  class PartGuard;
  static constexpr std::size_t kParts = 64;

  Part& PartOf(std::uint32_t key) { return m_parts[key % kParts]; }
  static CMSDBObject* Find(Part& part, std::uint32_t key);
  CMSDBObject& FindOrMake(Part& part, std::uint32_t key, std::uint32_t record);
  static CMSDBObject& Place(Part& part, std::uint32_t key);
  void AddReference(Part& part, CMSDBObject& cell);
  template <class Body>
  void ForEachCell(Part& part, Body body);

  CMSRecordFile& m_file;
  CKitReference* const m_store;
  std::array<Part, kParts> m_parts;
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
  void TellStore() { m_objects.TellStore(); }
  bool IsInUse() { return m_objects.IsInUse(); }

 private:
  Database m_file;
  CMSObjectDBBase m_objects;
};
