// The handle base of every persistent object.
#pragma once

#include "RecordTypes.h"
#include "kit/Export.h"

struct CMSDBObject;
struct CMSFieldAccess;
class CMSMessageStore;
class CMSMessageStoreImp;

// A value that names one object of an open store, or nothing. All handles of an object share one
// cell, so its deletion shows in each of them at once: a handle is empty, valid, or stale (the
// object is gone, ID() still answers). A handle keeps its store open.
//
// Using a record through an empty or stale handle raises XKitStatus 6. One handle must not be used
// from two threads at once; different handles may, also of one object.
template <class T>
class MS_API CMSObject {
 public:
  CMSObject() = default;
  CMSObject(const CMSObject& other);
  CMSObject(CMSObject&& other) noexcept : m_cell(other.m_cell) { other.m_cell = nullptr; }
  CMSObject& operator=(const CMSObject& other);
  CMSObject& operator=(CMSObject&& other) noexcept;
  ~CMSObject();

  // The object's ID. The handle must not be empty.
  unsigned long ID() const;
  bool IsValid() const;
  operator bool() const { return IsValid(); }
  bool operator!() const { return !IsValid(); }
  // Identity of the object; two empty handles are equal.
  bool operator==(const CMSObject& other) const { return m_cell == other.m_cell; }
  bool operator!=(const CMSObject& other) const { return m_cell != other.m_cell; }

  // The store that the object belongs to; empty for an empty handle.
  CMSMessageStore MS() const;
  // Whether the store takes changes. The handle must not be empty.
  bool IsReadOnly() const;

  // Accessor helpers of the library (ObjectAccess.h).
  friend struct CMSFieldAccess;

 protected:
  // Takes over one reference to the cell and one to its store, which whoever found the cell has
  // added.
  explicit CMSObject(CMSDBObject* cell) : m_cell(cell) {}

  // Accessors to the record in the mapped file (ObjectAccess.h). Short-lived: while one is open the
  // file cannot grow.
  auto Data() const;
  auto Data();
  CMSMessageStoreImp* GetMS() const;

  CMSDBObject* m_cell = nullptr;
};
