// What the targets of the three kinds of entry files have in common.
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

// Opens the file, which may be refused; what was opened and found sound takes every change, and is
// the same when it is opened again. opened(file), apply(file, change), and compare(file) at the
// end.
template <class File, class Opened, class Apply, class Compare>
void RunEntries(const std::uint8_t* data, std::size_t size, const char* extension, Opened opened,
                Apply apply, Compare compare) {
  Input in(data, size);
  const std::vector<EntryChange> changes = ChangesOf(in.Part());
  const std::string& directory = EmptyScratch();
  WriteBytes(directory + "/entries" + extension, in.Rest());
  CMSDurability durability(CMSDurabilityLevel::Process, directory);
  const auto context = [&](bool readOnly) {
    return CMSEngineContext{g_MSBaseInformer, durability, readOnly};
  };
  Try([&] {
    const File file(context(true), directory, "entries");
    file.CheckInvariants();
  });
  const bool isSound = Try([&] {
    const File file(context(false), directory, "entries");
    file.CheckInvariants();
    opened(file);
  });
  if (!isSound) return;
  {
    File file(context(false), directory, "entries");
    for (const EntryChange& change : changes) apply(file, change);
    file.CheckInvariants();
    compare(file);
  }
  const File file(context(false), directory, "entries");
  file.CheckInvariants();
  compare(file);
}

}  // namespace fuzz
