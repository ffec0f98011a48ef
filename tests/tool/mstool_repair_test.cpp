// Drives check, repair and journal over stores that were damaged by hand.
#include <ms/MessageStore.h>
#include <ms/corrupted.h>

#include "MsTool.h"
#include "ms/Source/Records.h"

namespace {

class Repair : public MsTool {
 protected:
  void SetUp() override {
    MsTool::SetUp();
    for (const char* n : {"1", "2", "3"}) {
      Write(std::string("a/") + n + ".eml",
            std::string("Subject: letter ") + n + "\nTo: r@example.org\n\ntext " + n + "\n");
    }
    Import();
    ASSERT_EQ(Run("backup", "bk").code, 0);
  }
  std::map<std::string, std::string> Bytes() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(m_dir / "store"))
      files.emplace(entry.path(), entry.is_regular_file() ? Slurp(entry.path()) : "");
    return files;
  }
  // Writes over bytes of letter number n (from 0), counted from the start of its record.
  void Poke(int n, std::size_t offset, const std::string& bytes) const {
    PokeFile(48 + static_cast<std::size_t>(n) * 776 + 12 + offset, bytes);
  }
  void PokeFile(std::size_t offset, const std::string& bytes) const {
    std::fstream file(m_dir / "store/docs3.db", std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(offset)).write(bytes.data(), 4);
    ASSERT_TRUE(file.good());
  }
  // Which record of docs3.db holds the letter.
  int SlotOf(const std::string& subject) const {
    const std::string bytes = Slurp(m_dir / "store/docs3.db");
    const auto at = bytes.find(subject + '\0');
    return at == bytes.npos ? -1 : static_cast<int>((at - 48) / 776);
  }
  json Figures(const std::string& command, int code, const std::string& rest = "") const {
    const Outcome result = Run(command, rest + " --json");
    EXPECT_EQ(result.code, code) << result.out << result.err;
    return json::parse(result.out, nullptr, false);
  }
};

TEST_F(Repair, Damage_is_found_without_a_change_then_mended_with_the_old_files_kept) {
  const auto healthy = Bytes();
  EXPECT_NE(Run("check").out.find("nothing to repair\n"), std::string::npos);
  EXPECT_EQ(Figures("check", 0)["findings"], json::array());
  EXPECT_EQ(Figures("repair", 0, "--dry-run")["changed"], false);
  EXPECT_EQ(Bytes(), healthy);

  const std::string id = Letters().find("letter 1")->second["ID"].dump();
  Poke(SlotOf("letter 1"), offsetof(CMSDocumentData, RecipientCount), {'\7', 0, 0, 0});
  Poke(SlotOf("letter 2"), offsetof(CMSDocumentData, ParentID), {'\x77', '\x77', 0, 0});
  fs::remove(m_dir / "store/rcpt3.idx");
  SetState("Active");
  const auto damaged = Bytes();
  const json check = Figures("check", 2);
  EXPECT_EQ(check["state"], "Active");
  EXPECT_EQ(check["missing"], json({"store/rcpt3.idx"}));
  const std::string findings = check["findings"].dump();
  EXPECT_NE(findings.find(R"("stored":"7","what":"recipient count")"), std::string::npos)
      << findings;
  EXPECT_NE(findings.find("\"lost object\""), std::string::npos) << findings;
  EXPECT_NE(findings.find(R"("store/rcpt3.idx","stored":"missing")"), std::string::npos);
  EXPECT_NE(Run("repair", "--dry-run").out.find("nothing was changed\n"), std::string::npos);
  EXPECT_EQ(Bytes(), damaged);

  std::ofstream(m_dir / "log") << "before\n";
  const json repair = Figures("repair", 3, "--log log");
  EXPECT_EQ(repair["kinds"]["lost object"], 1);
  const fs::path old = m_dir / repair["oldFiles"].get<std::string>();
  EXPECT_EQ(Slurp(old / "docs3.db"), damaged.at(m_dir / "store/docs3.db"));
  const std::string log = Slurp(m_dir / "log");
  EXPECT_TRUE(log.starts_with("before\n"));
  EXPECT_NE(log.find("LOG ENDS HERE"), std::string::npos);

  EXPECT_EQ(Run("check").code, 0);
  const auto mended = Bytes();
  EXPECT_EQ(Figures("repair", 0)["oldFiles"], "");
  EXPECT_EQ(Slurp(m_dir / "store/docs3.db"), mended.at(m_dir / "store/docs3.db"));
  EXPECT_EQ(Letters().find("letter 1")->second["ID"].dump(), id);
  EXPECT_EQ(Letters().find("letter 2")->second["Path"], "WMROOT");
  EXPECT_EQ(Run("mv", Letters().find("letter 2")->second["ID"].dump() + " INBOX/a").code, 0);
  const Outcome verify = Run("verify", "bk --exact");
  EXPECT_EQ(verify.code, 0) << verify.out << verify.err;
}

TEST_F(Repair, A_store_that_is_in_use_or_beyond_repair_stays_as_it_is) {
  {
    CKeyCarrier keys;
    CGroupID group;
    const std::string path = m_dir / "store";
    const CMSMessageStore open(path.c_str(), keys, nullptr, group, false, false, nullptr, "");
    EXPECT_EQ(Run("check").code, 5);
    EXPECT_EQ(Run("repair").code, 5);
  }
  PokeFile(16, {'\xFD', '\2', 0, 0});  // DS, one more than it is
  const auto before = Bytes();
  for (const char* command : {"check", "repair", "repair --dry-run"}) {
    const Outcome result = Run(command);
    EXPECT_EQ(result.code, 4) << command;
    EXPECT_NE(result.err.find("record size mismatch"), std::string::npos) << result.err;
    EXPECT_EQ(Bytes(), before) << command;
  }
  EXPECT_EQ(Run("repair", "", "nowhere").code, 4);
  EXPECT_EQ(Run("repair", "--log no/such/log").code, 4);
  fs::create_directories(m_dir / "empty");
  EXPECT_EQ(Run("repair", "", "empty").code, 4);
  EXPECT_TRUE(fs::is_empty(m_dir / "empty"));
}

TEST_F(Repair, The_journal_is_shown_entry_by_entry_and_cut_ones_as_they_are) {
  EXPECT_EQ(Run("journal").out, "no journal: no damage was ever reported\n");
  g_MSBaseInformer.InformBaseIsCorrupted((m_dir / "store").c_str(), "one\r\nmore");
  std::ofstream(m_dir / "store/fixme.dat", std::ios::app)
      << "07/03/2005 14:02:09.041 ======== Request for repair\r\n The reason is: tw"
      << "08/03/2005 14:02:09.041 ======== Request for repair\r\n The reason is:  three\r\n09/0";
  const json entries = Figures("journal", 0)["entries"];
  ASSERT_EQ(entries.size(), 4U) << entries;
  EXPECT_EQ(entries[0]["reason"], "one\r\nmore");
  EXPECT_TRUE(entries[1]["text"].get<std::string>().ends_with("The reason is: tw"));
  EXPECT_EQ(entries[2], json({{"time", "2005-03-08 14:02:09.041"}, {"reason", " three"}}));
  EXPECT_EQ(entries[3]["text"], "09/0");
  EXPECT_NE(Run("journal").out.find("\n2005-03-08 14:02:09.041   three\n09/0\n"),
            std::string::npos);
  const json check = Figures("check", 2);
  EXPECT_EQ(check["repairRequested"], true);
  EXPECT_EQ(check["journalEntries"], 4);
  EXPECT_EQ(Run("repair").code, 3);
  EXPECT_EQ(Run("check").code, 0);
}

}  // namespace
