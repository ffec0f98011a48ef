#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <thread>

#include "platform/File.h"
#include "platform/Profile.h"
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

// Windows may rewrite other lines too, and reads an empty number as none.
bool IsTidied(const std::string& name) {
#ifdef _WIN32
  return name == "numbers" || name == "first-match-wins-and-line-feeds-stay" ||
         name == "blank-lines-elsewhere-stay" || name == "odd-headers";
#else
  return name.empty();
#endif
}

// Each line of the file is a case (name, content to start from) or one operation of it (section,
// key, value, result, content afterwards, "=" when unchanged).
TEST(Profile, Reads_and_writes_as_the_recorded_cases_do) {
  const TempDir dir;
  std::ifstream cases(MS_TEST_DATA_DIR "/profile_cases.txt");
  std::string path, content, name;
  int count = 0;
  bool tidied = false;
  for (std::string line; std::getline(cases, line); ++count) {
    const auto part = Split(line, '\t');
    if (part[0] == "case") {
      name = part[1];
      tidied = IsTidied(name);
      path = dir / name;
      content = Field(part[2]).text;
      if (!content.empty()) WriteBytes(path, content);
      continue;
    }
    if (tidied) continue;
    SCOPED_TRACE(name + ": " + line.substr(0, 100));
    if (part[5] != "=") content = Field(part[5]).text;
    EXPECT_EQ(RunOperation(path, part[0][0], Field(part[1]), Field(part[2]), Field(part[3])),
              Field(part[4]).text);
    EXPECT_EQ(ReadBytes(path), content);
  }
  EXPECT_GT(count, 60);
}

TEST(Profile, Keys_written_together_are_as_those_written_one_by_one) {
  const TempDir dir{InMemory()};
  std::mt19937 random(1);
  const auto any = [&](const std::vector<std::string>& of) { return of[random() % of.size()]; };
  std::vector<std::string> names{"a", "b", "c", "d", "e"};
  const std::vector<std::string> lines{"a=1", "B=22", " c = 3", "a=4", "d=", "; e=5", "e", ""};
  for (int round = 0; round < 100; ++round) {
    std::string text;
    for (const std::string section : {"", "[S]\r\n", "[T]\r\n", "[S]\r\n"}) {
      if (random() % 4 != 0) text += section;
      for (auto count = random() % 6; count > 0; --count) text += any(lines) + "\r\n";
    }
    for (const char* name : {"together", "apart"}) WriteBytes(dir / name, text);
    std::shuffle(names.begin(), names.end(), random);
    std::vector<ProfileKey> keys;
    for (auto count = random() % 5; count > 0; --count) {
      keys.push_back({names[count], std::nullopt});
      if (random() % 4 != 0) keys.back().value = any({"", "1", "2", "22", "long"});
    }
    EXPECT_TRUE(WriteProfileKeys(dir / "together", "s", keys));
    for (const auto& [name, value] : keys)
      EXPECT_TRUE(
          WriteProfileString(dir / "apart", "s", name.c_str(), value ? value->c_str() : nullptr));
    EXPECT_EQ(ReadBytes(dir / "together"), ReadBytes(dir / "apart")) << text;
  }
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
}

TEST(Files, Attributes_directories_and_links_are_told_apart) {
  const TempDir dir;
  WriteBytes(dir / "f", "x");
  FileInfo info;
  ASSERT_TRUE(Files().SetAttributes(dir / "f", attribute::ReadOnly).Ok());
  ASSERT_TRUE(Files().GetInfo(dir / "f", info).Ok());
  EXPECT_EQ(info.attributes, attribute::ReadOnly | attribute::Archive);
#ifndef _WIN32  // links are for administrators
  std::filesystem::create_symlink("nowhere", dir / "l");
  ASSERT_TRUE(Files().GetInfo(dir / "l", info).Ok());
  EXPECT_EQ(info.kind, FileKind::Link);
#endif
  EXPECT_EQ(Files().MakeDirectory(dir / "f").Why(), Cause::AlreadyExists);
  EXPECT_EQ(Files().RemoveDirectory(dir.Path()).Why(), Cause::NotEmpty);
  std::uint64_t space = 0;
  EXPECT_TRUE(Files().FreeSpace(dir.Path(), space).Ok() && Files().SyncDirectory(dir.Path()).Ok());
  const Status synced = Files().SyncVolume(dir.Path());
  EXPECT_TRUE(synced.Ok() || synced.Why() == Cause::Unsupported) << synced.Text();
  EXPECT_GT(space, 0U);
}

TEST(Files, Names_are_UTF8_and_come_back_as_they_were_given) {
  const TempDir dir;
  const std::string name = "Письма \xE6\x89\x8B.txt";
  WriteProfileString(dir / name, "S", "k", "v");
  EXPECT_EQ(Get(dir / name, "S", "k"), "v");
  std::vector<DirectoryEntry> entries;
  ASSERT_TRUE(Files().List(dir.Path(), entries).Ok());
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].name, name);
  EXPECT_TRUE(Files().Move(dir / name, dir / "plain").Ok());
  EXPECT_EQ(ReadBytes(dir / "plain"), "[S]\r\nk=v\r\n");
}

#ifdef _WIN32
TEST(Files, What_another_program_holds_goes_when_it_lets_go_or_is_in_use) {
  const TempDir dir;
  WriteBytes(dir / "a", "a");
  std::unique_ptr<File> held;
  ASSERT_TRUE(Files().Open(dir / "a", kReader, held).Ok());
  EXPECT_EQ(Files().Remove(dir / "a").Why(), Cause::InUse);
  std::jthread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    held.reset();
  });
  EXPECT_TRUE(Files().Replace(dir / "a", dir / "b").Ok());
  EXPECT_TRUE(Files().Remove(dir / "b").Ok());
}
#endif

}  // namespace
