// Drives backup, restore, verify and cp.
#include "MsTool.h"

namespace {

class Backup : public MsTool {
 protected:
  // Letters 1 to count in INBOX/a, INBOX/b in turn, each with a file of so many bytes.
  void Fill(int count, std::size_t bytes = 100) {
    for (int i = 1; i <= count; ++i) {
      const std::string n = std::to_string(i);
      Write((i % 2 != 0 ? "a/" : "b/") + n + ".eml",
            "From: Sender " + n + " <s@example.org>\nTo: r@example.org\nSubject: letter " + n +
                "\nDate: " + std::to_string(i % 28 + 1) + " Jan 2024 10:00:00 +0000\n" +
                "Content-Type: multipart/mixed; boundary=o\n\n--o\n\ntext " + n +
                "\n--o\nContent-Disposition: attachment; filename=f.txt\n\n" +
                std::string(bytes, static_cast<char>('a' + i % 26)) + "\n--o--\n");
    }
    Import();
    fs::remove_all(m_dir / "in");
  }

  // "copied replaced moved unchanged removed failed"
  std::string Done(const std::string& rest = "bk", int code = 0) const {
    const json figures = Figures("backup", code, rest);
    std::string text;
    for (const char* key : {"Copied", "Replaced", "Moved", "Unchanged", "Removed", "Failed"}) {
      text += (text.empty() ? "" : " ") + figures[key].dump();
    }
    return text;
  }
  void ExpectEqual(const std::string& a, const std::string& b, const std::string& rest = "") const {
    const Outcome result = Run("verify", b + " " + rest, a);
    EXPECT_EQ(result.code, 0) << result.out << result.err;
  }
  void ExpectDifference(const std::string& line, const std::string& rest = "") const {
    const Outcome result = Run("verify", "bk " + rest);
    EXPECT_EQ(result.code, 2);
    EXPECT_NE(result.out.find(line), std::string::npos) << line << " not in\n" << result.out;
  }

  std::string Id(const std::string& subject) const {
    return Letters().find(subject)->second["ID"].dump();
  }
  fs::path File(const std::string& subject) const {
    return Letters().find(subject)->second["Attachments"][1]["InternalFileName"].get<std::string>();
  }
};

TEST_F(Backup, Later_backups_copy_just_what_has_changed_and_verify_agrees) {
  Fill(12);
  const auto source = Bytes("store");
  EXPECT_EQ(Done(), "12 0 0 0 0 0");
  ExpectEqual("store", "bk", "--exact");
  EXPECT_EQ(Done(), "0 0 0 12 0 0");
  EXPECT_EQ(Bytes("store"), source);
  EXPECT_EQ(State(m_dir / "bk"), "Closed");

  EXPECT_EQ(Run("mark", Id("letter 1") + " " + Id("letter 2") + " --read").code, 0);
  EXPECT_EQ(Run("mv", Id("letter 3") + " INBOX/b").code, 0);
  EXPECT_EQ(Run("rm", "--purge " + Id("letter 5") + " " + Id("letter 6")).code, 0);
  EXPECT_EQ(Run("mv", "INBOX/b /").code, 0);
  Open("store").Root().OpenFolder(CKitString("b")).Name(CKitString("renamed")).Props("p");
  Write("13.eml", "Subject: letter 13\n\nx\n");
  EXPECT_EQ(Run("import", "in --into new/place").code, 0);
  ExpectDifference(", \"letter 13\"): not in TARGET\n");
  ExpectDifference("folder new/place: not in TARGET\n");

  const auto old = Bytes("bk");
  EXPECT_EQ(Done("bk --dry-run"), "1 2 1 7 0 0");
  EXPECT_EQ(Bytes("bk"), old);
  EXPECT_EQ(Done(), "1 2 1 7 0 0");
  ExpectEqual("store", "bk");
  ExpectDifference(", \"letter 5\"): not in STORE\n", "--exact");
  EXPECT_EQ(Figures("verify", 0, "bk", "store")["onlyInTarget"], 2);
  EXPECT_EQ(Done("bk --mirror"), "0 0 0 11 2 0");
  ExpectEqual("store", "bk", "--exact");
}

TEST_F(Backup, Restore_gives_the_same_store_and_into_another_adds_only_what_it_lacks) {
  Fill(8);
  EXPECT_EQ(Run("rm", Id("letter 7")).code, 0);
  Done();
  EXPECT_EQ(Figures("restore", 0, "new", "bk")["Copied"], 8);
  ExpectEqual("store", "new", "--exact");

  EXPECT_EQ(Run("rm", "--purge " + Id("letter 1") + " " + Id("letter 2")).code, 0);
  Write("own.eml", "Subject: own\n\nx\n");
  EXPECT_EQ(Run("import", "in/own.eml").code, 0);
  const auto before = Letters();
  EXPECT_EQ(Figures("restore", 0, "store --folder INBOX/a", "bk")["Copied"], 1);
  EXPECT_EQ(Letters().count("letter 1"), 1U);
  EXPECT_EQ(Figures("restore", 0, "store", "bk")["Copied"], 1);
  const json again = Figures("restore", 0, "store", "bk");
  EXPECT_EQ(again["Copied"], 0);
  EXPECT_EQ(again["Unchanged"], 8);
  const auto after = Letters();
  EXPECT_EQ(after.size(), before.size() + 2);
  for (const auto& [subject, letter] : before) EXPECT_EQ(after.find(subject)->second, letter);
}

TEST_F(Backup, A_part_is_backed_up_when_asked_for_and_nothing_before_it_is_due) {
  Fill(6);
  EXPECT_EQ(Done("folder --folder INBOX/a"), "3 0 0 0 0 0");
  ExpectEqual("store", "folder", "--folder INBOX/a");
  EXPECT_EQ(Run("check", "", "folder").code, 0);
  EXPECT_NE(Run("folders", "", "folder").out.find(" a\n"), std::string::npos);
  EXPECT_EQ(Run("folders", "", "folder").out.find(" b\n"), std::string::npos);
  EXPECT_EQ(Done("folder --since 2024-01-05"), "2 0 0 1 0 0");
  EXPECT_EQ(Done("folder --folder INBOX/a --mirror"), "0 0 0 3 0 0") << "the others are not gone";

  EXPECT_NE(Run("backup", "due --min-count 7 --min-size 1M").out.find("nothing to do"),
            std::string::npos);
  EXPECT_EQ(Done("due --dry-run"), "6 0 0 0 0 0");
  EXPECT_FALSE(fs::exists(m_dir / "due"));
  EXPECT_EQ(Done("due --min-count 7 --min-size 1K"), "6 0 0 0 0 0");
}

TEST_F(Backup, Verify_names_changed_fields_flipped_bytes_and_what_is_missing) {
  Fill(4);
  Done();
  const std::string id = Id("letter 1");
  {
    const CMSMessageStore store = Open("store");
    CMSDocument letter = CMSMessageStore(store).GetDocument(std::stoul(id));
    letter.Name("another");
    letter.Flag(letter.Flag() | 0x100);
    store.Root().OpenFolder(CKitString("INBOX")).OpenFolder(CKitString("b")).Type(77);
  }
  const std::string label = "letter " + id + " (INBOX/a, \"another\"): ";
  ExpectDifference(label + "Name \"another\" in STORE, \"letter 1\" in TARGET\n");
  ExpectDifference(label + "Flag 280 in STORE, 24 in TARGET\n");
  ExpectDifference("folder INBOX/b: Type 77 in STORE, 0 in TARGET\n");
  EXPECT_EQ(Done(), "0 1 0 3 0 0");

  const fs::path file = File("letter 2");
  const auto time = fs::last_write_time(file);
  const std::string bytes = Slurp(file);
  std::ofstream(file, std::ios::binary) << std::string(bytes).replace(9, 1, "!");
  fs::last_write_time(file, time);
  ExpectDifference("\"letter 2\"): Attachment 2 SHA-256 ");
  std::ofstream(file, std::ios::binary) << bytes;
  ExpectEqual("store", "bk");

  {
    const CMSMessageStore backup = Open("bk");
    CMSFolder folder = backup.Root().OpenFolder(CKitString("INBOX")).OpenFolder(CKitString("b"));
    CMSDocument copy;
    auto place = folder.GetFirstDocumentPosition();
    ASSERT_TRUE(folder.GetNextDocument(copy, place));
    folder.DeleteDocument(copy);
  }
  ExpectDifference("(INBOX/b, \"letter 2\"): not in TARGET\n");
  EXPECT_EQ(Done(), "1 0 0 3 0 0");
  ExpectEqual("store", "bk", "--exact");

  fs::remove(File("letter 3"));
  ExpectDifference("\"letter 3\"): the file of attachment 2, \"f.txt\", is missing in STORE\n");
  const Outcome told = Run("backup", "fresh");
  EXPECT_EQ(told.code, 2);
  EXPECT_NE(told.err.find("(INBOX/a, \"letter 3\"): "), std::string::npos) << told.err;
}

TEST_F(Backup, One_that_was_stopped_is_finished_by_the_next) {
  Fill(30, 20000);
  for (const char* signal : {"TERM", "KILL"}) {
    fs::remove_all(m_dir / "bk");
    // Once it has begun to copy.
    const std::string line =
        "cd '" + m_dir.string() +
        "' && { \"$MSTOOL\" backup store bk >out 2>&1 & "
        "while [ ! -s bk/docs3.db ] && kill -0 $!; do :; done; sleep 0.01; kill -" +
        signal + " $!; wait $!; true; } 2>/dev/null";
    EXPECT_EQ(std::system(line.c_str()), 0);
    EXPECT_EQ(Run("backup", "bk").code, 0);
    ExpectEqual("store", "bk", "--exact");
  }
  SetState("Active", "bk");
  const Outcome next = Run("backup", "bk");
  EXPECT_NE(next.err.find("not closed properly"), next.err.npos) << next.err;
}

TEST_F(Backup, Letters_are_copied_within_a_store_and_into_another) {
  Fill(2);
  EXPECT_EQ(Run("create", "", "other").code, 0);
  EXPECT_EQ(Run("mkdir", "'other:INBOX'").code, 0);
  const std::string id = Id("letter 1");
  const std::string copy = Run("cp", id + " INBOX").out;
  EXPECT_NE(copy, id + "\n");
  EXPECT_EQ(Figures("show", 0, copy.substr(0, copy.size() - 1))["text"], "text 1");
  EXPECT_EQ(Run("cp", id + " other:INBOX").code, 0) << "a folder of this name is there";
  EXPECT_EQ(Figures("ls", 0, "other:INBOX")["letters"].size(), 1U);
  EXPECT_EQ(Run("cp", id + " ./other:INBOX").code, 0);
  EXPECT_EQ(Run("cp", id + " \"$PWD/store:INBOX/b\"").code, 0);
  EXPECT_EQ(Figures("ls", 0, "INBOX/b")["letters"].size(), 2U);
  EXPECT_EQ(Figures("ls", 0, "INBOX", "other")["letters"].size(), 1U);
  EXPECT_EQ(Run("cp", id + " ./other:NOPE").code, 1);
  EXPECT_EQ(Run("cp", "99999 INBOX").code, 1);
  fs::remove(File("letter 2"));
  const Outcome missing = Run("cp", Id("letter 2") + " ./other:INBOX");
  EXPECT_EQ(missing.code, 2);
  EXPECT_NE(missing.err.find("--missing"), std::string::npos);
  EXPECT_EQ(Run("cp", Id("letter 2") + " ./other:INBOX --missing").code, 0);
  EXPECT_EQ(Figures("ls", 0, "INBOX", "other")["letters"].size(), 2U);
}

TEST_F(Backup, Wrong_uses_are_refused_with_their_exit_codes) {
  Fill(1);
  for (const char* wrong : {"store", "store/inside", "bk --since 2024-02-30", "bk --min-size 5G",
                            "bk --folder NOPE", "store/deep/inside", "store/."})
    EXPECT_EQ(Run("backup", wrong).code, 1) << wrong;
  EXPECT_EQ(Run("backup", "bk", "nowhere").code, 4);
  EXPECT_EQ(Run("restore", "new", "bk").code, 4);
  EXPECT_EQ(Run("verify", "bk").code, 4);
  EXPECT_FALSE(fs::exists(m_dir / "bk") || fs::exists(m_dir / "new"));
  EXPECT_FALSE(fs::exists(m_dir / "store/inside"));
  Done();
  const CMSMessageStore open = Open("bk");
  EXPECT_EQ(Run("backup", "bk").code, 5);
  EXPECT_EQ(Run("verify", "bk").code, 5);
  EXPECT_EQ(Run("cp", Id("letter 1") + " bk:INBOX").code, 5);
}

}  // namespace
