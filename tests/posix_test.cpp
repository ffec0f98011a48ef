// What holds on POSIX systems only: the library's own private-profile files, limits, several
// volumes.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "kit/KitDateTime.h"
#include "platform/File.h"
#include "platform/Profile.h"
#include "tests/support/FaultyFiles.h"
#include "tests/support/TempDir.h"
#include "tests/support/Zone.h"

namespace {

using namespace platform;

constexpr std::size_t kCapacity = 1024;

std::string Get(const std::string& path, const std::string& section, const std::string& key) {
  return ReadProfileString(path, section, key, "<def>", kCapacity);
}

TEST(Profile, Sees_changes_of_others_at_once_even_within_one_tick_and_of_equal_length) {
  const TempDir dir;
  const std::string path = dir / "p";
  WriteBytes(path, "[S]\r\nk=000\r\n");
  FaultyFiles files;
  files.CoarsenTimes();
  for (int i = 1; i < 100; ++i) {
    const std::string text = std::to_string(1000 + i).substr(1);
    std::fstream(path, std::ios::in | std::ios::out | std::ios::binary).seekp(7) << text;
    ASSERT_EQ(Get(path, "S", "k"), text);
  }
}

TEST(Profile, Same_length_within_a_sector_is_one_write_of_the_changed_bytes) {
  const TempDir dir;
  const std::string path = dir / "p";
  const std::string pad(489, 'x');
  WriteBytes(path,
             "[S]\r\nk=12345\r\np=" + pad + "\r\nq=abcdef\r\n");  // a sector ends inside q's value
  FaultyFiles files;
  EXPECT_TRUE(WriteProfileString(path, "S", "k", "12945"));
  EXPECT_TRUE(WriteProfileString(path, "S", "k", "12945"));
  EXPECT_EQ(files.Count(call::kWrite), 1U);
  EXPECT_EQ(files.Count(call::kReplace), 0U);
  EXPECT_TRUE(WriteProfileString(path, "S", "q", "ABCDEF"));
  EXPECT_EQ(files.Count(call::kReplace), 1U);
  EXPECT_EQ(ReadBytes(path), "[S]\r\nk=12945\r\np=" + pad + "\r\nq=ABCDEF\r\n");
}

TEST(Profile, Keys_written_together_are_written_in_place_or_once_and_each_is_old_or_new) {
  const TempDir dir;
  const std::string path = dir / "p";
  const auto own = [&](const char* key) {
    return ReadProfileString(path, "S", key, "<def>", kCapacity, ProfileWriter::ThisProcess);
  };
  const auto all = [&] { return own("a") + own("b") + own("c"); };
  WriteBytes(path, "[S]\r\na=1\r\nb=1\r\nc=1\r\n");
  FaultyFiles files;
  files.CoarsenTimes();
  EXPECT_TRUE(WriteProfileKeys(path, "S", {{"c", "2"}, {"a", "2"}}));
  EXPECT_EQ(files.Count(call::kWrite) * 10 + files.Count(call::kReplace), 20U);
  const unsigned opened = files.Count(call::kOpen);
  EXPECT_EQ(all(), "212");
  EXPECT_EQ(files.Count(call::kOpen), opened);  // its own section is not read again
  EXPECT_TRUE(WriteProfileKeys(path, "S", {{"c", "3"}, {"a", "long"}, {"d", "4"}}));
  EXPECT_EQ(files.Count(call::kWrite) * 10 + files.Count(call::kReplace), 31U);
  EXPECT_EQ(ReadBytes(path), "[S]\r\na=long\r\nb=1\r\nc=3\r\nd=4\r\n");
  for (const bool isMended : {true, false}) {
    EXPECT_TRUE(WriteProfileKeys(path, "S", {{"a", "1"}, {"b", "1"}, {"c", "1"}}));
    files.Fail({.calls = call::kWrite, .nth = 2, .written = 1});
    if (!isMended) files.Fail({.calls = call::kWrite, .nth = 2, .forGood = true});
    EXPECT_FALSE(WriteProfileKeys(path, "S", {{"a", "2"}, {"b", "2"}, {"c", "2"}}));
    files.Heal();
    EXPECT_EQ(all(), isMended ? "211" : "221");
  }
  WriteBytes(dir / "theirs", ReadBytes(path).replace(7, 1, "7"));
  std::filesystem::rename(dir / "theirs", path);
  EXPECT_EQ(own("a"), "7");
}

bool WriteKeys(const std::string& path, const std::string& who) {
  bool done = true;
  for (int i = 0; i < 25; ++i) {
    const std::string key = who + std::to_string(i);
    done = WriteProfileString(path, "S", key.c_str(), "1") && done;
    done = WriteProfileString(path, "S", key.c_str(), "2") && done;
  }
  return done;
}

TEST(Profile, Writers_in_threads_and_processes_lose_no_key_and_readers_see_whole_values) {
  const TempDir dir;
  const std::string path = dir / "p";
  const pid_t child = ::fork();
  if (child == 0) std::_Exit(WriteKeys(path, "child") ? 0 : 1);
  ASSERT_GT(child, 0);
  std::vector<std::jthread> threads;
  for (const char* who : {"a", "b", "c", "d"}) {
    threads.emplace_back([&path, who] { EXPECT_TRUE(WriteKeys(path, who)); });
  }
  for (int i = 0; i < 200; ++i) {
    const std::string value = Get(path, "S", "child0");
    EXPECT_TRUE(value == "<def>" || value == "1" || value == "2") << value;
  }
  threads.clear();
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  for (const char* who : {"child", "a", "b", "c", "d"}) {
    for (int i = 0; i < 25; ++i) EXPECT_EQ(Get(path, "S", who + std::to_string(i)), "2");
  }
}

// Lets files grow no further than that during one call, as a full disk would.
template <class Call>
Cause WithFileSizeLimit(rlim_t bytes, Call call) {
  struct rlimit before;
  EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const struct rlimit limited = {bytes, before.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
  const Cause cause = call();
  EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, handler);
  return cause;
}

TEST(DateTime, Text_and_seconds_agree_across_changes_of_the_clocks) {
  const Zone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(CKitDateTime(1'000'000'059).Text(), " 9.09.2001 03:47");
  EXPECT_EQ(CKitDateTime::Parse(" 9.09.2001 03:47").Seconds(), 1'000'000'020U);
  EXPECT_EQ(CKitDateTime::Parse("9.9.2001 3:47 and more").Seconds(), 1'000'000'020U);
  EXPECT_EQ(CKitDateTime::Parse("").Seconds(), 0U);
  EXPECT_EQ(CKitDateTime().Text(), "");
  EXPECT_EQ(CKitDateTime(0xFFFFFFFF).Text(), " 7.02.2106 07:28");
  EXPECT_EQ(CKitDateTime::Parse(" 7.02.2106 07:28").Seconds(), 0xFFFFFFFFU - 15);
  // 02:30 came twice on 27.10.2024, and not at all on 31.03.2024.
  EXPECT_EQ(CKitDateTime::Parse("27.10.2024 02:30").Seconds(), 1'729'989'000U);
  EXPECT_EQ(CKitDateTime(1'729'989'000 + 3600).Text(), "27.10.2024 02:30");
  EXPECT_EQ(CKitDateTime::Parse("31.03.2024 02:30").Text(), "31.03.2024 03:30");
  EXPECT_EQ(CKitDateTime::Parse("29.02.2024 23:59").Text(), "29.02.2024 23:59");
}

TEST(Files, Full_disk_leaves_no_copy_and_a_move_reaches_another_volume) {
  const TempDir dir;
  const std::string a = dir / "a", c = dir / "c";
  WriteBytes(a, std::string(200'000, 'a'));
  EXPECT_EQ(Files().Copy(a, "/dev/full", true).Why(), Cause::NoSpace);
  EXPECT_EQ(WithFileSizeLimit(100'000, [&] { return Files().Copy(a, c, false).Why(); }),
            Cause::NoSpace);
  EXPECT_FALSE(std::filesystem::exists(c));
  EXPECT_EQ(ReadBytes(a).size(), 200'000U);
  if (std::filesystem::exists("/dev/shm")) {  // another volume
    const std::string far = "/dev/shm/" + std::filesystem::path(dir.Path()).filename().string();
    EXPECT_TRUE(Files().Move(a, far).Ok());
    EXPECT_FALSE(std::filesystem::exists(a));
    EXPECT_EQ(ReadBytes(far).size(), 200'000U);
    EXPECT_TRUE(Files().Remove(far).Ok());
  }
}

}  // namespace
