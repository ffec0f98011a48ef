// The program as every target has it, with and without its import.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "kit/KitString.h"
#include "mstool/Sha256.h"
#include "tests/support/OpenStore.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;

class Plain : public ::testing::Test {
 protected:
  // Standard output and error are kept in the files "out" and "err".
  int Run(const std::string& command) const {
    // An absolute path with native separators, also where the host's path was handed in.
    fs::path program = fs::absolute(std::getenv("MSTOOL"));
    std::string line = '"' + program.make_preferred().string() + "\" " + command + " >\"" +
                       dir / "out" + "\" 2>\"" + dir / "err" + '"';
#ifdef _WIN32
    line = '"' + line + '"';  // the shell takes the outermost pair away
    return std::system(line.c_str());
#else
    return std::system(line.c_str()) >> 8;
#endif
  }
  std::string Quoted(const std::string& name) const {
    return '"' + dir / name + '"';
  }

  TempDir dir;
};

TEST(Sha256, Own_implementation_gives_the_known_sums) {
  const std::pair<std::size_t, const char*> known[] = {
      {0, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {55, "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
      {64, "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
      {1000, "41edece42d63e8d9bf515a9ba6932e1c20cbc9f5a5d134645adb5db1b9737ea3"}};
  for (const auto& [length, expected] : known) {
    tool::Sha256 sum;
    for (std::size_t left = length; left > 0; left -= std::min<std::size_t>(left, 7)) {
      sum.Add(std::string_view("aaaaaaa").substr(0, left));
    }
    std::string text;
    for (const unsigned char byte : sum.Result()) text += KitFormat("%02x", byte);
    EXPECT_EQ(text, expected);
  }
}

TEST_F(Plain, Dumps_and_checks_a_store_that_the_library_made) {
  {
    CMSMessageStore store = OpenStore(dir / "store");
    store.Root().CreateDocument("Письмо", "", "", "", "", "", "", "", "", 0, 0);
  }
  ASSERT_EQ(Run("dump " + Quoted("store")), 0) << ReadBytes(dir / "err");
  const std::string out = ReadBytes(dir / "out");
  EXPECT_EQ(out.find('\r'), out.npos);
  const auto dump = nlohmann::json::parse(out);
  EXPECT_EQ(dump["folders"][0]["Documents"][0]["Name"], "Письмо");
  EXPECT_EQ(Run("verify " + Quoted("store") + ' ' + Quoted("store")), 0) << ReadBytes(dir / "err");
}

TEST_F(Plain, Imports_or_says_that_it_cannot) {
  WriteBytes(dir / "a.eml", "From: a@b.c\nSubject: x\n\ntext\n");
  ASSERT_EQ(Run("create " + Quoted("store")), 0) << ReadBytes(dir / "err");
  const int code = Run("import " + Quoted("store") + ' ' + Quoted("a.eml"));
#ifdef MS_HAS_IMPORT
  EXPECT_EQ(code, 0) << ReadBytes(dir / "err");
#else
  EXPECT_EQ(code, 4);
  EXPECT_NE(ReadBytes(dir / "err").find("cannot import: it was built without"), std::string::npos);
#endif
}

}  // namespace
