// What each change of a record file flushes, in which order, when every flush is waited for: a
// process or machine that stops between any two steps leaves what maintenance expects.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "ms/Source/DB.h"
#include "ms/Source/Records.h"
#include "support/Engine.h"
#include "support/FaultyFiles.h"

namespace {

using Folders = CMSDB<unsigned long, CMSFolderData>;
constexpr std::size_t kData = sizeof(CMSFolderData), kContainer = 12 + kData;

struct Flushes : testing::Test {
  Engine engine;
  FaultyFiles files;
  CMSDurability durability{CMSDurabilityLevel::Immediate, engine.dir.Path()};
  std::unique_ptr<Folders> file;
  std::string steps;
  const CMSFolderData data{};

  Flushes() {
    const CMSEngineContext context{g_MSBaseInformer, durability, false};
    file = std::make_unique<Folders>(context, engine.dir.Path(), "f");
    files.Watch([this](const FaultyFiles::Call& made) {
      if (made.path.ends_with("f.db") || made.path.ends_with("f.idx")) steps += Step(made) + " ";
    });
  }
  // "H2": the header, DC being 2 in it. "C7", "D7": container 7, its record. "W": a piece of the
  // data file written. "I": the index entry written. "S": a file synced.
  static std::string Step(const FaultyFiles::Call& made) {
    const bool index = made.path.ends_with(".idx");
    if (made.kind == call::kSync) return index ? "SI" : "S";
    if (made.kind == call::kWrite)
      return index ? "I" : "W" + std::to_string(made.offset) + "+" + std::to_string(made.length);
    if (made.offset == 0 && made.length == 48) {
      const auto* header = reinterpret_cast<const CMSFileHeader*>(made.view);
      return "H" + std::to_string(header->DC);
    }
    const std::uint64_t at = (made.offset - 48) % kContainer,
                        number = (made.offset - 48) / kContainer;
    if (at == 0 && made.length == kContainer) return "C" + std::to_string(number);
    if (at == 12 && made.length == kData) return "D" + std::to_string(number);
    return "?" + std::to_string(made.offset) + "+" + std::to_string(made.length);
  }
  std::string Take() { return std::exchange(steps, ""); }
  // The file grown from that many containers: zeros in pieces of 4096 bytes, then the chain.
  static std::string Growth(std::uint64_t from) {
    std::string growth;
    const std::uint64_t end = 48 + (from + 100) * kContainer;
    for (std::uint64_t at = end - 100 * kContainer; at < end; at += 4096) {
      growth += "W" + std::to_string(at) + "+" +
                std::to_string(std::min<std::uint64_t>(4096, end - at)) + " ";
    }
    growth += "S H1 ";
    for (std::uint64_t i = from; i < from + 100; ++i) growth += "C" + std::to_string(i) + " ";
    return growth + "H1 H0 ";
  }
};

TEST_F(Flushes, Insert_change_and_delete_flush_header_containers_and_record_in_their_order) {
  file->Insert(10, &data);
  EXPECT_EQ(Take(), Growth(0) + "H1 I SI C1 H1 C0 H0 ");
  file->Insert(11, &data);
  EXPECT_EQ(Take(), "H1 I SI C2 H1 C1 H0 ");
  {
    const Folders::WritePtr outer(*file, 1, 10), inner(*file, 2, 11);
    EXPECT_EQ(Take(), "H1 H2 ");
    EXPECT_EQ(ReadBytes(engine.dir / "f.db")[32], 2);
  }
  EXPECT_EQ(Take(), "D1 H1 D0 H0 ");
  { const Folders::ReadPtr read(*file, 1, 10); }
  EXPECT_EQ(Take(), "");
  file->Delete(10);
  EXPECT_EQ(Take(), "H1 C2 H1 C0 I SI H0 ");
  EXPECT_EQ(file->Insert(11, &data), 0u);
  EXPECT_EQ(Take(), "H1 ");
}

TEST_F(Flushes, A_closing_write_flushes_its_record_before_it_grows_the_file_for_a_waiting_insert) {
  for (std::uint32_t key = 1; key <= 100; ++key) file->Insert(key, &data);
  std::atomic<std::uint32_t> number{0};
  std::thread inserter;
  std::string before;
  {
    const Folders::WritePtr last(*file, 1, 1);
    EXPECT_EQ(CodeOf([&] { file->Insert(999, &data); }), 1131);  // it would wait for itself
    inserter = std::thread([&] { number = file->Insert(101, &data); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(number, 0u);
    last->Type = 7;
    before = Take();
  }
  inserter.join();
  EXPECT_TRUE(before.ends_with("I SI H1 C99 H0 H1 "));  // the last insert, then the open record
  EXPECT_EQ(Take(), "D0 H0 " + Growth(100) + "H1 I SI C101 H1 C100 H0 ");
  EXPECT_EQ(number, 101u);
  EXPECT_EQ(Folders::ReadPtr(*file, 1, 1)->Type, 7);
  file->CheckInvariants();
}

}  // namespace
