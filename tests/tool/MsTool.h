// A store that the built program (environment variable MSTOOL) is driven over, and a look at it.
#pragma once

#include <gtest/gtest.h>
#include <ms/MessageStore.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

namespace fs = std::filesystem;
using nlohmann::json;

inline std::string Slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Outcome {
  int code;
  std::string out, err;
};

class MsTool : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(std::getenv("MSTOOL"), nullptr) << "MSTOOL names no program";
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    m_dir = fs::temp_directory_path() / (std::string("mstool_test_") + info->name() + "_" +
                                         std::to_string(std::random_device{}()));
    fs::create_directories(m_dir / "in");
    ASSERT_EQ(Run("create").code, 0);
  }
  void TearDown() override { fs::remove_all(m_dir); }

  // Runs "mstool COMMAND STORE REST"; the rest is shell text.
  Outcome Run(const std::string& command, const std::string& rest = "",
              const std::string& store = "store") const {
    const std::string line = "cd '" + m_dir.string() + "' && TZ=UTC \"$MSTOOL\" " + command + " " +
                             store + " " + rest + " >out 2>err; echo $? >code";
    EXPECT_EQ(std::system(line.c_str()), 0);
    return {std::stoi(Slurp(m_dir / "code")), Slurp(m_dir / "out"), Slurp(m_dir / "err")};
  }
  void Write(const std::string& name, const std::string& bytes) const {
    fs::create_directories((m_dir / "in" / name).parent_path());
    std::ofstream(m_dir / "in" / name, std::ios::binary) << bytes;
  }
  std::string Import(int code = 0) const {
    const Outcome result = Run("import", "in");
    EXPECT_EQ(result.code, code) << result.err;
    return result.out + result.err;
  }
  // What the command tells with --json.
  json Figures(const std::string& command, int code, const std::string& rest = "",
               const std::string& store = "store") const {
    const Outcome result = Run(command, rest + " --json", store);
    EXPECT_EQ(result.code, code) << command << " " << rest << "\n" << result.out << result.err;
    return json::parse(result.out, nullptr, false);
  }
  CMSMessageStore Open(const std::string& store) const {
    CKeyCarrier keys;
    CGroupID group;
    return {(m_dir / store).c_str(), keys, nullptr, group, false, false, nullptr, ""};
  }
  // Every file below the store.
  std::map<std::string, std::string> Bytes(const std::string& store = "store") const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(m_dir / store))
      files[fs::relative(entry.path(), m_dir / store)] =
          entry.is_regular_file() ? Slurp(entry.path()) : "";
    return files;
  }
  json Dump() const { return json::parse(Run("dump").out); }

  // The letters of a store by subject, each with "Path" of its folder.
  static void Collect(const json& folder, std::multimap<std::string, json>& letters) {
    for (json letter : folder["Documents"]) {
      letter["Path"] = folder["FullName"];
      letters.emplace(letter["Name"], letter);
    }
    for (const json& child : folder["Folders"]) Collect(child, letters);
  }
  std::multimap<std::string, json> Letters() const {
    std::multimap<std::string, json> letters;
    Collect(Dump()["folders"][0], letters);
    return letters;
  }
  json Only() const {
    const auto letters = Letters();
    EXPECT_EQ(letters.size(), 1U);
    return letters.empty() ? json() : letters.begin()->second;
  }
  static std::string Content(const json& letter, std::size_t attachment) {
    return Slurp(letter["Attachments"].at(attachment)["InternalFileName"].get<std::string>());
  }
  static std::string State(const fs::path& store) {
    const std::string text = Slurp(store / "ms3.db");
    const auto at = text.find("State=");
    return at == text.npos ? "" : text.substr(at + 6, text.find_first_of("\r\n", at) - at - 6);
  }
  void SetState(const std::string& state, const std::string& store = "store") const {
    std::string text = Slurp(m_dir / store / "ms3.db");
    text.replace(text.find("State=") + 6, State(m_dir / store).size(), state);
    std::ofstream(m_dir / store / "ms3.db", std::ios::binary) << text;
  }

  fs::path m_dir;
};
