// The program as every target has it, with and without its import.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "kit/KitString.h"
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
