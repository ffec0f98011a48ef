// Drives check, repair and journal over stores that were damaged by hand.
#include <ms/MSFixer.h>
#include <ms/corrupted.h>

#include <array>
#include <functional>
#include <utility>

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
  std::string OneLetterOf(const std::string& store) const {
    std::multimap<std::string, json> letters;
    Collect(json::parse(Run("dump", "", store).out)["folders"][0], letters);
    return letters.empty() ? "" : letters.begin()->second["ID"].dump();
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
  EXPECT_EQ(Slurp(old / "docs3.db"), damaged.at("docs3.db"));
  const std::string log = Slurp(m_dir / "log");
  EXPECT_TRUE(log.starts_with("before\n"));
  EXPECT_NE(log.find("LOG ENDS HERE"), std::string::npos);

  EXPECT_EQ(Run("check").code, 0);
  const auto mended = Bytes();
  EXPECT_EQ(Figures("repair", 0)["oldFiles"], "");
  EXPECT_EQ(Slurp(m_dir / "store/docs3.db"), mended.at("docs3.db"));
  EXPECT_EQ(Letters().find("letter 1")->second["ID"].dump(), id);
  EXPECT_EQ(Letters().find("letter 2")->second["Path"], "WMROOT");
  EXPECT_EQ(Run("mv", Letters().find("letter 2")->second["ID"].dump() + " INBOX/a").code, 0);
  const Outcome verify = Run("verify", "bk --exact");
  EXPECT_EQ(verify.code, 0) << verify.out << verify.err;
}

TEST_F(Repair, A_store_that_is_in_use_or_beyond_repair_stays_as_it_is) {
  {
    const CMSMessageStore open = Open("store");
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

TEST_F(Repair, A_deep_check_finds_missing_and_cut_files_which_a_repair_does_not_mind) {
  const auto letters = Letters();
  const auto file = [&](const char* subject) {
    const json letter = letters.find(subject)->second;
    return fs::path(letter["Attachments"].at(0)["InternalFileName"].get<std::string>());
  };
  fs::remove(file("letter 1"));
  fs::resize_file(file("letter 2"), 1);
  std::ofstream(file("letter 3").parent_path() / "stray") << "x";
  const std::string stray = fs::canonical(file("letter 3").parent_path() / "stray");
  const auto before = Bytes();

  const json plain = Figures("check", 0);
  EXPECT_FALSE(plain.contains("fileFindings"));
  EXPECT_EQ(plain["unnamedFiles"], json({stray}));
  const json deep = Figures("check", 2, "--deep");
  EXPECT_EQ(deep["findings"], json::array());
  EXPECT_EQ(deep["fileFindings"].size(), 2U) << deep;
  const std::string text = Run("check", "--deep").out;
  EXPECT_NE(text.find("\nFiles without letter:  1\n"), std::string::npos) << text;
  EXPECT_NE(text.find(stray + ": without letter\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\n2 findings (2 of files"), std::string::npos) << text;
  EXPECT_EQ(Run("check").out.find(stray), std::string::npos);
  EXPECT_EQ(Figures("repair", 0)["unnamedFiles"], json({stray}));
  EXPECT_TRUE(fs::exists(stray));
  EXPECT_EQ(Slurp(m_dir / "store/docs3.db"), before.at("docs3.db"));
}

TEST_F(Repair, After_a_crash_a_store_is_written_only_when_a_scan_finds_it_good) {
  SetState("Active");
  Outcome result = Run("mkdir", "INBOX/b");
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_NE(result.err.find("it was checked and is good\n"), std::string::npos) << result.err;
  EXPECT_EQ(State(m_dir / "store"), "Closed");

  const std::string letter = Letters().find("letter 1")->second["ID"].dump();
  ASSERT_EQ(Run("backup", "bk").code, 0);
  Poke(SlotOf("letter 1"), offsetof(CMSDocumentData, RecipientCount), {'\7', 0, 0, 0});
  SetState("Active");
  const auto damaged = Bytes();
  // Also as the other store of a command that writes to it.
  for (const auto& [command, first, rest] :
       {std::array{"mkdir", "store", "INBOX/c"}, std::array{"import", "store", "in"},
        std::array{"restore", "bk", "store"}, std::array{"cp", "bk", "store:INBOX"}}) {
    const bool copies = std::string(command) == "cp";
    result = Run(command, copies ? OneLetterOf("bk") + " " + rest : rest, first);
    EXPECT_EQ(result.code, 2) << command << ' ' << result.err;
    EXPECT_NE(result.err.find("mend it with mstool repair store\n"), std::string::npos)
        << command << ' ' << result.err;
    EXPECT_EQ(Bytes(), damaged) << command;
  }
  EXPECT_EQ(Run("show", letter).code, 0);
  EXPECT_EQ(Bytes(), damaged);

  const std::string plan = Run("repair", "--dry-run").out;
  EXPECT_NE(plan.find("\nwould be mended:  1 counter or field (recipient count)\n"), plan.npos)
      << plan;
  const std::string done = Run("repair").out;
  EXPECT_NE(done.find(", 3 letters, "), done.npos) << done;
  EXPECT_NE(done.find("\nmended:  1 counter or field (recipient count)\n"), done.npos) << done;
  EXPECT_NE(done.find("\nclosed:  the store"), done.npos) << done;
  EXPECT_EQ(done.find("\ndeleted:"), done.npos) << done;
  EXPECT_EQ(Run("mkdir", "INBOX/c").code, 0);
}

TEST_F(Repair, A_store_that_cannot_be_scanned_or_is_just_being_scanned_is_not_written) {
  SetState("Active");
  const auto before = Bytes();
  fs::create_directory(m_dir / "store/rcpt3.db.tmp");  // stands in the way of the copy
  Outcome result = Run("mkdir", "INBOX/b");
  EXPECT_EQ(result.code, 4) << result.err;
  EXPECT_NE(result.err.find("not closed properly and cannot be checked: "), std::string::npos);
  fs::remove(m_dir / "store/rcpt3.db.tmp");
  EXPECT_EQ(Bytes(), before);

  struct Within : MSF::CFixer::CCallback {
    explicit Within(std::function<void()> use) : m_use(std::move(use)) {}
    bool OnProgress(const MSF::CFixer::CProgress&) override {
      if (m_use) std::exchange(m_use, nullptr)();
      return true;
    }
    void OnError(int, int, const char*) override {}
    std::function<void()> m_use;
  } within([&] {
    for (const char* command : {"check", "repair", "mkdir"})
      EXPECT_EQ(Run(command, *command == 'm' ? "INBOX/b" : "").code, 5) << command;
    EXPECT_EQ(Run("folders").code, 0);
  });
  MSF::CFixer fixer(&within);
  EXPECT_TRUE(fixer.ScanMS((m_dir / "store").c_str())) << fixer.Error();
  EXPECT_EQ(within.m_use, nullptr);
  EXPECT_EQ(Bytes(), before);
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
