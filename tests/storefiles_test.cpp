// The files of a store beside its databases: which belong to it, what the master file and the
// journal hold.
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>
#include <vector>

#include "ms/Source/MSFixer.h"
#include "ms/Source/StoreFiles.h"
#include "ms/Source/corrupted.h"
#include "platform/Profile.h"
#include "platform/Time.h"
#include "support/LogSink.h"
#include "support/OpenStore.h"
#include "support/TempDir.h"

namespace {

// 14:02:09.041 on the 7th of March 2005, wherever the test runs.
platform::Instant FixedClock() {
  platform::Instant instant{0, 41};
  EXPECT_TRUE(platform::FromLocal({2005, 3, 7, 14, 2, 9, 0}, instant.seconds));
  return instant;
}

const std::string kHead = "07/03/2005 14:02:09.041 ======== Request for repair\r\n The reason is: ";

struct Informer : CMSClientInformer {
  void OnIncompleteStore(const std::list<CKitString>& missing, const CKitString& path) override {
    for (const CKitString& name : missing) told += name.str() + " ";
    told += path.str();
    if (refuse) throw XKitMsg("no");
  }
  std::string told;
  bool refuse = false;
};

class StoreFiles : public testing::Test {
 protected:
  StoreFiles() { platform::SetClock(FixedClock); }
  ~StoreFiles() override { platform::SetClock(nullptr); }
  void Remove(const std::string& name) { EXPECT_TRUE(CKitFile::RemoveEx(dir / name)); }
  std::string Value(const char* section, const char* key) const {
    return platform::ReadProfileString(dir / "ms3.db", section, key, "none", 100);
  }
  // Every name and every byte in the directory.
  std::string Image() const {
    std::string image;
    CKitFindFile files(dir.Path());
    while (const auto* entry = files.Next()) image += entry->name + ReadBytes(dir / entry->name);
    return image;
  }
  // The status code of an attempt to open that must leave everything as it was.
  int Refusal(bool readOnly, CMSClientInformer* informer) {
    const std::string before = Image();
    int code = 0;
    try {
      OpenStore(dir.Path(), readOnly, informer);
    } catch (const XKitStatus& status) {
      code = status.Code();
      refusal = status.what();
    } catch (const XKitMsg&) {
      code = -1;
    }
    EXPECT_EQ(Image(), before);
    return code;
  }

  TempDir dir;
  LogSink sink;
  std::string refusal;
};

TEST_F(StoreFiles, A_report_is_journalled_requested_and_logged) {
  WriteBytes(dir / "ms3.db", "[Mine]\r\nkey=value\r\n");
  g_MSBaseInformer.InformBaseIsCorrupted(dir.Path(), " first");
  const std::string text = "MS requests to be repaired ( first, " + dir.Path() + ")";
  EXPECT_EQ(sink.events, "MS |" + text + "|2\n2|" + text + "|ms\\Source\\corrupted:93");
  g_MSBaseInformer.InformBaseIsCorrupted(dir.Path(), "second");
  EXPECT_EQ(ReadBytes(dir / "fixme.dat"), kHead + " first\r\n" + kHead + "second\r\n");
  EXPECT_EQ(ReadBytes(dir / "ms3.db"),
            "[Mine]\r\nkey=value\r\n[Maintenance]\r\nRepairRequest=1\r\n");
  CKitFolder::MakeFolder(dir / "sub");
  CKitFolder::MakeFolder(dir / "sub/fixme.dat");
  EXPECT_THROW(g_MSBaseInformer.InformBaseIsCorrupted(dir / "sub", "third"), XKitFile);
  EXPECT_FALSE(CKitFile::Exists(dir / "sub/ms3.db"));
}

TEST_F(StoreFiles, Reports_of_several_threads_are_whole_one_after_the_other) {
  const auto reason = [](int t) { return std::string(static_cast<std::size_t>(9000), "abcd"[t]); };
  const auto report = [&](int t) {
    for (int i = 0; i < 10; ++i) g_MSBaseInformer.InformBaseIsCorrupted(dir.Path(), reason(t));
  };
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) threads.emplace_back(report, t);
  }
  std::string journal = ReadBytes(dir / "fixme.dat");
  for (int t = 0; t < 40; ++t) {
    const std::string entry = kHead + reason(t % 4) + "\r\n";
    const auto at = journal.find(entry);
    ASSERT_NE(at, std::string::npos);
    journal.erase(at, entry.size());
  }
  EXPECT_EQ(journal, "");
}

TEST_F(StoreFiles, Record_files_make_a_store_and_derived_ones_a_healthy_one) {
  EXPECT_FALSE(CMSMessageStore::IsMSDirectory(dir.Path().c_str()));
  OpenStore(dir.Path());
  for (std::size_t i = 0; i < storefiles::kRequired.size(); ++i) {
    const std::string path = dir / storefiles::kRequired[i];
    const bool record = i == 0 || i == 2 || i == 4 || i == 6;
    std::filesystem::rename(path, dir / "aside");
    EXPECT_EQ(CMSMessageStore::IsMSDirectory(dir.Path().c_str()), !record) << path;
    EXPECT_EQ(MSF::CFixer::IsRequiresRepair(dir.Path().c_str()), !record) << path;
    std::filesystem::rename(dir / "aside", path);
  }
  const auto here = std::filesystem::current_path();
  std::filesystem::current_path(dir.Path());
  EXPECT_TRUE(CMSMessageStore::IsMSDirectory(nullptr));
  EXPECT_FALSE(MSF::CFixer::IsRequiresRepair(nullptr));
  std::filesystem::current_path(here);
  EXPECT_FALSE(MSF::CFixer::IsRequiresRepair((dir.Path() + "/").c_str()));
}

TEST_F(StoreFiles, An_incomplete_store_is_set_aside_whole_or_left_alone) {
  OpenStore(dir.Path()).Root().CreateFolder("kept", "", 0);
  Remove("ms3.db");
  Remove("docs3.idx");
  EXPECT_EQ(Refusal(false, nullptr), 4);
  EXPECT_NE(refusal.find("docs3.idx"), std::string::npos);
  Informer informer;
  EXPECT_EQ(Refusal(true, &informer), 4);
  informer.refuse = true;
  EXPECT_EQ(Refusal(false, &informer), -1);
  const std::string folders = ReadBytes(dir / "folders3.db");
  for (const char* name : {"~07032005.BAD", "~07032005_1.BAD", "~07032005_2.BAD"}) {
    Informer told;
    EXPECT_EQ(OpenStore(dir.Path(), false, &told).Root().GetFolderCount(), 0);
    EXPECT_EQ(told.told, "docs3.idx ms3.db " + dir / name);
    EXPECT_TRUE(CKitFile::Exists(dir / (std::string(name) + "/folders3.db")));
    Remove("ms3.db");
    Remove("docs3.idx");
  }
  EXPECT_EQ(ReadBytes(dir / "~07032005.BAD/folders3.db"), folders);
}

TEST_F(StoreFiles, An_earlier_format_is_recognised_refused_and_not_touched) {
  WriteBytes(dir / "docs2.db", "old");
  EXPECT_TRUE(CMSMessageStore::IsMSDirectory(dir.Path().c_str()));
  Informer informer;
  EXPECT_EQ(Refusal(false, &informer), 50);
  EXPECT_NE(sink.events.find("Starting to convert MS at " + dir.Path() + "|0"), std::string::npos);
  Remove("docs2.db");
  OpenStore(dir.Path());
  WriteBytes(dir / "docs.db", "left over");
  EXPECT_TRUE(OpenStore(dir.Path()).IsValid());
}

TEST_F(StoreFiles, The_master_file_keeps_state_counters_and_client_data) {
  {
    CMSMessageStore store = OpenStore(dir.Path());
    EXPECT_EQ(Value("Maintenance", "State"), "Active");
    EXPECT_EQ(store.Root().CreateFolder("A", "", 0).ID(), 2u);
    EXPECT_EQ(Value("MessageStore", "LastID"), "2");
    for (const char* bad : {"", " ", "a\nb", "a\rb"}) {
      EXPECT_FALSE(store.WriteCustomData(bad, "key", "v"));
      EXPECT_FALSE(store.WriteCustomData("section", bad, "v"));
    }
    for (const char* bad : {"a=b", " ;a", "[a"})
      EXPECT_FALSE(store.WriteCustomData("section", bad, "v]"));
    EXPECT_FALSE(store.WriteCustomData(nullptr, "key", "v"));
    EXPECT_FALSE(store.WriteCustomData("section", "key", "v\r\n[Maintenance]"));
    EXPECT_EQ(Value("section", "key"), "none");
    EXPECT_TRUE(store.WriteCustomData("a]b", "key", std::string(2000, 'x').c_str()));
    EXPECT_EQ(store.GetCustomData("A]B", "KEY"), std::string(1023, 'x'));
  }
  EXPECT_EQ(Value("Maintenance", "State"), "Closed");
  CMSMessageStore store = OpenStore(dir.Path(), true);
  EXPECT_TRUE(store.WriteCustomData("section", "key", nullptr));
  EXPECT_EQ(Value("section", "key"), "");
}

}  // namespace
