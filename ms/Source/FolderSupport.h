// What the sources of CMSFolder share.
#pragma once

#include <cstddef>
#include <unordered_set>
#include <utility>

#include "StoreOf.h"

namespace foldersupport {

// Whether the child's record names the folder as its parent; reported when it does not.
template <class Handle>
bool IsChild(CMSMessageStoreImp& store, const CMSFolder& folder, const Handle& child,
             const char* mismatch) {
  if (child.ParentID() == folder.ID()) return true;
  Report(store, mismatch);
  return false;
}

// What one letter adds to its folder's counters.
struct Share {
  int unread = 0;
  int undelivered = 0;
};
Share ShareOf(const CMSDocument& document);

// Deeper trees are taken for damage.
inline constexpr std::size_t kMaxLevels = 1 << 16;

// Calls visit with the folder and then with each one above it, without the root, until it answers
// false. Damaged parents may go in a circle or lead nowhere: the climb just ends there. The store's
// lock must be held.
template <class Visit>
void Ascend(CMSFolder folder, Visit visit) {
  std::unordered_set<unsigned long> seen;
  while (folder && !folder.IsRoot() && seen.size() < kMaxLevels) {
    if (!seen.insert(folder.ID()).second || !visit(std::as_const(folder))) return;
    folder = folder.Parent();
  }
}

}  // namespace foldersupport
