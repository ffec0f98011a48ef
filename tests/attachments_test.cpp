// Attachments: their files, and what a letter makes of them.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "support/Engine.h"
#include "support/FaultyFiles.h"
#include "support/OpenStore.h"
#include "support/Skip.h"

#include "ms/Source/AttachmentFiles.h"
#include "ms/Source/ObjectAccess.h"

namespace {

namespace fs = std::filesystem;

class Attachments : public testing::Test {
 protected:
  Attachments() { Open(); }
  void Open(CMSDurabilityLevel level = CMSDurabilityLevel::Operation) {
    letter = {}, store = {};
    store = OpenStore(dir / "store", false, nullptr, level);
    letter = store.Root().CreateDocument("", "", "", "", "", "", "", "", "", 0, 0);
  }
  std::string Source(const std::string& bytes, const std::string& name = "source.txt") {
    WriteBytes(dir / name, bytes);
    return dir / name;
  }
  CMSAttachment Add(const std::string& bytes, long flag = 0) {
    return letter.AddAttachment(Source(bytes), false, "shown", "given", flag);
  }
  std::ptrdiff_t Directories() const {
    return std::count_if(fs::directory_iterator(dir / "store"), fs::directory_iterator(),
                         [](const fs::directory_entry& entry) { return entry.is_directory(); });
  }

  TempDir dir;
  CMSMessageStore store;
  CMSDocument letter;
};

TEST_F(Attachments, Files_of_one_name_lie_apart_and_count_in_letter_and_store) {
  const CMSAttachment first = Add("one"), second = Add("twofold");
  EXPECT_EQ(ReadBytes(first.InternalFileName()), "one");
  EXPECT_EQ(ReadBytes(second.InternalFileName()), "twofold");
  EXPECT_EQ(CKitFile::DirectoryName(CKitFile::DirectoryName(first.InternalFileName())),
            dir / "store");
#ifndef _WIN32
  EXPECT_EQ(fs::status(first.InternalFileName().str()).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write);
#endif
  EXPECT_EQ(second.DateTime().Seconds(), CKitFile::Info(dir / "source.txt").modified);
  EXPECT_EQ(letter.Size(), 10u);
  EXPECT_EQ(store.GetFullSize(), 10);
  EXPECT_EQ(letter.GetRawStorageSize(), 10u + 764 + 2 * 741);
  CMSAttachment again = store.GetAttachment(first.ID());
  again.CorrectSize(-1);
  EXPECT_EQ(letter.Size(), 9u);
  for (const int size : {50, 0, 2}) {
    again.Size(size);
    EXPECT_EQ(letter.Size() * 100 + static_cast<unsigned long>(store.GetFullSize()),
              static_cast<unsigned long>(size + 7) * 101);
  }
  letter.DeleteAttachment(again);
  EXPECT_EQ(store.GetFullSize(), 7);
  EXPECT_EQ(Directories(), 1);
  EXPECT_EQ(letter.GetAttachmentCount(), 1);
}

TEST_F(Attachments, A_moved_source_leaves_zeros_when_it_was_secret) {
  for (const long flag : {0L, attachmentflag::Encrypted, attachmentflag::Body}) {
    const std::string source = Source("secret");
    fs::create_hard_link(source, dir / "remains");
    EXPECT_EQ(ReadBytes(letter.AddAttachment(source, true, "", "", flag).InternalFileName()),
              "secret");
    EXPECT_FALSE(fs::exists(source));
    EXPECT_EQ(ReadBytes(dir / "remains"), flag == 0 ? "secret" : std::string(6, '\0'));
    fs::remove(dir / "remains");
  }
}

TEST_F(Attachments, Body_and_key_follow_the_flags) {
  CMSAttachment body = letter.CreateEmptyLetterText(), secret = Add("x", 0x1), more = Add("y", 0x1);
  EXPECT_EQ(letter.Body(), body);
  EXPECT_EQ(ReadBytes(body.InternalFileName()), "");
  CMSFieldAccess::Write(letter, [](CMSDocumentData& record) {
    record.Key[31] = 1;
    record.CryptInfo[4] = 5;
  });
  const auto key = [&] {
    return CMSFieldAccess::Read(letter, [](const CMSDocumentData& record) {
      return record.Key[31] * 10 + record.CryptInfo[4];
    });
  };
  more.Flag(0x2);
  EXPECT_EQ(letter.Flag() + key(), docflag::Encrypted + 15);
  letter.DeleteAttachment(secret);
  EXPECT_EQ(letter.Flag() + key(), 0);
  body.Flag(0);
  EXPECT_EQ(letter.BodyID(), 0u);
  more.Flag(attachmentflag::Body);
  EXPECT_EQ(letter.Body(), more);
  letter.DeleteAttachment(more);
  EXPECT_EQ(letter.BodyID(), 0u);
}

TEST_F(Attachments, Refused_arguments_leave_nothing_behind) {
  const std::string source = Source("x"), longName = Source("x", std::string(251, 'n'));
  const std::string fits(200, 'n'), most(259, 's');
  EXPECT_EQ(CodeOf([&] { letter.AddAttachment(source, true, fits + "!", "", 0); }), 87);
  EXPECT_EQ(CodeOf([&] { letter.AddAttachment(source, true, "", most + "!", 0); }), 87);
  EXPECT_EQ(CodeOf([&] { letter.AddAttachment(longName, true, "", "", 0); }), 87);
  EXPECT_THROW(letter.AddAttachment(dir / "missing", true, "", "", 0), XKitFile);
  EXPECT_THROW(letter.AddAttachment(dir.Path(), true, "", "", 0), XKitFile);
  CMSFolder root = store.Root();
  root.DeleteDocument(letter);
  EXPECT_EQ(CodeOf([&] { letter.AddAttachment(source, true, "", "", 0); }), 6);
  EXPECT_EQ(Directories(), 0);
  EXPECT_TRUE(fs::exists(source) && fs::exists(longName));
  letter = root.CreateDocument("", "", "", "", "", "", "", "", "", 0, 0);
#ifdef _WIN32
  constexpr const char* kOddName = "a;b.txt";
#else
  constexpr const char* kOddName = "a\\b.txt";
#endif
  EXPECT_TRUE(letter.AddAttachment(Source("x", kOddName), true, fits, most, 0).FileSize() == 1);
}

TEST_F(Attachments, Files_that_come_and_go_within_one_batch_keep_the_store_writable) {
  CMSBatch batch(store);
  CMSAttachment attachment = Add("short-lived");
  letter.DeleteAttachment(attachment);
  batch.Commit();
  EXPECT_EQ(Directories(), 0);
  attachment = Add("first");
  letter.RemoveAttachments();
  attachment.Get(Source("second").c_str(), false);
  batch.Commit();
  EXPECT_EQ(ReadBytes(attachment.InternalFileName()), "second");
  EXPECT_FALSE(store.IsReadOnly());
}

TEST_F(Attachments, A_source_moved_within_a_batch_goes_when_copy_and_record_are_on_the_medium) {
  FaultyFiles faulty;
  Open();
  CMSAttachment attachment = Add("stored");
  std::string synced;
  faulty.Watch([&](const FaultyFiles::Call& made) {
    if (made.kind != call::kSync || !fs::exists(dir / "source.txt")) return;
    const bool copy = CKitFile::DirectoryName(made.path) != dir / "store";
    synced += copy ? "copy " : CKitFile::BaseName(made.path) + " ";
  });
  {
    const CMSBatch batch(store);
    letter.AddAttachment(Source("new"), true, "", "", 0);
    EXPECT_NE(std::exchange(synced, "").find("copy attach3 "), std::string::npos);
    EXPECT_FALSE(fs::exists(dir / "source.txt"));
    attachment.Get(Source("other").c_str(), true);
    EXPECT_EQ(synced.substr(0, 5), "copy ");
    EXPECT_NE(synced.find(" attach3 "), std::string::npos);
    EXPECT_FALSE(fs::exists(dir / "source.txt"));
  }
  attachment = {}, letter = {}, store = {};
}

TEST_F(Attachments, Removing_all_keeps_records_except_those_to_be_removed_entirely) {
  CMSAttachment kept = Add("kept"), gone = Add("gone", attachmentflag::RemoveEntirely);
  letter.RemoveAttachments();
  EXPECT_TRUE(kept && !gone);
  EXPECT_EQ(kept.Flag(), attachmentflag::FileRemoved);
  EXPECT_EQ(kept.FileSize() + static_cast<unsigned long>(Directories()), 0u);
  EXPECT_EQ(letter.Flag(), 0x80);
  const CMSAttachment later = Add("later");
  letter.RemoveAttachments();
  EXPECT_EQ(later.FileSize(), 5u);
  kept.Get(later.InternalFileName().c_str(), false);
  EXPECT_EQ(ReadBytes(kept.InternalFileName()), "later");
}

TEST_F(Attachments, Put_and_get_replace_whole_files) {
  CMSAttachment attachment = Add("stored");
  fs::create_directory(dir / "out");
  WriteBytes(dir / "out/source.txt", "something longer");
  EXPECT_EQ(attachment.Put(CKitFolder(dir / "out")).str(),
            CKitFile::Join(dir / "out", "source.txt"));
  EXPECT_EQ(ReadBytes(dir / "out/source.txt"), "stored");
  attachment.Get((dir / "out/source.txt").c_str(), true);
  EXPECT_FALSE(fs::exists(dir / "out/source.txt"));
  const std::string longer = Source("new content");
  {
    FaultyFiles faulty;
    faulty.Fail({.calls = call::kReplace, .cause = platform::Cause::NoSpace});
    EXPECT_THROW(attachment.Get(longer.c_str(), true), XKitFile);
  }
  EXPECT_EQ(ReadBytes(attachment.InternalFileName()), "stored");
  attachment.Get(longer.c_str(), false);
  attachment.Get(attachment.InternalFileName().c_str(), true);
  EXPECT_EQ(ReadBytes(attachment.InternalFileName()), "new content");
  EXPECT_EQ(attachment.Size(), 11);
  EXPECT_EQ(letter.Size(), 6u);  // the letter is not told
  EXPECT_EQ(std::distance(fs::recursive_directory_iterator(dir / "store"), {}), 11 + 2);
}

TEST_F(Attachments, Stored_names_never_lead_out_of_the_store_and_never_cost_a_database) {
  using namespace attachmentfiles;
  const std::string home = dir / "store";
  CMSDurability durability(CMSDurabilityLevel::Process, home);
  for (const char* name : {"..\\victim", "a\\..\\..\\victim", "a/../../victim", "", ".", "a\\\\b",
                           "a\\", "..", "../victim"})
    EXPECT_EQ(ToFull(home, name), "") << name;
  EXPECT_EQ(ToFull(home, "d\\f.txt"), CKitFile::Join(CKitFile::Join(home, "d"), "f.txt"));
  const std::string own = dir / "f";
  EXPECT_EQ(ToFull(home, own), own);
  const char* foreign = platform::IsSeparator('\\') ? "/abs/f" : "C:\\abs\\f";
  for (const char* name : {"/abs/../f", "\\f", foreign}) EXPECT_EQ(ToFull(home, name), "") << name;
  EXPECT_EQ(ToStored(home, home + "/d/f.txt"), "d\\f.txt");
  EXPECT_EQ(ToStored(home, home + "2/f.txt"), home + "2/f.txt");
  Source("v", "victim");
  for (const char* name : {"..\\victim", "Docs3.DB", "docs3.db"}) Remove(home, name, durability);
  EXPECT_TRUE(fs::exists(dir / "victim") && fs::exists(home + "/docs3.db"));
  for (const std::string& name :
       {std::string("docs3.db"), home + "/docs3.db", home + "/x/..//docs3.db"}) {
    const auto before = fs::file_size(home + "/docs3.db");
    CMSAttachment attachment = Add("x");
    CMSFieldAccess::Write(attachment, [&](CMSAttachmentData& record) {
      CMSFieldAccess::PutText(record.InternalFileName, name);
    });
    EXPECT_THROW(attachment.Get((dir / "victim").c_str(), true), XKitFile) << name;
    letter.DeleteAttachment(attachment);
    EXPECT_TRUE(fs::exists(dir / "victim"));
    EXPECT_EQ(fs::file_size(home + "/docs3.db"), before) << name;
  }
}

}  // namespace
