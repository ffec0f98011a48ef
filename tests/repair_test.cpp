// Scans and repairs of damaged stores.
#include <sstream>

#include "support/FaultyFiles.h"
#include "support/RepairFixture.h"

#include "ms/Source/MSFixer.h"
#include "ms/Source/MaintenanceLog.h"
#include "platform/Time.h"

namespace {

using MSF::CFixer;

constexpr const char* kRecordFiles[] = {"docs3.db", "attach3.db", "rcpt3.db", "folders3.db"};

class Repair : public RepairFixture {};

}  // namespace

TEST_F(Repair, A_healthy_store_keeps_every_byte_and_gets_no_report) {
  EXPECT_TRUE(fixer.ScanMS(path.c_str()));
  const auto before = ReadFiles();
  std::ostringstream log;
  EXPECT_EQ(fixer.SetLog(&log), nullptr);
  platform::SetClock([] { return platform::Instant{1709801340, 0}; });
  EXPECT_TRUE(fixer.RepairMS(path.c_str()));
  platform::SetClock(nullptr);
  for (const char* file : kRecordFiles)
    EXPECT_EQ(ReadBytes(path + "/" + file), before.at(file)) << file;
  EXPECT_EQ(ReadFiles().size(), before.size());
  EXPECT_EQ(fixer.ReportDirectory(), "");

  const platform::LocalTime t = platform::ToLocal({1709801340, 0});
  const std::string time =
      KitFormat("%02d-%02d-%04d %02d:%02d", t.day, t.month, t.year, t.hour, t.minute);
  const std::string stars(63, '*');
  const std::string report =
      path + KitFormat("~%02d%02d%04d.REP", t.day, t.month, t.year) + platform::Separator();
  const std::string text = log.str();
  const std::string docs = CKitFile::Join(path, "docs3.db");
  EXPECT_EQ(text.find("\n" + stars + "\n\n" + time +
                      "     MESSAGE STORE MAINTAINANCE LOG STARTS HERE\n\n" + stars +
                      "\n\nMESSAGE STORE DIRECTORY = \"" + path +
                      "\"\nBACKUP DIRECTORY        = \"" + report +
                      "\"\nOBJECTIVE               = .: repair :.\n\n"
                      "\n>>> creating temporary DB files\n\n\tcopying \"" +
                      docs + "\" to \"" + docs + ".tmp\"\n"),
            0U);
  std::size_t at = 0;
  for (const char* step :
       {"creating temporary DB files", "mounting message store",
        "object statistics:", "rolling back uncommited transactions", "checking msids",
        "searching for predefined folders", "recreating predefined folders", "checking references",
        "fixing data", "fixing master db", "rebuilding indexes", "dealing off DB repair requests",
        "unmounting message store", "Replacing DB files"}) {
    const auto place = text.find(std::string("\n>>> ") + step + "\n\n", at);
    ASSERT_NE(place, std::string::npos) << step;
    at = place;
  }
  EXPECT_NE(
      text.find("\t-------------------------------\n\t\tSI: 45674B21\n\t\tVE: 00000005\n\t\tDO: "
                "00000030\n\t\tKS: 00000004\n\t\tDS: 000002FC\n\t\tTC: 00000064\n\t\tUC: "
                "00000002\n\t\tFI: 00000002\n\t\tDC: 00000000\n\t\tR1: 00000001\n\t\tR2: "
                "00000000\n\t\tR3: 00000000\n\t\tAT: 00000064\n\t\tAU: 00000002\n\t\tAF: "
                "00000062\n"),
      std::string::npos);
  EXPECT_NE(text.find("\tfolders     : 10\n\tdocuments   : 2\n\tattachments : 2\n\trecipients  : "
                      "1\n"),
            std::string::npos);
  EXPECT_NE(text.find("\tINBOX     [F-00000003:00000002]\n"), std::string::npos);
  EXPECT_NE(text.find("\tremoving backup directory\n\tdeleting \"" + report + "docs3.db\"\n"),
            std::string::npos);
  EXPECT_TRUE(text.ends_with("\n\n\n###\n\n" + stars + "\n\n" + time +
                             "     MESSAGE STORE MAINTAINANCE LOG ENDS HERE\n\n" + stars + "\n\n"));
  EXPECT_NE(events.events.find("MS |MS repair is starting (" + path + ")|0\n"), std::string::npos);
  EXPECT_NE(events.events.find("MS |MS repair is finished (" + path + ")|0\n"), std::string::npos);
  // What only the layout has.
  EXPECT_EQ(MSF::GetIDString(CFixer::COID{31, static_cast<MSF::EObjectType>(9)}), "[X-0000001F]");
  std::ostringstream other;
  MSF::CMaintenanceLog(&other).JobBegin(7, "d", "");
  EXPECT_NE(other.str().find("BACKUP DIRECTORY        = \"[none]\"\nOBJECTIVE               = .: "
                             "unknown :.\n\n"),
            std::string::npos);
}

TEST_F(Repair, What_cannot_be_repaired_stays_untouched) {
  const auto put = [&](std::uint32_t size) {
    Edit("rcpt3.db", [=](std::string& bytes) { storecheck::PutU32(bytes, 16, size); });
  };
  put(923);
  const auto before = ReadFiles();
  struct Callback : CFixer::CCallback {
    bool OnProgress(const CFixer::CProgress&) override { return --left > 0; }
    void OnError(int, int, const char* text) override { error = text; }
    int left = 1000;
    std::string error;
  } callback;
  fixer.SetCallback(&callback);
  std::ostringstream log;
  fixer.SetLog(&log);
  EXPECT_FALSE(fixer.RepairMS(path.c_str()));
  EXPECT_NE(fixer.Error().find("message store file corrupted (DB file record size mismatch"),
            std::string::npos);
  EXPECT_EQ(callback.error, fixer.Error());
  EXPECT_NE(log.str().find("\n\n\n[ERROR]\n\n" + fixer.Error()), std::string::npos);
  EXPECT_EQ(ReadFiles(), before);
  put(922);
  // Stopped anywhere, in use, or on a disk that fails at any step before the new files are moved.
  const auto healthy = ReadFiles();
  for (int calls = 1; calls < 12; ++calls) {
    callback.left = calls;
    EXPECT_FALSE(fixer.RepairMS(path.c_str()));
    EXPECT_EQ(ReadFiles(), healthy) << calls;
  }
  fixer.SetCallback(nullptr);
  {
    const CMSMessageStore open = OpenStore(path);
    EXPECT_FALSE(fixer.RepairMS(path.c_str()));
    WriteBytes(path + "/docs3.db.tmp", "of another job");
    EXPECT_FALSE(fixer.ScanMS(path.c_str()));
  }
  for (unsigned nth = 1; nth < 40; ++nth) {
    FaultyFiles files;
    files.Fail({.calls = call::kCopy | call::kWrite | call::kAppend | call::kTruncate | call::kSync,
                .nth = nth,
                .cause = platform::Cause::NoSpace});
    if (!fixer.RepairMS(path.c_str())) {
      for (const char* file : kRecordFiles)
        EXPECT_EQ(ReadBytes(path + "/" + file), healthy.at(file)) << nth;
      EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path()), {}), 3)
          << nth;  // no report
    }
  }
  // Cut off while the new files take their places.
  for (unsigned nth = 1; nth <= 11; ++nth) {
    {
      FaultyFiles files;
      files.Fail({.calls = call::kReplace | call::kRemove, .nth = nth, .forGood = true});
      fixer.RepairMS(path.c_str());
    }
    EXPECT_TRUE(fixer.RepairMS(path.c_str()));
    EXPECT_EQ(OpenStore(path).GetDocument(9).GetAttachmentCount(), 1) << nth;
  }
}
