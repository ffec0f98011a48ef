// Stores whose records or directories were prepared to reach files outside: whatever is done with
// them, a directory beside the store stays as it is, and nothing of it is carried anywhere.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <list>
#include <map>

#include "support/LogSink.h"
#include "support/OpenStore.h"
#include "support/TempDir.h"

#include "ms/Source/Archiver.h"
#include "ms/Source/MSFixer.h"
#include "ms/Source/ObjectAccess.h"

namespace {

namespace fs = std::filesystem;

class Hostile : public testing::Test {
 protected:
  // The victims bear names that foreign or half paths would have in the current directory.
  Hostile() {
    fs::create_directory(victim);
    for (const char* name : {"a.txt", "C:\\a.txt", "\\a.txt", "\\\\host\\a.txt"})
      WriteBytes(victim / name, "secret");
    WriteBytes(dir / "new.txt", "new");
    fs::current_path(victim);
    m_before = FilesIn(victim);
  }
  ~Hostile() override { fs::current_path(m_here); }

  static std::map<std::string, std::string> FilesIn(const fs::path& directory) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(directory))
      if (!entry.is_symlink())
        files[entry.path()] = entry.is_directory() ? "" : ReadBytes(entry.path());
    return files;
  }
  // A letter with one attachment, whose file and record are then at the enemy's mercy.
  void MakeStore() {
    for (const char* name : {"store", "out", "backup"}) fs::remove_all(dir / name);
    fs::create_directory(dir / "out");
    WriteBytes(dir / "a.txt", "text");
    CMSMessageStore store = OpenStore(path);
    CMSDocument letter =
        store.Root().CreateDocument("one", "", "", "", "", "", "", "", "", docflag::Complete, 1);
    m_letter = letter.ID();
    file = letter.AddAttachment(dir / "a.txt", false, "a.txt", "a.txt", 0).InternalFileName().str();
  }
  template <class Body>
  void WithLetter(Body body) {
    CMSMessageStore store = OpenStore(path);
    CMSDocument letter = store.GetDocument(m_letter);
    std::list<CMSAttachment> attachments;
    letter.Attachments(attachments);
    body(store, letter, attachments.front());
  }
  void Name(const std::string& stored) {
    WithLetter([&](auto&, auto&, CMSAttachment& attachment) {
      CMSFieldAccess::Write(attachment, [&](CMSAttachmentData& record) {
        CMSFieldAccess::PutText(record.InternalFileName, stored);
      });
    });
  }
  // lost: the letter was cut off, so a repair takes it and its attachment away.
  void Repair(bool lost) {
    if (lost) WithLetter([](auto&, CMSDocument& letter, auto&) { letter.Flag(0); });
    MSF::CFixer fixer;
    fixer.SetDeep(true);
    fixer.RepairMS(path.c_str());
  }
  void ExpectUntouched(const std::string& what) {
    EXPECT_EQ(FilesIn(victim), m_before) << what;
    for (const auto& [name, bytes] : FilesIn(dir.Path()))
      EXPECT_TRUE(bytes != "secret" || name.starts_with(victim.string())) << what << ": " << name;
  }

  using Use = std::function<void(CMSMessageStore&, CMSDocument&, CMSAttachment&)>;
  const std::map<std::string, Use> uses{
      {"delete attachment", [](auto&, auto& letter, auto& one) { letter.DeleteAttachment(one); }},
      {"delete letter", [](auto& s, auto& letter, auto&) { s.Root().DeleteDocument(letter); }},
      {"remove", [](auto&, auto& letter, auto&) { letter.RemoveAttachments(); }},
      {"put", [this](auto&, auto&, auto& one) { one.Put(CKitFolder(dir / "out")); }},
      {"get", [this](auto&, auto&, auto& one) { one.Get((dir / "new.txt").c_str(), false); }},
      {"size", [](auto&, auto&, auto& one) { EXPECT_EQ(one.FileSize(), 0u); }},
      {"clone",
       [](auto&, auto& letter, auto&) {
         CMSFolder folder = letter.Parent();
         letter.Clone(folder, true);
       }},
      {"accept", [](auto&, auto& letter, auto&) { letter.AcceptAttachments(letter, nullptr); }},
      {"back up", [this](auto& s, auto&, auto&) {
         bool copied = false;
         CMSArchiver().Backup(s, (dir / "backup").c_str(), nullptr, &copied);
       }}};
  void UseAll(const std::string& what, const std::function<void()>& prepare) {
    for (const auto& [name, use] : uses) {
      MakeStore(), prepare();
      try {
        WithLetter(use);
      } catch (const XKitMsg&) {  // refused is as good
      }
      ExpectUntouched(what + ": " + name);
    }
    for (const bool lost : {false, true})
      MakeStore(), prepare(), Repair(lost), ExpectUntouched(what + ": repair");
#ifdef MS_TOOL
    MakeStore(), prepare();
    const std::string command = MS_TOOL " extract '" + path + "' " + std::to_string(m_letter) +
                                " '" + dir / "out" + "' >/dev/null 2>&1";
    EXPECT_NE(std::system(command.c_str()), 0) << what;
    ExpectUntouched(what + ": extract");
#endif
  }

  TempDir dir{fs::exists("/dev/shm") ? "/dev/shm" : ""};
  const std::string path = dir / "store";
  const fs::path victim = dir / "victim";
  fs::path file;  // of the attachment
  LogSink events;

 private:
  const fs::path m_here = fs::current_path();
  std::map<std::string, std::string> m_before;
  unsigned long m_letter = 0;
};

TEST_F(Hostile, No_stored_name_leads_out_of_the_store) {
  for (const std::string& name :
       {std::string("..\\victim\\a.txt"), std::string("d\\..\\..\\victim\\a.txt"),
        std::string("../victim/a.txt"), path + "/../victim/a.txt", dir / "none/../victim/a.txt",
        std::string("C:\\a.txt"), std::string("\\a.txt"), std::string("\\\\host\\a.txt")})
    UseAll(name, [&] { Name(name); });
}

TEST_F(Hostile, No_link_in_the_store_leads_out_of_it) {
  UseAll("linked directory", [&] {
    fs::remove_all(file.parent_path());
    fs::create_directory_symlink(victim, file.parent_path());
  });
  for (const char* target : {"a.txt", "new"})
    UseAll(std::string("linked file: ") + target, [&] {
      fs::remove(file);
      fs::create_symlink(victim / target, file);
    });
}

TEST_F(Hostile, Neither_a_file_that_is_put_nor_a_repair_goes_through_a_link_in_its_way) {
  MakeStore();
  fs::create_symlink(victim / "a.txt", dir / "out/a.txt");
  EXPECT_THROW(WithLetter(uses.at("put")), XKitFile);
  ExpectUntouched("put");
  for (const std::string name : {"docs3.db.tmp", "docs3.idx.tmp", "ms3.db.tmp", "ms3.db.new"}) {
    MakeStore();
    fs::create_symlink(victim / "a.txt", path + "/" + name);
    Repair(true);
    ExpectUntouched(name);
  }
  MakeStore();
  fs::create_symlink(victim, path + "/ALIEN");
  Repair(true);
  ExpectUntouched("ALIEN");
  EXPECT_EQ(ReadBytes(file), "text");
}

TEST_F(Hostile, A_whole_path_is_for_the_client_to_delete_and_for_no_repair) {
  const std::string whole = dir / "whole.txt";
  WriteBytes(whole, "own");
  MakeStore(), Name(whole), Repair(true);
  EXPECT_EQ(ReadBytes(whole), "own");
  MakeStore(), Name(whole), WithLetter(uses.at("delete letter"));
  EXPECT_FALSE(fs::exists(whole));
}

}  // namespace
