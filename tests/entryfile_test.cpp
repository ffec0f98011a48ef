// Key index, relations set and packet table: bytes, slots, compaction, damage.
#include <gtest/gtest.h>

#include <map>
#include <thread>
#include <vector>

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

template <class File>
void ExpectRefused(const std::string& name, const std::string& header,
                   const std::vector<std::string>& wrong, const std::string& twice) {
  const std::string what = header[0] == 'I' ? " Index " : " Set ";
  const auto open = [&](const std::string& bytes, bool readOnly) {
    Engine engine;
    WriteBytes(engine.dir / name, bytes);
    const auto body = [&] { File(engine.Context(readOnly), engine.dir.Path(), name.substr(0, 1)); };
    const std::string code = std::to_string(CodeOf(body));
    EXPECT_EQ(ReadBytes(engine.dir / name), bytes);
    return code + engine.Reports();
  };
  EXPECT_EQ(open("", true), "22" + what + name + " has wrong file header\n");
  for (const std::string& bytes : wrong)
    EXPECT_EQ(open(bytes, false), "22" + what + name + " has wrong file header\n") << bytes;
  EXPECT_EQ(open(header + twice, false),
            "22" + what + name + " detected duplicate key while loading\n");
  std::string old = header;  // as other versions wrote it
  old[4] = 0;
  EXPECT_EQ(open(old + twice.substr(0, twice.size() / 2), true), "0");
}

TEST(EntryFiles, Damaged_ones_are_reported_and_refused_with_22_and_left_alone) {
  ExpectRefused<CMSIndex>(
      "k.idx", IndexHeader(),
      {"IDXF", IndexHeader() + "12345678", IndexHeader(3), IndexHeader(2, 13)},
      IndexEntry(0, 1, 1) + IndexEntry(1, 1, 2) + IndexEntry(0, 2, 2) + IndexEntry(0, 1, 3));
  const std::string link = "\0"s + Le(1) + Le(3) + Le(30), gone = "\x01" + link.substr(1);
  ExpectRefused<CMSRelationsDB>("r.db", SetHeader(),
                                {"SDXF", SetHeader() + link + "x", SetHeader("SDXG"),
                                 SetHeader("SDXF", 3), SetHeader("SDXF", 2, 13)},
                                gone + link + gone + link);
}

TEST(Index, A_failed_write_leaves_file_and_index_as_they_were_or_ends_all_changes) {
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
  files.Fail({.calls = call::kWrite, .written = 5});
  files.Fail({.calls = call::kTruncate});
  EXPECT_THROW(index.Add(5, 5), XKitFile);
  files.Heal();
  EXPECT_EQ(CodeOf([&] { index.Add(6, 6); }), 19);
  EXPECT_EQ(engine.Reports(), " Index k.idx could not be restored\n");
}

TEST(Index, Entries_of_a_long_batch_wait_in_ready_slots_until_it_ends) {
  Engine engine;
  FaultyFiles files;
  const LogSink log;
  const std::string path = engine.dir / "k.idx";
  CMSIndex index(engine.Context(), engine.dir.Path(), "k");
  const auto entries = [](std::uint32_t first, std::uint32_t last) {
    std::string all;
    for (std::uint32_t key = first; key <= last; ++key) all += IndexEntry(0, key, 1);
    return all;
  };
  const auto ready = [](std::size_t count) {
    std::string all;
    while (count-- > 0) all += '\xFF' + std::string(8, 0);
    return all;
  };
  const auto add = [&](std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t key = first; key <= last; ++key) EXPECT_TRUE(index.Add(key, 1));
  };
  const auto bytes = [&] { return ReadBytes(path).substr(16); };
  engine.durability.BeginBatch();
  add(1, 10);
  EXPECT_EQ(bytes(), entries(1, 8) + ready(64));
  EXPECT_EQ(index.Find(10), 1u);
  std::thread([&] { add(11, 11); }).join();  // in no batch of its own
  EXPECT_EQ(bytes(), entries(1, 11) + ready(61));
  add(12, 72);
  files.Fail({.calls = call::kWrite, .cause = platform::Cause::NoSpace, .written = 5});
  EXPECT_THROW(index.Add(73, 1), XKitFile);  // no room for more slots
  files.Heal();
  EXPECT_FALSE(index.Find(73));
  index.Remove(2);
  std::string expected = entries(1, 72);
  expected[9] = '\xFF';
  EXPECT_EQ(bytes(), expected);
  add(73, 74);  // into the free slot, and at the end
  engine.durability.Commit();
  expected.replace(9, 9, entries(73, 73));
  EXPECT_EQ(bytes(), expected + entries(74, 74));
  index.CheckInvariants();
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
