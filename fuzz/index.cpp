// The key index: a file of any content, then keys put in and taken out.
// Input: a part of operations (see Entries.h), then the file.
#include "Entries.h"

#include <map>

#include "ms/Source/Index.h"

namespace {

using fuzz::Expect;
using Keys = std::map<std::uint32_t, std::uint32_t>;

Keys KeysOf(const CMSIndex& index) {
  Keys keys;
  index.ForEach([&](std::uint32_t key, std::uint32_t value) {
    Expect(keys.emplace(key, value).second, "a key comes twice");
  });
  Expect(keys.size() == index.Size(), "size");
  return keys;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Keys keys;
  fuzz::RunEntries<CMSIndex>(
      data, size, ".idx", [&](const CMSIndex& index) { keys = KeysOf(index); },
      [&](CMSIndex& index, const fuzz::EntryChange& change) {
        if (change.adds)
          Expect(
              index.Add(change.key, change.value) == keys.emplace(change.key, change.value).second,
              "adding a key");
        else
          Expect(index.Remove(change.key) == (keys.erase(change.key) != 0), "removing a key");
        const auto found = index.Find(change.key);
        const auto wanted = keys.find(change.key);
        Expect(found.has_value() == (wanted != keys.end()), "finding a key");
        Expect(!found || *found == wanted->second, "value of a key");
      },
      [&](const CMSIndex& index) { Expect(KeysOf(index) == keys, "keys in the file"); });
  return 0;
}
