// Changes of a file of entries or records, as inputs hold them.
#pragma once

#include <vector>

#include "Scratch.h"
#include "ms/Source/EngineContext.h"
#include "support/TempDir.h"

namespace fuzz {

// Seven bytes: bit 0 of the first says what is done; the key takes 2 bytes, so that many are met
// again, the value 4.
struct EntryChange {
  bool adds;
  std::uint32_t key;
  std::uint32_t value;
};

inline std::vector<EntryChange> ChangesOf(Input part) {
  std::vector<EntryChange> changes;
  while (!part.IsEmpty()) {
    const bool adds = (part.Byte() & 1) == 0;
    const std::uint32_t low = part.Byte();
    const std::uint32_t key = low | std::uint32_t{part.Byte()} << 8;
    changes.push_back({adds, key, part.Word()});
  }
  return changes;
}

}  // namespace fuzz
