// The relations: a file of any content, then links made and taken away.
// Input: a part of operations (see Entries.h), then the file.
#include "Entries.h"

#include <set>

#include "ms/Source/Relations.h"

namespace {

using fuzz::Expect;

SIDInfo LinkOf(const fuzz::EntryChange& change) {
  return {change.key, static_cast<std::int32_t>(1 + change.value % 4), change.value / 4};
}

// All children of each parent and type that has come up, as a walk meets them.
void Compare(const CMSRelationsDB& relations, const std::set<SIDInfo>& touched,
             const std::set<SIDInfo>& present) {
  for (const SIDInfo& one : touched) {
    Expect(relations.Contains(one) == (present.count(one) != 0), "a link");
    auto place = relations.First(one.parent, static_cast<CMSObjectType>(one.type));
    unsigned long child = 0, before = 0;
    bool isMet = false, isFirst = true;
    for (; relations.Next(place, child); before = child, isFirst = false) {
      Expect(isFirst || child > before, "order of a walk");
      isMet = isMet || child == one.child;
    }
    Expect(isMet == (present.count(one) != 0), "a walk");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::set<SIDInfo> touched, present;
  std::size_t links = 0;
  fuzz::RunEntries<CMSRelationsDB>(
      data, size, ".db", [&](const CMSRelationsDB& relations) { links = relations.Size(); },
      [&](CMSRelationsDB& relations, const fuzz::EntryChange& change) {
        const SIDInfo link = LinkOf(change);
        const bool had = relations.Contains(link);
        Expect(touched.insert(link).second || had == (present.count(link) != 0), "a link before");
        const bool done = change.adds ? relations.Add(link) : relations.Remove(link);
        Expect(done == (had != change.adds), "change of a link");
        if (done) links += change.adds ? 1 : std::size_t(-1);
        if (change.adds)
          present.insert(link);
        else
          present.erase(link);
      },
      [&](const CMSRelationsDB& relations) {
        Expect(relations.Size() == links, "number of links");
        Compare(relations, touched, present);
      });
  return 0;
}
