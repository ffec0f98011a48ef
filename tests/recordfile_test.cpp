// Record files and the objects over them: bytes, chain, growth, damage, waiting threads.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <thread>

#include "ms/Source/ObjectDB.h"
#include "ms/Source/Records.h"
#include "support/Engine.h"
#include "support/FaultyFiles.h"
#include "support/Skip.h"

namespace {

using namespace std::string_literals;
using Folders = CMSDB<unsigned long, CMSFolderData>;
constexpr std::size_t kContainer = 12 + sizeof(CMSFolderData);

CMSFolderData Named(const char* name) {
  CMSFolderData data{};
  std::strncpy(data.Name, name, sizeof data.Name - 1);
  return data;
}

struct RecordFile : testing::Test {
  Engine engine;

  std::unique_ptr<Folders> Open(bool readOnly = false) {
    return std::make_unique<Folders>(engine.Context(readOnly), engine.dir.Path(), "f");
  }
  std::string Bytes() const { return ReadBytes(engine.dir / "f.db"); }
  std::uint32_t Word(std::size_t offset) const {
    LittleU32 word;
    std::memcpy(&word, Bytes().data() + offset, sizeof word);
    return word;
  }
  // Changes a word of the file in place: whoever has it mapped sees it.
  void SetWord(std::size_t offset, std::uint32_t value) {
    std::fstream file(engine.dir / "f.db", std::ios::binary | std::ios::in | std::ios::out);
    const LittleU32 word = value;
    file.seekp(static_cast<std::streamoff>(offset))
        .write(reinterpret_cast<const char*>(&word), sizeof word);
  }
  static std::size_t At(std::uint32_t index) { return 48 + index * kContainer; }
};

}  // namespace

TEST_F(RecordFile, Grows_by_100_and_chains_what_is_free_in_both_directions) {
  auto file = Open();
  EXPECT_EQ(Bytes().size(), 48u);
  EXPECT_EQ(Bytes().substr(0, 4), "!KgE");
  EXPECT_EQ(Word(28), kNoContainer);
  for (std::uint32_t i = 1; i <= 101; ++i) {
    const CMSFolderData data = Named("x");
    ASSERT_EQ(file->Insert(1000 + i, &data), i);
    if (i == 1) {
      EXPECT_EQ(Bytes().size(), At(100));
      EXPECT_EQ(Word(20), 100u);
      EXPECT_EQ(Word(24), 1u);
      EXPECT_EQ(Word(28), 1u);
      EXPECT_EQ(Word(32), 0u);
    }
  }
  EXPECT_EQ(Bytes().size(), At(200));
  file->CheckInvariants();
  // A freed container is zero, leads the chain, and is taken first.
  ASSERT_TRUE(file->Delete(1050) && file->Delete(1002));
  EXPECT_FALSE(file->Delete(1002));
  EXPECT_EQ(Word(28), 1u);
  EXPECT_EQ(Word(At(1) + 4), 49u);
  EXPECT_EQ(Word(At(49)), 1u);
  EXPECT_EQ(Bytes().substr(At(49) + 8, kContainer - 8), std::string(kContainer - 8, '\0'));
  const CMSFolderData data = Named("again");
  EXPECT_EQ(file->Insert(7, &data), 2u);
  file->CheckInvariants();
}

TEST_F(RecordFile, Wrong_headers_are_reported_refused_with_74_and_left_alone) {
  const CMSFolderData data{};
  Open()->Insert(1, &data);
  const std::string good = Bytes();
  struct Change {
    std::size_t offset;
    std::uint32_t value;
  };
  for (const Change& c : {Change{0, 1}, Change{4, 4}, Change{8, 47}, Change{12, 8}, Change{16, 419},
                          Change{20, 0}, Change{20, 101}, Change{24, 101}, Change{28, kNoContainer},
                          Change{24, 100}, Change{8, 0xFFFFFFFF}, Change{20, 0xFFFFFFFF}}) {
    WriteBytes(engine.dir / "f.db", good);
    SetWord(c.offset, c.value);
    const std::string bad = Bytes();
    EXPECT_EQ(CodeOf([&] { Open(); }), 74) << c.offset << " " << c.value;
    EXPECT_EQ(Bytes(), bad);
  }
  WriteBytes(engine.dir / "f.db", good.substr(0, 47));
  EXPECT_EQ(CodeOf([&] { Open(); }), 74);
  WriteBytes(engine.dir / "f.db", "");
  EXPECT_EQ(CodeOf([&] { Open(true); }), 74);
  const std::string reports = engine.Reports();
  EXPECT_EQ(reports.substr(reports.rfind('\n', reports.size() - 2) + 1),
            "DB f.db has wrong file header\n");
}

TEST_F(RecordFile, A_duplicate_key_is_reported_and_leaves_only_DC_raised) {
  auto file = Open();
  const CMSFolderData data{};
  file->Insert(5, &data);
  EXPECT_EQ(file->Insert(5, &data), 0u);
  EXPECT_EQ(engine.Reports(), "DB f.db has encountered an error adding data in index file\n");
  EXPECT_EQ(Word(24), 1u);
  EXPECT_EQ(Word(28), 1u);
  EXPECT_EQ(Word(32), 1u);
}

TEST_F(RecordFile, Broken_containers_are_reported_by_name_and_nothing_runs_outside_the_file) {
  NEEDS_POSIX("nobody else can write to an open database");
  const CMSFolderData data = Named("n");
  {
    auto file = Open();
    file->Insert(1, &data);
    file->Insert(2, &data);
  }
  const std::string good = Bytes();
  const std::string index = ReadBytes(engine.dir / "f.idx");
  const auto insert = [&](Folders& file) { file.Insert(3, &data); };
  const auto remove = [&](Folders& file) { file.Delete(1); };
  struct Case {
    std::size_t offset;
    std::uint32_t value;
    std::function<void(Folders&)> act;
    const char* report;
  };
  for (const Case& c : {
           Case{At(2) + 4, kNoContainer, insert, "inserting object into invalid container"},
           Case{At(2) + 8, 7, insert, "inserting object into used container"},
           Case{At(2) + 200, 7, insert, "inserting object into used container"},
           Case{At(2), 50, insert, "error in chain of free containers"},
           Case{At(2) + 4, 5000, insert, "error in chain of free containers"},
           Case{28, 5000, insert, "error in chain of free containers"},
           Case{28, 5000, remove, "error in chain of free containers"},
           Case{At(0) + 8, 9, remove, "mismatch in index and real data key being deleting object"},
           Case{At(0) + 4, 50, remove, "object redeletion"},
       }) {
    WriteBytes(engine.dir / "f.db", good);
    WriteBytes(engine.dir / "f.idx", index);
    WriteBytes(engine.dir / "fixme.dat", "");
    auto file = Open();
    SetWord(c.offset, c.value);
    file.reset();
    file = Open();
    EXPECT_EQ(CodeOf([&] { c.act(*file); }), 74) << c.report;
    EXPECT_EQ(engine.Reports(), "DB f.db has detected " + std::string(c.report) + "\n");
    file.reset();
    EXPECT_EQ(Word(32), 1u) << c.report;
  }
  WriteBytes(engine.dir / "f.db", good);
  auto open = Open();
  WriteBytes(engine.dir / "fixme.dat", "");
  SetWord(28, kNoContainer);  // only since it was opened
  EXPECT_EQ(CodeOf([&] { insert(*open); }), 74);
  EXPECT_EQ(engine.Reports(), "DB f.db has encountered an unknown error while growing data file\n");
  open.reset();
  // The index leads to a container that bears another key, or to none.
  for (const std::uint32_t container : {1u, 5000u, kNoContainer}) {
    WriteBytes(engine.dir / "f.db", good);
    std::string wrong = index;
    const LittleU32 value = container;
    std::memcpy(wrong.data() + 16 + 5, &value, sizeof value);
    WriteBytes(engine.dir / "f.idx", wrong);
    WriteBytes(engine.dir / "fixme.dat", "");
    auto file = Open();
    const std::uint32_t number = file->Find(1);
    EXPECT_EQ(number, container + 1);
    const auto read = [&] { Folders::ReadPtr(*file, number, 1); };
    EXPECT_EQ(CodeOf(read), container == 1 ? 0 : 74);
    EXPECT_EQ(CodeOf([&] { Folders::WritePtr(*file, number, 1); }), 74);
    EXPECT_EQ(CodeOf([&] { remove(*file); }), 74);
    EXPECT_EQ(
        engine.Reports(),
        " DB f.db detected mismatch in index and real data key (getting object)\n"
        " DB f.db detected mismatch in index and real data key (reading)\n"
        " DB f.db detected mismatch in index and real data key (writing)\n"
        "DB f.db has detected " +
            std::string(container == 1 ? "mismatch in index and real data key" : "invalid index") +
            " being deleting object\n");
  }
}

TEST_F(RecordFile, Headers_that_cannot_be_read_or_written_are_errors_5_and_6) {
  FaultyFiles files;
  files.Fail({.calls = call::kWrite, .written = 10, .path = "f.db"});
  EXPECT_EQ(CodeOf([&] { Open(); }), 6);
  EXPECT_EQ(Bytes(), "");
  Open();
  files.Fail({.calls = call::kRead, .path = "f.db"});
  EXPECT_EQ(CodeOf([&] { Open(); }), 5);
  EXPECT_EQ(engine.Reports(), "");
  EXPECT_EQ(Bytes().size(), 48u);
}

TEST_F(RecordFile, Containers_may_begin_further_on_and_need_not_be_zero_when_freed) {
  const CMSFolderData data = Named("n");
  Open()->Insert(1, &data);
  const std::string bytes = Bytes();
  WriteBytes(engine.dir / "f.db", bytes.substr(0, 48) + std::string(16, '#') + bytes.substr(48));
  SetWord(8, 64);
  SetWord(36, 0);
  auto file = Open();
  EXPECT_STREQ(Folders::ReadPtr(*file, 1, 1)->Name, "n");
  EXPECT_TRUE(file->Delete(1));
  EXPECT_EQ(Word(16 + At(0) + 8), 1u);
  EXPECT_EQ(Bytes().substr(16 + At(0) + 12 + 16, 2), "n\0"s);
  for (std::uint32_t key = 2; key <= 102; ++key) EXPECT_EQ(file->Insert(key, &data), key - 1);
  EXPECT_EQ(Bytes().size(), 16 + At(200));
  EXPECT_EQ(Bytes().substr(48, 16), std::string(16, '#'));
  file->CheckInvariants();
}

TEST_F(RecordFile, A_thread_that_waits_for_the_growth_by_another_learns_of_a_full_disk) {
  FaultyFiles files;
  auto file = Open();
  const CMSFolderData data = Named("kept");
  for (std::uint32_t key = 1; key <= 100; ++key) file->Insert(key, &data);
  files.Fail({.calls = call::kWrite,
              .nth = 3,
              .forGood = true,
              .cause = platform::Cause::NoSpace,
              .written = 100,
              .path = "f.db"});
  std::atomic<int> code{0};
  std::thread inserter;
  {
    const Folders::ReadPtr open(*file, 1, 1);
    inserter = std::thread([&] { code = CodeOf([&] { file->Insert(101, &data); }); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  inserter.join();
  EXPECT_EQ(code, 6);
  EXPECT_EQ(Bytes().size(), At(100));
  files.Heal();
  EXPECT_EQ(file->Insert(101, &data), 101u);
  file->CheckInvariants();
}

// It would hang: the insert waits for the record, whose holder waits for the insert.
TEST_F(RecordFile, Who_holds_a_record_gets_objects_while_a_creation_waits_for_it) {
  CMSObjectDB<CMSFolderData> objects(engine.Context(), engine.dir.Path(), "f", nullptr);
  const auto release = [](CMSDBObject* cell) { cell->owner->Release(*cell); };
  for (std::uint32_t key = 1; key <= 100; ++key) release(objects.Create(key, Named("x")));
  std::thread creator;
  {
    const Folders::ReadPtr open(objects.File(), 1, 1);
    creator = std::thread([&] { release(objects.Create(101, Named("y"))); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(objects.File().UsedCount(), 100u);
    release(objects.Get(2));
  }
  creator.join();
  EXPECT_EQ(objects.File().Find(101), 101u);
}
