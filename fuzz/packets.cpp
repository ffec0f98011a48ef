// The packet names: a file of any content, then names given and taken away.
// Input: a part of operations (see Entries.h), then the file.
#include "Entries.h"

#include <set>

#include "ms/Source/PacketTable.h"

namespace {

using fuzz::Expect;
using Names = std::multiset<std::pair<std::string, std::uint32_t>>;

Names NamesOf(const CMSPacketTable& table) {
  Names names;
  table.ForEach(
      [&](const CPacketName& name, std::uint32_t value) { names.emplace(name.c_str(), value); });
  Expect(names.size() == table.Size(), "size");
  return names;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Names names;
  fuzz::RunEntries<CMSPacketTable>(
      data, size, ".db", [&](const CMSPacketTable& table) { names = NamesOf(table); },
      [&](CMSPacketTable& table, const fuzz::EntryChange& change) {
        const std::string name = "packet" + std::to_string(change.key);
        if (change.adds) {
          table.Add(name, change.value);
          names.emplace(name, change.value);
        } else {
          const auto known = names.find({name, change.value});
          Expect(table.Remove(name, change.value) == (known != names.end()), "removing a name");
          if (known != names.end()) names.erase(known);
        }
        const auto found = table.Find(CPacketName(name), change.value);
        const auto wanted = names.lower_bound({name, change.value});
        const bool isThere = wanted != names.end() && wanted->first == name;
        Expect(found.has_value() == isThere, "finding a name");
        Expect(!found || *found == wanted->second, "recipient of a name");
      },
      [&](const CMSPacketTable& table) { Expect(NamesOf(table) == names, "names in the file"); });
  return 0;
}
