// Walking a tree of folders.
#pragma once

#include <ms/MessageStore.h>

#include <unordered_set>
#include <utility>
#include <vector>

namespace tool {

// Calls enter(folder, depth) for the folder, with depth 0, and for every one below it, parents
// first, and leave(folder) once all that is below has been entered. Enters each folder once, even
// where the links of a damaged store go in a circle. Only the way down is held in memory.
template <class Enter, class Leave>
void WalkFolders(const CMSFolder& top, Enter enter, Leave leave) {
  struct Level {
    CMSFolder folder;
    CMSRelationsDB::locator next;
  };
  std::unordered_set<unsigned long> entered;
  std::vector<Level> levels;
  const auto descend = [&](const CMSFolder& folder) {
    if (!entered.insert(folder.ID()).second) return;
    enter(folder, levels.size());
    levels.push_back({folder, folder.GetFirstFolderPosition()});
  };
  descend(top);
  while (!levels.empty()) {
    CMSFolder child;
    if (levels.back().folder.GetNextFolder(child, levels.back().next)) {
      descend(child);
    } else {
      leave(std::as_const(levels.back().folder));
      levels.pop_back();
    }
  }
}

template <class Enter>
void WalkFolders(const CMSFolder& top, Enter enter) {
  WalkFolders(top, enter, [](const CMSFolder&) {});
}

}  // namespace tool
