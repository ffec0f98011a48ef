#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <sstream>
#include <thread>

#include "platform/File.h"
#include "platform/Profile.h"
#include "tests/support/FaultyFiles.h"
#include "tests/support/TempDir.h"

namespace {

using namespace platform;

constexpr std::size_t kCapacity = 1024;
constexpr OpenOptions kWriter{Access::ReadWrite, Disposition::OpenOrCreate, Sharing::ReadOnly};
constexpr OpenOptions kReader{Access::Read, Disposition::OpenExisting, Sharing::ReadOnly};

Cause WhyNot(const std::string& path, const OpenOptions& options) {
  std::unique_ptr<File> file;
  return Files().Open(path, options, file).Why();
}

std::string Get(const std::string& path, const std::string& section, const std::string& key) {
  return ReadProfileString(path, section, key, "<def>", kCapacity);
}

// One field of the case file; "\0" alone stands for a null pointer.
struct Field {
  explicit Field(const std::string& raw) : null(raw == "\\0") {
    for (std::size_t i = 0; i < raw.size(); ++i) {
      if (raw[i] != '\\') {
        text += raw[i];
      } else if (raw[++i] == 'x') {
        text += static_cast<char>(std::stoi(raw.substr(i + 1, 2), nullptr, 16));
        i += 2;
      } else {
        text += raw[i] == 'r' ? '\r' : raw[i] == 'n' ? '\n' : raw[i] == 't' ? '\t' : raw[i];
      }
    }
  }
  const char* OrNull() const { return null ? nullptr : text.c_str(); }
  bool null;
  std::string text;
};

std::vector<std::string> Split(const std::string& line, char at) {
  std::vector<std::string> parts(1);
  for (const char c : line) {
    if (c == at) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

std::string RunOperation(const std::string& path, char op, const Field& section, const Field& key,
                         Field value) {
  if (op == 'r') return Get(path, section.text, key.text);
  if (op == 'i') return std::to_string(ReadProfileInt(path, section.text, key.text, 77));
  if (op == 'w') {
    const bool done = WriteProfileString(path, section.OrNull(), key.OrNull(), value.OrNull());
    return done ? "true" : "false";
  }
  for (char& c : value.text) c = c == '|' ? '\0' : c;
  return WriteProfileSection(path, section.OrNull(), (value.text + '\0').c_str()) ? "true"
                                                                                  : "false";
}

// Each line of the file is a case (name, content to start from) or one operation of it (section,
// key, value, result, content afterwards, "=" when unchanged).
TEST(Profile, Reads_and_writes_as_the_recorded_cases_do) {
  const TempDir dir;
  std::ifstream cases(MS_TEST_DATA_DIR "/profile_cases.txt");
  std::string path, content, name;
  int count = 0;
  for (std::string line; std::getline(cases, line); ++count) {
    const auto part = Split(line, '\t');
    if (part[0] == "case") {
      name = part[1];
      path = dir / name;
      content = Field(part[2]).text;
      if (!content.empty()) WriteBytes(path, content);
      continue;
    }
    SCOPED_TRACE(name + ": " + line.substr(0, 100));
    if (part[5] != "=") content = Field(part[5]).text;
    EXPECT_EQ(RunOperation(path, part[0][0], Field(part[1]), Field(part[2]), Field(part[3])),
              Field(part[4]).text);
    EXPECT_EQ(ReadBytes(path), content);
  }
  EXPECT_GT(count, 60);
}

TEST(Profile, Missing_file_reads_as_empty_and_values_are_cut_to_the_capacity) {
  const TempDir dir;
  EXPECT_EQ(ReadProfileString(dir / "none", "S", "k", "de f  ", 5), "de f");
  EXPECT_EQ(ReadProfileString(dir / "none", "S", "k", "defau", 3), "de");
  EXPECT_TRUE(WriteProfileString(dir / "none", "S", "k", nullptr));
  EXPECT_TRUE(FlushProfile(dir / "none"));
  EXPECT_FALSE(std::filesystem::exists(dir / "none"));
  EXPECT_FALSE(WriteProfileString(dir / "none/below", "S", "k", "v"));
  EXPECT_FALSE(WriteProfileString(dir / "none", nullptr, nullptr, nullptr));
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

// Whatever call fails, and in whatever way, there is the old text and no other file, or the new
// text.
TEST(Profile, Failed_write_leaves_the_old_file_and_nothing_else) {
  const std::uint32_t kinds[] = {call::kOpen, call::kCreate,  call::kWrite, call::kSync,
                                 call::kLock, call::kReplace, call::kStat,  call::kRead};
  const std::string old = "[S]\r\nk=1\r\n";
  for (const char* value : {"2", "longer"}) {
    for (const std::uint32_t kind : kinds) {
      for (unsigned nth = 1; nth <= 4; ++nth) {
        const TempDir dir;
        WriteBytes(dir / "p", old);
        FaultyFiles files;
        files.Fail({.calls = kind, .nth = nth, .cause = Cause::NoSpace, .written = 1});
        const bool done = WriteProfileString(dir / "p", "S", "k", value);
        files.Heal();
        const std::string expected = done ? "[S]\r\nk=" + std::string(value) + "\r\n" : old;
        EXPECT_EQ(ReadBytes(dir / "p"), expected) << kind << ' ' << nth;
        EXPECT_EQ(Get(dir / "p", "S", "k"), done ? value : "1") << kind << ' ' << nth;
        EXPECT_FALSE(std::filesystem::exists(dir / "p.new"));
        const bool needed = nth == 1 && (kind == call::kReplace || kind == call::kSync);
        EXPECT_TRUE(!needed || done == (value[1] == '\0')) << kind;
      }
    }
  }
}

TEST(Profile, Death_at_any_change_leaves_the_old_or_the_new_text) {
  for (unsigned nth = 1; nth <= 4; ++nth) {
    const TempDir dir;
    WriteBytes(dir / "p", "[S]\r\nk=1\r\n");
    {
      FaultyFiles files;
      files.Fail({.calls = call::kChanges, .nth = nth, .forGood = true, .written = 3});
      EXPECT_EQ(WriteProfileString(dir / "p", "S", "k", "22"), nth == 4);
    }
    EXPECT_EQ(Get(dir / "p", "S", "k"), nth == 4 ? "22" : "1");
    EXPECT_TRUE(WriteProfileString(dir / "p", "S", "k", "333"));  // over what was left lying about
    EXPECT_FALSE(std::filesystem::exists(dir / "p.new"));
  }
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

TEST(Files, One_writer_excludes_everybody_and_readers_share) {
  const TempDir dir;
  const std::string path = dir / "f";
  {
    std::unique_ptr<File> writer;
    ASSERT_TRUE(Files().Open(path, kWriter, writer).Ok());
    std::size_t done = 0;
    ASSERT_TRUE(writer->Write(0, "kept", 4, done).Ok());
    EXPECT_EQ(WhyNot(path, kWriter), Cause::InUse);
    EXPECT_EQ(WhyNot(path, kReader), Cause::InUse);
    EXPECT_EQ(WhyNot(path, {Access::ReadWrite, Disposition::CreateAlways, Sharing::ReadOnly}),
              Cause::InUse);
  }
  EXPECT_EQ(ReadBytes(path), "kept");  // not emptied by the one that was refused
  std::unique_ptr<File> reader;
  ASSERT_TRUE(Files().Open(path, kReader, reader).Ok());
  EXPECT_EQ(WhyNot(path, kReader), Cause::None);
  EXPECT_EQ(WhyNot(path, kWriter), Cause::InUse);
  reader.reset();
  EXPECT_EQ(WhyNot(path, {Access::ReadWrite, Disposition::CreateNew, Sharing::All}),
            Cause::AlreadyExists);
  EXPECT_EQ(WhyNot(dir / "none", kReader), Cause::NotFound);
  EXPECT_EQ(WhyNot(dir.Path(), {}), Cause::AccessDenied);
}

TEST(Files, View_and_file_show_the_same_bytes_and_bounds_are_kept) {
  const TempDir dir;
  std::unique_ptr<File> file;
  std::unique_ptr<View> view;
  ASSERT_TRUE(Files().Open(dir / "f", kWriter, file).Ok());
  EXPECT_FALSE(file->Map(1, Access::Read, view).Ok());
  ASSERT_TRUE(file->Truncate(10'000).Ok());
  ASSERT_TRUE(file->Map(10'000, Access::ReadWrite, view).Ok());
  std::memcpy(view->Base() + 5'000, "here", 4);
  EXPECT_TRUE(view->Flush(5'000, 4).Ok());
  EXPECT_TRUE(view->Flush(9'999, 1).Ok());
  EXPECT_FALSE(view->Flush(9'999, 2).Ok());
  char text[10] = {};
  std::size_t done = 0;
  EXPECT_TRUE(file->Read(5'000, text, 4, done).Ok());
  EXPECT_STREQ(text, "here");
  EXPECT_TRUE(file->Read(9'995, text, 10, done).Ok());
  EXPECT_EQ(done, 5U);
  EXPECT_TRUE(file->Append("end", 3).Ok() && file->StartWriteOut().Ok() && file->Sync().Ok());
  EXPECT_EQ(ReadBytes(dir / "f").substr(9'999), std::string("\0end", 4));
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

TEST(Files, Copy_move_and_replace_keep_what_they_must_not_overwrite) {
  const TempDir dir;
  const std::string a = dir / "a", b = dir / "b", c = dir / "c";
  WriteBytes(a, std::string(200'000, 'a'));
  WriteBytes(b, "b");
  std::filesystem::last_write_time(
      a, std::filesystem::file_time_type::clock::now() - std::chrono::hours(100));
  EXPECT_EQ(Files().Copy(a, b, false).Why(), Cause::AlreadyExists);
  EXPECT_EQ(Files().Move(a, b).Why(), Cause::AlreadyExists);
  EXPECT_EQ(ReadBytes(b), "b");
  EXPECT_EQ(Files().Copy(a, a, true).Why(), Cause::InUse);
  EXPECT_EQ(ReadBytes(a).size(), 200'000U);
  EXPECT_EQ(Files().Copy(dir / "none", c, true).Why(), Cause::NotFound);
  EXPECT_EQ(Files().Copy(a, "/dev/full", true).Why(), Cause::NoSpace);
  EXPECT_EQ(WithFileSizeLimit(100'000, [&] { return Files().Copy(a, c, false).Why(); }),
            Cause::NoSpace);
  EXPECT_FALSE(std::filesystem::exists(c));

  FileInfo from, to;
  EXPECT_TRUE(Files().Copy(a, b, true).Ok());
  EXPECT_EQ(ReadBytes(b), ReadBytes(a));
  EXPECT_TRUE(Files().GetInfo(a, from).Ok() && Files().GetInfo(b, to).Ok());
  EXPECT_EQ(from.modified, to.modified);
  EXPECT_NE(from.stamp, to.stamp);
  EXPECT_TRUE(Files().Move(b, c).Ok());
  EXPECT_TRUE(Files().GetInfo(b, to).Ok());
  EXPECT_EQ(to.kind, FileKind::None);
  EXPECT_TRUE(Files().Replace(c, a).Ok());
  EXPECT_FALSE(std::filesystem::exists(c));
  if (std::filesystem::exists("/dev/shm")) {  // another volume
    const std::string far = "/dev/shm/" + std::filesystem::path(dir.Path()).filename().string();
    EXPECT_TRUE(Files().Move(a, far).Ok());
    EXPECT_FALSE(std::filesystem::exists(a));
    EXPECT_EQ(ReadBytes(far).size(), 200'000U);
    EXPECT_TRUE(Files().Remove(far).Ok());
  }
}

TEST(Files, Attributes_directories_and_links_are_told_apart) {
  const TempDir dir;
  WriteBytes(dir / "f", "x");
  FileInfo info;
  ASSERT_TRUE(Files().SetAttributes(dir / "f", attribute::ReadOnly).Ok());
  ASSERT_TRUE(Files().GetInfo(dir / "f", info).Ok());
  EXPECT_EQ(info.attributes, attribute::ReadOnly | attribute::Archive);
  std::filesystem::create_symlink("nowhere", dir / "l");
  ASSERT_TRUE(Files().GetInfo(dir / "l", info).Ok());
  EXPECT_EQ(info.kind, FileKind::Link);
  EXPECT_EQ(Files().MakeDirectory(dir / "f").Why(), Cause::AlreadyExists);
  EXPECT_EQ(Files().RemoveDirectory(dir.Path()).Why(), Cause::NotEmpty);
  std::uint64_t space = 0;
  EXPECT_TRUE(Files().FreeSpace(dir.Path(), space).Ok() && Files().SyncDirectory(dir.Path()).Ok() &&
              Files().SyncVolume(dir.Path()).Ok());
  EXPECT_GT(space, 0U);
}

}  // namespace
