// Drives the built program over letters that the tests write.
#include "MsTool.h"

namespace {

constexpr const char* kPlain = "From: a@example.org\nSubject: plain\n\ntext\n";

TEST_F(MsTool, Import_maps_header_recipients_body_and_nested_parts) {
  const std::string attached = "Subject: inner\r\nX-Odd:  kept \r\n\r\nFrom inside\r\n";
  Write("a.eml",
        "From: =?utf-8?B?w4RtdGU=?=\r\n =?utf-8?B?ciBEZXNr?= <desk@example.org>\r\n"
        "To: Team: one@example.org, \"Two, B\" <two@example.org>;\r\n"
        "Cc: =?iso-8859-1?Q?Caf=E9?= <cafe@example.org>\r\nBcc: desk at example.org\r\n"
        "Subject: =?utf-8?B?R3LDvMOfZSDDg=?= =?utf-8?B?7xiZXI=?=\r\n"
        "Date: Mon, 1 Jan 2024 10:00:59 +0100\r\n"
        "Content-Type: multipart/mixed; boundary=o\r\n\r\n--o\r\n"
        "Content-Type: multipart/alternative; boundary=i\r\n\r\n--i\r\n"
        "Content-Type: text/html; charset=utf-8\r\n\r\n<p>x</p>\r\n--i\r\n"
        "Content-Type: text/plain; charset=iso-8859-1\r\n\r\ncaf\xE9\r\n--i--\r\n--o\r\n"
        "Content-Type: application/x-y; name*0*=utf-8''%c3%a9; name*1=.bin\r\n"
        "Content-Transfer-Encoding: base64\r\n\r\nAAEC/w\r\n--o\r\n"
        "Content-Disposition: attachment; filename=\"../../x\\\\y.txt\"\r\n\r\nraw\r\n\r\n--o\r\n"
        "Content-Type: message/rfc822\r\n\r\n" +
            attached + "\r\n--o--\r\n");
  Import();
  const json letter = Only();
  EXPECT_EQ(letter["SenderUserName"], "Ämter Desk");
  EXPECT_EQ(letter["ObsoleteSenderNetAddr"], "desk@example.org");
  EXPECT_EQ(letter["CreationTime"], 1704099600);
  EXPECT_EQ(letter["Flag"], 0x18);
  EXPECT_EQ(letter["Path"], "INBOX");
  EXPECT_EQ(letter["IsUnread"], true);

  const json& to = letter["Recipients"];
  ASSERT_EQ(to.size(), 4U);
  const std::string expected[4][2] = {{"", "one@example.org"},
                                      {"Two, B", "two@example.org"},
                                      {"Café", "cafe@example.org"},
                                      {"", "desk at example.org"}};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(to[i]["UserName"], expected[i][0]);
    EXPECT_EQ(to[i]["Annotation"], expected[i][1]);
    EXPECT_EQ(to[i]["Category"], i < 2 ? 1 : static_cast<int>(i));
    const std::string packet = to[i]["TransEnvFileName"];
    EXPECT_EQ(packet.size(), 12U);
    EXPECT_EQ(Figures("find", 0, packet)["recipient"]["ID"], to[i]["ID"]);
  }

  const json& files = letter["Attachments"];
  ASSERT_EQ(files.size(), 5U);
  EXPECT_EQ(letter["BodyID"], files[0]["ID"]);
  EXPECT_EQ(Content(letter, 0), "café");
  EXPECT_EQ(files[1]["Name"], "part-1.html");
  EXPECT_EQ(files[2]["Name"], "é.bin");
  EXPECT_EQ(Content(letter, 2), std::string("\0\1\2\xFF", 4));  // padding missing in the letter
  EXPECT_EQ(files[3]["Name"], "../../x\\y.txt");
  EXPECT_EQ(fs::path(files[3]["InternalFileName"].get<std::string>()).filename(), "_.._x_y.txt");
  EXPECT_EQ(Content(letter, 3), "raw\r\n");
  EXPECT_EQ(files[4]["Name"], "part-5.eml");
  EXPECT_EQ(Content(letter, 4), attached);
}

TEST_F(MsTool, Broken_letters_are_imported_and_what_is_none_is_refused_whole) {
  Write("bound.eml", "Subject: bound\nContent-Type: multipart/mixed\n\nno boundary\n");
  Write("twice.eml", "Subject: twice\nContent-Type: text/html\nContent-Type: x/y\n\n<b>\n");
  Write("lines.eml", "From nobody Mon Jan  1 00:00:00 2024\ngarbage\nSubject: lines\n\nx\n");
  Write("old.eml", "Subject: old\nDate: Wed, 31 Dec 1969 10:00:00 +0000\n\n\xFF\xE4\n");
  Write("raw.eml", "Subject: \xCE\xE4\nContent-Type: text/plain; charset=koi8-r\n\n\xCE\n");
  Write(
      "long.eml", "Subject: a" + [] {
        std::string s;
        for (int i = 0; i < 400; ++i) s += "ü";
        return s;
      }() + "\n\nx\n");
  Write("empty.eml", "");
  Write("picture.eml", std::string("\x89PNG\r\n\x1A\n\0\0\0\rIHDR", 16));
  Write("prose.eml", "Dear reader,\nthis: is no letter.\n\nFrom: nobody\n");
  const std::string said = Import(2);
  for (const char* text : {"6  letters imported", "3  refused", "1  texts cut",
                           "refused in/empty.eml, offset 0: there is nothing in it",
                           "refused in/picture.eml", "refused in/prose.eml"}) {
    EXPECT_NE(said.find(text), said.npos) << text << " in\n" << said;
  }
  const auto letters = Letters();
  ASSERT_EQ(letters.size(), 6U);
  EXPECT_EQ(Content(letters.find("bound")->second, 0), "no boundary\n");
  EXPECT_EQ(letters.find("twice")->second["Attachments"][0]["Name"], "body.html");
  EXPECT_EQ(letters.count("lines"), 1U);
  EXPECT_EQ(letters.find("old")->second["CreationTime"], 0);
  EXPECT_EQ(Content(letters.find("old")->second, 0), "ÿä\n");
  EXPECT_EQ(Content(letters.find("нД")->second, 0), "н\n");
  const std::string longest = letters.begin()->first.size() > 99 ? letters.begin()->first : "";
  EXPECT_EQ(longest.size(), 353U);  // one byte less than fits, rather than half a character
}

TEST_F(MsTool, Sloppy_letters_keep_their_text_their_characters_and_their_time) {
  Write("type.eml", "Subject: type\nContent-Type: text; charset=koi8-r\n\n\xCE\n");
  Write("odd.eml",
        "Subject: odd\nContent-Type: gz; name=a.gz\n"
        "Content-Transfer-Encoding: base64\n\nAP8K\n");
  Write("raw.eml",
        "Subject: \xA3"
        "1\x81\nFrom: a!b@c@d.org\nContent-Type: x/y\n\n");
  Write("set.eml", "Subject: =?iso-8859-1?Q?=93?= =?gb2312_charset?B?1tA=?=\n\nx\n");
  const std::string named = "Content-Type: text/plain; charset=iso-8859-1; name=n.txt\n";
  Write("named.eml", "Subject: named\nContent-Type: multipart/mixed; boundary=o\n\n--o\n" + named +
                         "Content-Disposition: attachment\n\n\xE1\n--o\n" + named +
                         "Content-Disposition: inline\n\n\xE2\n--o\n" + named + "\n\xE3\n--o--\n");
  Write("date.eml",
        "Subject: date\nDate : Fri, 21 Nov 1997 09(a (b) \\)):\n   55  :  06 -0600\n\nx\n");
  Write("zone.eml", "Subject: zone\nDate: Fri, 21 Nov 1997 09:55 (PST)\n\nx\n");
  Write("dots.eml", "Subject: dots\nDate: Fri, 21 Nov 1997 09.55.06 -0600\n\nx\n");
  Import();
  const auto letters = Letters();
  ASSERT_EQ(letters.size(), 8U);
  const auto at = [&](const char* subject) { return letters.find(subject)->second; };
  EXPECT_EQ(Content(at("type"), 0), "н\n");
  EXPECT_EQ(at("type")["BodyID"], at("type")["Attachments"][0]["ID"]);
  EXPECT_EQ(at("odd")["BodyID"], 0);
  EXPECT_EQ(Content(at("odd"), 0), std::string("\0\xFF\n", 3));
  EXPECT_EQ(at("£1\xEF\xBF\xBD")["SenderUserName"], "a!b@c@d.org");
  EXPECT_EQ(letters.count("“中"), 1U);
  EXPECT_EQ(at("named")["BodyID"], at("named")["Attachments"][0]["ID"]);
  EXPECT_EQ(Content(at("named"), 0), "â");
  EXPECT_EQ(Content(at("named"), 1), "\xE1");
  EXPECT_EQ(Content(at("named"), 2), "\xE3");
  EXPECT_EQ(at("date")["CreationTime"], 880127700);  // a store keeps whole minutes
  EXPECT_EQ(at("zone")["CreationTime"], 880134900);
  EXPECT_EQ(at("dots")["CreationTime"], 0);
}

TEST_F(MsTool, Mbox_is_cut_by_its_lengths_and_lines_and_gives_the_read_state) {
  const std::string inner = "one\n\nFrom b@example.org Mon Jan  1 00:00:00 2024\nSubject: no\n";
  const std::string first =
      "Subject: first\nStatus: RO\nContent-Length: " + std::to_string(inner.size()) + "\n\n" +
      inner;
  const std::string box =
      "From a@example.org Mon Jan  1 00:00:00 2024\n" + first +
      "\nFrom a@example.org Mon Jan  1 00:00:00 2024\nSubject: second\nStatus: O\n\n"
      "\nFrom here on it is text.\n\nFrom - Mon Jan  1 00:00:00 2024\n\n";
  Write("box.mbox", box);
  const std::string refusal = "refused in/box.mbox, offset " + std::to_string(box.find("From - ")) +
                              ": there is nothing in it";
  const std::string said = Import(2);
  EXPECT_NE(said.find(refusal), said.npos) << said;
  const auto letters = Letters();
  ASSERT_EQ(letters.size(), 2U);
  const json& read = letters.find("first")->second;
  EXPECT_EQ(read["Path"], "INBOX/box");
  EXPECT_EQ(read["IsUnread"], false);
  EXPECT_EQ(Content(read, 0), inner);
  const json& unread = letters.find("second")->second;
  EXPECT_EQ(unread["IsUnread"], true);
  EXPECT_EQ(Content(unread, 0), "\nFrom here on it is text.\n");
}

TEST_F(MsTool, Trees_are_mirrored_maildirs_are_folders_and_a_second_import_doubles) {
  for (const char* name :
       {"m/cur/1:2,S", "m/cur/2:2,FT", "m/new/3", "m/tmp/4", "m/.A.B/cur/5", "d/e/6.eml"}) {
    Write(name, kPlain);
  }
  Write("d/README", "From here to there\nno letter\n");
  EXPECT_NE(Import().find("1  files without letters skipped"), std::string::npos);
  Import();
  const json folders = Figures("folders", 0)["folders"][0]["Folders"];
  std::map<std::string, std::pair<int, int>> counts;
  const std::function<void(const json&)> count = [&](const json& list) {
    for (const json& f : list) {
      counts[f["FullName"]] = {f["GetDocumentCount"], f["GetUnreadDocumentCount"]};
      count(f["Folders"]);
    }
  };
  count(folders);
  EXPECT_EQ(counts.at("INBOX/m"), std::pair(6, 4));
  EXPECT_EQ(counts.at("INBOX/m/A/B"), std::pair(2, 2));
  EXPECT_EQ(counts.at("INBOX/d/e"), std::pair(2, 2));
  EXPECT_EQ(counts.count("INBOX/m/cur") + counts.count("INBOX/m/tmp"), 0U);
  EXPECT_EQ(Run("import", "in/d/e/6.eml --into New/Place --batch 0").code, 0);
  EXPECT_EQ(Figures("ls", 0, "New/Place")["letters"].size(), 1U);
  int deleted = 0;
  for (const auto& [name, letter] : Letters()) deleted += (letter["Flag"].get<int>() & 0x80) != 0;
  EXPECT_EQ(deleted, 2);
}

TEST_F(MsTool, Says_by_its_exit_code_what_kind_of_failure_it_was) {
  EXPECT_EQ(Run("").code, 1);
  EXPECT_EQ(Run("create").code, 1);
  EXPECT_EQ(Run("ls", "NOPE").code, 1);
  EXPECT_EQ(Run("import", "missing").code, 4);
  const Outcome nowhere = Run("stat", "--json", "nowhere");
  EXPECT_EQ(nowhere.code, 4);
  EXPECT_EQ(nowhere.err.rfind("mstool: nowhere: there is no such directory", 0), 0U);
  EXPECT_NE(Run("stat", "", "in").err.find("holds no store"), std::string::npos);
  {
    const CMSMessageStore open = Open("store");
    EXPECT_EQ(Run("folders").code, 5);
    EXPECT_EQ(Run("mkdir", "x").code, 5);
    EXPECT_EQ(State(m_dir / "store"), "Active");
  }
  fs::copy(m_dir / "store", m_dir / "whole", fs::copy_options::recursive);
  fs::resize_file(m_dir / "store/docs3.db", 20);
  EXPECT_EQ(Run("folders").code, 2);
  EXPECT_EQ(State(m_dir / "store"), "Closed");
  fs::remove(m_dir / "store/docs3.db");
  EXPECT_EQ(Run("folders").code, 2);
  EXPECT_EQ(Run("mkdir", "x").code, 2);
  EXPECT_EQ(Run("folders", "", "whole").code, 0);
}

TEST_F(MsTool, Reading_leaves_the_mark_of_an_unclean_shutdown_and_tells_of_it) {
  EXPECT_EQ(Run("folders").err, "");
  SetState("Active");
  for (const char* command : {"folders", "dump", "stat"}) {
    const Outcome result = Run(command);
    EXPECT_EQ(result.code, 0);
    EXPECT_NE(result.err.find("not closed properly"), std::string::npos);
    EXPECT_EQ(State(m_dir / "store"), "Active");
  }
  EXPECT_EQ(Run("mkdir", "x").code, 0);
  EXPECT_EQ(State(m_dir / "store"), "Closed");
}

TEST_F(MsTool, Letters_and_folders_are_marked_moved_shown_extracted_and_removed) {
  Write("a.eml", std::string("Subject: \x1B[31m\xE2\x80\xAEred\n") + kPlain);
  Import();
  const std::string id = std::to_string(Only()["ID"].get<int>());
  const auto unread = [&] { return Figures("ls", 0, "INBOX")["folder"]["GetUnreadDocumentCount"]; };
  EXPECT_EQ(unread(), 1);
  EXPECT_EQ(Run("mark", id + " --unread").code, 0);  // is so already, and counts once
  EXPECT_EQ(unread(), 1);
  EXPECT_EQ(Run("mark", id + " --read").code, 0);
  EXPECT_EQ(unread(), 0);
  EXPECT_EQ(Run("mark", id + " --unread").code, 0);
  EXPECT_EQ(unread(), 1);
  EXPECT_EQ(Run("show", id).out.find('\x1B'), std::string::npos);
  EXPECT_NE(Run("show", id).out.find("␛[31m\xEF\xBF\xBDred"), std::string::npos);
  EXPECT_EQ(Figures("show", 0, id)["text"], "text\n");

  EXPECT_EQ(Run("mkdir", "a/b").code, 1);
  EXPECT_EQ(Run("mkdir", "-p a/b").code, 0);
  EXPECT_EQ(Run("mv", id + " a/b").code, 0);
  EXPECT_EQ(Run("mv", "a a/b").code, 1);
  EXPECT_EQ(Run("mv", "INBOX a").code, 1);
  EXPECT_EQ(Only()["Path"], "a/b");
  EXPECT_EQ(Run("rm", "a/b").code, 0);
  EXPECT_EQ(Only()["Path"], "TRASH/b");
  EXPECT_EQ(Run("mv", id + " INBOX").code, 0);
  EXPECT_EQ(Run("rm", id).code, 0);
  EXPECT_EQ(Only()["Flag"].get<int>() & 0x80, 0x80);
  EXPECT_EQ(Run("extract", id + " out-files").code, 0);
  EXPECT_EQ(Slurp(m_dir / "out-files/body.txt"), "text\n");
  EXPECT_EQ(Run("extract", id + " out-files").code, 0);
  EXPECT_TRUE(fs::exists(m_dir / "out-files/body (2).txt"));
  EXPECT_EQ(Run("rm", id).code, 1);
  EXPECT_EQ(Run("rm", "--purge " + id).code, 0);
  EXPECT_TRUE(Letters().empty());
  EXPECT_EQ(Run("rm", "INBOX --purge").code, 1);

  EXPECT_EQ(Run("custom", "mine key 'a value'").code, 0);
  EXPECT_EQ(Figures("custom", 0, "mine key")["value"], "a value");
  EXPECT_EQ(Run("custom", "maintenance State Closed").code, 1);
  const json stat = Figures("stat", 0);
  EXPECT_EQ(stat["format"], 1);
  EXPECT_EQ(stat["records"][0]["UC"], 0);
  EXPECT_EQ(stat["Size"], 0);
}

}  // namespace
