// From a handle to the open store behind it.
#pragma once

#include <exception>

#include "MessageStoreImp.h"
#include "ObjectAccess.h"
#include "corrupted.h"

// XKitStatus 6 for an empty or stale handle.
template <class T>
void RequireAlive(const CMSObject<T>& handle) {
  const CMSDBObject& cell = CMSFieldAccess::Cell(handle);
  if (handle) return;
  throw XKitStatus(kit::kStatusInvalidHandle,
                   "the object with ID " + std::to_string(cell.key) + " has been deleted");
}

// XKitStatus 6 for an empty or stale handle.
template <class T>
CMSMessageStoreImp& StoreOf(const CMSObject<T>& handle) {
  RequireAlive(handle);
  return static_cast<CMSMessageStoreImp&>(*CMSFieldAccess::Cell(handle).owner->Store());
}

// XKitStatus 6 for an empty or stale handle, 87 for one of another store.
template <class T>
void RequireSameStore(const CMSMessageStoreImp& store, const CMSObject<T>& handle) {
  if (&StoreOf(handle) == &store) return;
  throw XKitStatus(kit::kStatusInvalidArgument, "the two objects belong to different stores");
}

// A report that cannot be written must not let the store pass for a healthy one.
inline void Report(CMSMessageStoreImp& store, const char* text) {
  try {
    g_MSBaseInformer.InformBaseIsCorrupted(store.Directory(), text);
  } catch (const std::exception&) {
    store.Distrust();
    throw;
  }
}
