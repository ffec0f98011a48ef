// Key index, relations set and packet table: bytes, slots, compaction, damage.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "ms/Source/Index.h"
#include "ms/Source/PacketTable.h"
#include "ms/Source/Relations.h"
#include "support/Engine.h"
#include "support/FaultyFiles.h"
#include "support/LogSink.h"

namespace {

using namespace std::string_literals;

std::string Le(std::uint32_t value) {
  return {static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
          static_cast<char>(value >> 24)};
}
std::string IndexHeader(std::uint32_t version = 2, std::uint32_t keySize = 4) {
  return "IDXF" + Le(version) + Le(keySize) + Le(4);
}
std::string IndexEntry(char state, std::uint32_t key, std::uint32_t value) {
  return state + Le(key) + Le(value);
}
std::string SetHeader(const std::string& signature = "SDXF", std::uint32_t version = 2,
                      std::uint32_t size = 12) {
  return signature + Le(version) + Le(size);
}

}  // namespace

TEST(Index, Entries_reuse_freed_slots_oldest_first_and_survive_reopening) {
  Engine engine;
  const std::string path = engine.dir / "k.idx";
  {
    CMSIndex index(engine.Context(), engine.dir.Path(), "k");
    EXPECT_EQ(ReadBytes(path), IndexHeader());
    for (std::uint32_t key : {7u, 5u, 9u}) EXPECT_TRUE(index.Add(key, key * 2));
    EXPECT_FALSE(index.Add(5, 1));
    EXPECT_TRUE(index.Remove(9) && index.Remove(7));
    EXPECT_FALSE(index.Remove(9));
    EXPECT_TRUE(index.Add(11, 3));
  }
  EXPECT_EQ(ReadBytes(path), IndexHeader() + IndexEntry('\xFF', 7, 14) + IndexEntry(0, 5, 10) +
                                 IndexEntry(0, 11, 3));
  CMSIndex index(engine.Context(), engine.dir.Path(), "k");
  std::map<std::uint32_t, std::uint32_t> seen;
  index.ForEach([&](std::uint32_t key, std::uint32_t value) { seen[key] = value; });
  EXPECT_EQ(seen, (std::map<std::uint32_t, std::uint32_t>{{5, 10}, {11, 3}}));
  EXPECT_TRUE(index.Add(1, 1));
  EXPECT_EQ(ReadBytes(path).substr(16, 9), IndexEntry(0, 1, 1));
}

TEST(Index, Damaged_files_are_reported_and_refused_with_22_and_left_alone) {
  const std::string wrong = " Index k.idx has wrong file header\n";
  const std::string twice = " Index k.idx detected duplicate key while loading\n";
  struct Case {
    std::string bytes;
    std::string report;
    bool readOnly;
  };
  for (const Case& c :
       {Case{"", wrong, true}, Case{"IDXF", wrong, false},
        Case{IndexHeader() + "12345678", wrong, false}, Case{IndexHeader(3), wrong, false},
        Case{IndexHeader(2, 13), wrong, false},
        Case{IndexHeader() + IndexEntry(0, 1, 1) + IndexEntry(0, 2, 2) + IndexEntry(0, 1, 3), twice,
             false},
        Case{IndexHeader(0) + IndexEntry(1, 4, 4) + IndexEntry(0, 4, 1), "", true}}) {
    Engine engine;
    WriteBytes(engine.dir / "k.idx", c.bytes);
    const auto open = [&] { CMSIndex(engine.Context(c.readOnly), engine.dir.Path(), "k"); };
    EXPECT_EQ(CodeOf(open), c.report.empty() ? 0 : 22) << c.report;
    EXPECT_EQ(engine.Reports(), c.report);
    EXPECT_EQ(ReadBytes(engine.dir / "k.idx"), c.bytes);
  }
}

TEST(Index, A_failed_write_leaves_file_and_index_as_they_were) {
  Engine engine;
  FaultyFiles files;
  CMSIndex index(engine.Context(), engine.dir.Path(), "k");
  index.Add(1, 1);
  index.Add(2, 2);
  index.Remove(1);
  // First the free slot, then one at the end of the file.
  for (std::uint32_t key : {3u, 4u}) {
    const std::string before = ReadBytes(engine.dir / "k.idx");
    files.Fail({.calls = call::kWrite, .cause = platform::Cause::NoSpace, .written = 5});
    EXPECT_THROW(index.Add(key, key), XKitFile);
    files.Heal();
    EXPECT_FALSE(index.Find(key));
    const std::string after = ReadBytes(engine.dir / "k.idx");
    EXPECT_EQ(after.size(), before.size());
    EXPECT_EQ(after[16], before[16]);
    if (key == 3) index.Add(9, 9);
  }
  EXPECT_TRUE(index.Add(4, 4));
}

TEST(Index, A_failed_first_header_leaves_nothing_and_a_write_not_undone_ends_all_changes) {
  Engine engine;
  FaultyFiles files;
  files.Fail({.calls = call::kWrite, .written = 5});
  EXPECT_THROW(CMSIndex(engine.Context(), engine.dir.Path(), "k"), XKitFile);
  EXPECT_EQ(ReadBytes(engine.dir / "k.idx") + engine.Reports(), "");
  CMSIndex index(engine.Context(), engine.dir.Path(), "k");
  EXPECT_EQ(ReadBytes(engine.dir / "k.idx"), IndexHeader());
  files.Fail({.calls = call::kWrite, .written = 5});
  files.Fail({.calls = call::kTruncate});
  EXPECT_THROW(index.Add(1, 1), XKitFile);
  files.Heal();
  EXPECT_EQ(CodeOf([&] { index.Add(2, 2); }), 19);
  EXPECT_EQ(engine.Reports(), " Index k.idx could not be restored\n");
}

TEST(Relations, Damaged_files_are_reported_and_refused_with_22_and_left_alone) {
  const std::string link = "\0"s + Le(1) + Le(3) + Le(30), gone = "\x01" + link.substr(1);
  const std::string wrong = " Set r.db has wrong file header\n";
  struct Case {
    std::string bytes, report;
    bool readOnly;
  };
  for (const Case& c :
       {Case{"", wrong, true}, Case{"SDXF", wrong, false},
        Case{SetHeader() + link + "x", wrong, false}, Case{SetHeader("SDXG"), wrong, false},
        Case{SetHeader("SDXF", 3), wrong, false}, Case{SetHeader("SDXF", 2, 13), wrong, false},
        Case{SetHeader() + link + gone + link, " Set r.db detected duplicate key while loading\n",
             false},
        Case{SetHeader("SDXF", 0) + gone + link, "", false}}) {
    Engine engine;
    WriteBytes(engine.dir / "r.db", c.bytes);
    const auto open = [&] { CMSRelationsDB(engine.Context(c.readOnly), engine.dir.Path(), "r"); };
    EXPECT_EQ(CodeOf(open), c.report.empty() ? 0 : 22) << c.report;
    EXPECT_EQ(engine.Reports(), c.report);
    EXPECT_EQ(ReadBytes(engine.dir / "r.db"), c.bytes);
  }
}

TEST(Relations, A_compaction_that_fails_ends_all_changes) {
  for (const std::uint32_t calls : {call::kWrite, call::kTruncate}) {
    Engine engine;
    FaultyFiles files;
    LogSink log;
    CMSRelationsDB links(engine.Context(), engine.dir.Path(), "r");
    for (std::uint32_t child : {1u, 2u, 3u}) links.Add({1, 3, child});
    links.Remove({1, 3, 1});
    // The first write marks the entry, the second is the compaction's.
    files.Fail({.calls = calls, .nth = calls == call::kWrite ? 2u : 1u, .written = 5});
    EXPECT_TRUE(links.Remove({1, 3, 2}));
    files.Heal();
    EXPECT_FALSE(links.Contains({1, 3, 2}));
    EXPECT_EQ(CodeOf([&] { links.Add({1, 3, 4}); }), 19);
    EXPECT_NE(log.events.find("takes no further changes"), std::string::npos);
  }
}

TEST(Relations, Random_changes_match_a_plain_set_through_compaction_and_reopening) {
  Engine engine;
  std::mt19937 random(4711);
  std::set<SIDInfo> model;
  for (int round = 0; round < 6; ++round) {
    CMSRelationsDB links(engine.Context(), engine.dir.Path(), "r");
    for (int i = 0; i < 3000; ++i) {
      const SIDInfo link{static_cast<std::uint32_t>(random() % 40),
                         static_cast<std::int32_t>(random() % 4 + 1),
                         static_cast<std::uint32_t>(random() % 200)};
      if (random() % 10 < (round % 2 == 0 ? 7u : 2u))
        EXPECT_EQ(links.Add(link), model.insert(link).second);
      else
        EXPECT_EQ(links.Remove(link), model.erase(link) == 1);
    }
    links.CheckInvariants();
    ASSERT_EQ(links.Size(), model.size());
    std::set<SIDInfo> walked;
    for (std::uint32_t parent = 0; parent < 40; ++parent) {
      for (int type = 1; type <= 4; ++type) {
        auto place = links.First(parent, static_cast<CMSObjectType>(type));
        unsigned long child = 0;
        unsigned long last = 0;
        while (links.Next(place, child)) {
          EXPECT_TRUE(last == 0 || last < child);
          last = child;
          walked.insert({parent, type, static_cast<std::uint32_t>(child)});
        }
        EXPECT_FALSE(links.Next(place, child));
      }
    }
    EXPECT_EQ(walked, model);
    // Never more deleted entries than live ones.
    EXPECT_LE(ReadBytes(engine.dir / "r.db").size(), 12 + 13 * 2 * model.size());
  }
}

TEST(Relations, Compaction_packs_live_links_in_order_and_a_walk_goes_on_through_it) {
  Engine engine;
  CMSRelationsDB links(engine.Context(), engine.dir.Path(), "r");
  for (std::uint32_t child : {60u, 50u, 10u, 30u, 20u, 40u}) links.Add({1, 3, child});
  auto place = links.First(1, CMSObjectType::Document);
  unsigned long child = 0;
  ASSERT_TRUE(links.Next(place, child));
  for (std::uint32_t gone : {20u, 10u, 40u}) links.Remove({1, 3, gone});
  EXPECT_EQ(ReadBytes(engine.dir / "r.db").size(), 12u + 6 * 13);  // as many gone as there are
  links.Remove({1, 3, 60});
  EXPECT_EQ(ReadBytes(engine.dir / "r.db"),
            SetHeader() + "\0"s + Le(1) + Le(3) + Le(30) + "\0"s + Le(1) + Le(3) + Le(50));
  ASSERT_TRUE(links.Next(place, child));
  EXPECT_EQ(child, 30u);
  links.Add({1, 3, 35});
  ASSERT_TRUE(links.Next(place, child));
  EXPECT_EQ(child, 35u);
  links.Add({1, 3, 5});
  ASSERT_TRUE(links.Next(place, child));
  EXPECT_EQ(child, 50u);
  EXPECT_FALSE(links.Next(place, child));
}

TEST(PacketTable, Names_repeat_are_cut_at_twelve_and_found_in_the_order_of_recipients) {
  Engine engine;
  LogSink log;
  {
    CMSPacketTable packets(engine.Context(), engine.dir.Path(), "p");
    packets.Add("ABCDEFGHIJKLX", 9);
    const std::string text = "Unexpected packetname ABCDEFGHIJKLX. Truncated to ABCDEFGHIJKL";
    EXPECT_EQ(std::exchange(log.events, ""), "MS |" + text + "|1\n1|" + text + "|PacketTable:23");
    packets.Add("ABCDEFGHIJKLY", 4);
    log.events.clear();
    packets.Add("ABCDEFGHIJKL", 6);
    packets.Add("", 7);
    packets.Add("abc", 5);
    EXPECT_EQ(log.events, "");
  }
  EXPECT_EQ(ReadBytes(engine.dir / "p.db").substr(0, 34),
            IndexHeader(2, 13) + "\0ABCDEFGHIJKL\0"s + Le(9));
  CMSPacketTable packets(engine.Context(), engine.dir.Path(), "p");
  std::string found;
  const CPacketName name("ABCDEFGHIJKL");
  std::uint32_t from = 0;
  while (const auto id = packets.Find(name, from)) {
    found += std::to_string(*id) + " ";
    from = *id + 1;
  }
  EXPECT_EQ(found, "4 6 9 ");
  EXPECT_FALSE(packets.Find(CPacketName("ABC"), 0));
  EXPECT_TRUE(packets.Remove("ABCDEFGHIJKLM", 6));
  EXPECT_FALSE(packets.Remove("ABCDEFGHIJKL", 6));

  CMSIndex recipients(engine.Context(), engine.dir.Path(), "k");
  recipients.Add(4, 0);
  packets.DropEntriesWithoutRecipient(recipients);
  EXPECT_EQ(packets.Size(), 1u);
  packets.CheckInvariants();

  // Compacted as a set is: not before more are gone than there are.
  for (const char* more : {"abc", "bcd", "cde"}) packets.Add(more, 5);
  for (const char* gone : {"abc", "bcd", "cde"}) {
    EXPECT_EQ(ReadBytes(engine.dir / "p.db").size(), 16u + 4 * 18) << gone;
    packets.Remove(gone, 5);
  }
  EXPECT_EQ(ReadBytes(engine.dir / "p.db"), IndexHeader(2, 13) + "\0ABCDEFGHIJKL\0"s + Le(4));
  EXPECT_EQ(packets.Find(name, 0), 4u);

  WriteBytes(engine.dir / "q.db", IndexHeader());
  EXPECT_EQ(CodeOf([&] { CMSPacketTable(engine.Context(), engine.dir.Path(), "q"); }), 22);
}
