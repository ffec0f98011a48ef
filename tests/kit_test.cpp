#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "kit/KitDateTime.h"
#include "kit/KitErrors.h"
#include "kit/KitString.h"
#include "kit/RegistrationNumber.h"
#include "tests/support/FaultyFiles.h"
#include "tests/support/LogSink.h"
#include "tests/support/TempDir.h"
#include "tests/support/Zone.h"

namespace {

int CodeOfParsing(const std::string& text) {
  try {
    CKitDateTime::Parse(text);
  } catch (const XKitStatus& failure) {
    return failure.Code();
  }
  return 0;
}

TEST(DateTime, What_is_no_date_of_1970_to_2106_is_refused) {
#ifndef _WIN32
  const Zone zone("UTC0");
#endif
  for (const char* text :
       {"yesterday", " ", "1.1.2001", "1.1.2001 10", "29.02.2023 00:00", "29.02.2100 00:00",
        "31.04.2024 00:00", "0.01.2024 00:00", "1.13.2024 00:00", "1.00.2024 00:00",
        "1.01.2024 24:00", "1.01.2024 00:60", "-1.01.2024 00:00", "31.12.1969 23:59",
        "1.01.1970 00:00", "7.02.2106 06:29", "1.01.20240 00:00", "1-01-2024 00:00"}) {
    EXPECT_EQ(CodeOfParsing(text), kit::kStatusInvalidArgument) << text;
  }
  EXPECT_EQ(CodeOfParsing("1.01.1970 00:01"), 0);
}

// Expected paths are written with slashes.
std::string Native(std::string path) {
  std::replace(path.begin(), path.end(), '/', platform::Separator());
  return path;
}

TEST(Paths, Normal_form_parts_and_joining) {
  const std::pair<const char*, const char*> normal[] = {{"", ""},
                                                        {".", "."},
                                                        {"./", "."},
                                                        {"/", "/"},
#ifdef _WIN32
                                                        {"//a//b/", "//a/b"},
                                                        {"a\\b", "a/b"},
                                                        {"C:\\a/", "C:/a"},
                                                        {"C:a", "C:a"},
                                                        {"C:\\", "C:/"},
#else
                                                        {"//a//b/", "/a/b"},
                                                        {"a\\b", "a\\b"},
#endif
                                                        {"./a/./b/.", "a/b"},
                                                        {"a/../b", "a/../b"},
                                                        {"/.", "/"},
                                                        {"...", "..."}};
  for (const auto& [path, expected] : normal) {
    EXPECT_EQ(CKitFile::NormalizeFileName(path), Native(expected)) << path;
  }
  for (const auto& [path, expected] :
       {std::pair("a/b", "a"), std::pair("/a//b", "/a"), std::pair("/a", "/"), std::pair("a", ""),
        std::pair("a/", "a"), std::pair("/", "/")}) {
    EXPECT_EQ(CKitFile::DirectoryName(path), expected) << path;
  }
  const std::array<const char*, 3> parts[] = {{"a/b/c.tar.gz", "c.tar", ".gz"},
                                              {"a.b/c", "c", ""},
                                              {"/.profile", ".profile", ""},
                                              {"..", "..", ""},
                                              {"x.", "x", "."}};
  for (const auto& [path, base, extension] : parts) {
    EXPECT_EQ(CKitFile::BaseName(path), base);
    EXPECT_EQ(CKitFile::Extension(path), extension);
  }
  EXPECT_EQ(CKitFile::Join("a", "b") + CKitFile::Join(Native("/"), "b") + CKitFile::Join("", "b"),
            Native("a/b/bb"));
}

TEST(KitFile, Removing_copes_with_write_protection_and_wiping_overwrites_first) {
  const TempDir dir;
  EXPECT_FALSE(CKitFile::RemoveEx(dir / "none"));
  WriteBytes(dir / "f", std::string(100'000, 's'));
  std::filesystem::create_hard_link(dir / "f", dir / "other");
  CKitFile::SetAttributes(dir / "f", platform::attribute::ReadOnly);
  ZeroAndDeleteFile(dir / "f");
  EXPECT_FALSE(CKitFile::Exists(dir / "f"));
  EXPECT_EQ(ReadBytes(dir / "other"), std::string(100'000, '\0'));
  EXPECT_THROW(ZeroAndDeleteFile(dir / "f"), XKitFile);

  FaultyFiles files;  // a system that protects such files from removal
  CKitFile::SetAttributes(dir / "other", platform::attribute::ReadOnly);
  files.Fail({.calls = call::kRemove, .cause = platform::Cause::AccessDenied});
  EXPECT_TRUE(CKitFile::RemoveEx(dir / "other"));
  EXPECT_EQ(files.Count(call::kRemove), 2U);

  WriteBytes(dir / "secret", "secret");  // not removed before the zeros are safe
  files.Fail({.calls = call::kSync});
  EXPECT_THROW(ZeroAndDeleteFile(dir / "secret"), XKitFile);
  EXPECT_EQ(files.Count(call::kRemove), 2U);
  EXPECT_EQ(ReadBytes(dir / "secret"), std::string(6, '\0'));
}

TEST(Folders, Made_found_listed_and_removed) {
  const TempDir dir;
  CKitFolder::MakePath(dir.Path() + "/a//b/./c/");
  CKitFolder::MakePath(dir / "a/b");
  EXPECT_TRUE(CKitFolder::Exists(dir / "a/b/c"));
  EXPECT_FALSE(CKitFolder::MakeFolder(dir / "a"));
  EXPECT_FALSE(CKitFolder::RemoveFolder(dir / "a"));
  EXPECT_FALSE(CKitFolder::RemoveFolder(dir / "none"));
  WriteBytes(dir / "a/Z", "");
  EXPECT_THROW(CKitFolder::MakePath(dir / "a/Z/y"), XKitFile);
  EXPECT_THROW(CKitFolder::MakePath(dir / "a/Z"), XKitFile);
  CKitFindFile entries(dir / "a");
  EXPECT_EQ(entries.Next()->name, "Z");
  EXPECT_EQ(entries.Next()->kind, platform::FileKind::Directory);
  EXPECT_EQ(entries.Next(), nullptr);
  const std::string unique = CKitFolder::UniqueDirectoryName(dir.Path());
  EXPECT_NE(unique, CKitFolder::UniqueDirectoryName(dir.Path()));
  EXPECT_EQ(unique.size(), dir.Path().size() + 9);
}

TEST(Log, Default_sink_keeps_errors_only_and_a_sink_gets_each_event_twice) {
  testing::internal::CaptureStderr();
  LogEvent(severity::Repaired, "quiet", __FILE__, __LINE__);
  LogEvent(severity::Error, "loud", __FILE__, __LINE__);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "loud\n");

  LogSink sink;
  LogEvent(severity::Information, "event", "x.cpp", 7);
  EXPECT_EQ(sink.events, "MS |event|0\n0|event|x.cpp:7");
  EXPECT_EQ(FormatRegistrationNumber("A-", -1), "A-4294967295");
}

}  // namespace
