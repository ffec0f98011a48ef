// The master file: a file of any content, whose keys are read, written, and read again.
// Input: two parts with text for a key and a value, then the file.
#include <algorithm>

#include "Scratch.h"
#include "ms/Source/MasterFile.h"
#include "platform/Profile.h"
#include "support/TempDir.h"

namespace {

using fuzz::Expect;

constexpr const char* kSections[] = {"MessageStore", "Maintenance", "ExtraFolderData", "client"};
constexpr const char* kKeys[] = {"LastID", "Size", "State", "1", "key"};

std::string ReadAll(const std::string& path) {
  std::string all;
  for (const char* section : kSections)
    for (const char* key : kKeys)
      all += platform::ReadProfileString(path, section, key, "none", 64) + '\n';
  return all;
}

// What a value reads as: without blanks around it, then without one pair of quotes.
bool IsPlain(const std::string& value) {
  const auto isPlain = [](unsigned char c) { return c > ' ' && c != '"' && c != '\''; };
  return std::all_of(value.begin(), value.end(), isPlain) && value.size() < 1000;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  const std::string key = in.Part().Rest(), value = in.Part().Rest();
  const std::string& directory = fuzz::EmptyScratch();
  CMSDurability durability(CMSDurabilityLevel::Process, directory);
  CMSMasterFile master(durability, directory, false);
  const std::string path = master.Path();
  WriteBytes(path, in.Rest());

  const std::string before = ReadAll(path);
  Expect(before == ReadAll(path), "reading twice");
  (void)master.ReadCounters();
  (void)master.ReadExtraFolderData(1);
  Expect(master.SaveExtraFolderData(77, "3,4"), "keeping folder data");
  Expect(master.SaveExtraFolderData(1, "5,6"), "keeping folder data");
  Expect(master.SaveCounters({4711, 815}), "saving the counters");
  Expect(master.ReadCounters().lastID == 4711 && master.ReadCounters().size == 815, "counters");
  Expect(master.ReadExtraFolderData(77) + master.ReadExtraFolderData(1) == "3,45,6", "folder data");
  Expect(master.DropExtraFolderData(77) && master.SaveExtraFolderData(1, "7,8"), "dropping it");
  Expect(master.GetCustomData("ExtraFolderData", "1").str() == "7,8", "folder data as custom data");
  Expect(master.SetState("Active") && master.SetState("Closed"), "setting the state");
  if (master.WriteCustomData("client", key.c_str(), value.c_str())) {
    const std::string back = master.GetCustomData("client", key.c_str());
    const std::string written = value.c_str();
    Expect(!IsPlain(written) || back == written, "value '" + written + "' reads '" + back + "'");
  }
  // Nothing but the file counts: another place with the same bytes reads the same.
  const std::string copy = directory + "/copy";
  WriteBytes(copy, ReadBytes(path));
  Expect(ReadAll(copy) == ReadAll(path), "the file read anew");
  return 0;
}
