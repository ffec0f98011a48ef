// A record file with its index: files of any content, then records made, read, changed and deleted.
// Input: a part of operations (as in Entries.h), four bytes length of the record file, the record
// file, the index. Records have 16 bytes.
#include "Entries.h"

#include <map>
#include <stdexcept>

#include "ms/Source/DB.h"

namespace {

using fuzz::Expect;

struct Record {
  LittleU32 words[4];
};
using File = CMSDB<unsigned long, Record>;
using Records = std::map<std::uint32_t, std::string>;

std::string BytesOf(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

// "" when there is none.
std::string Read(File& file, std::uint32_t key) {
  const std::uint32_t number = file.Find(key);
  if (number == 0) return {};
  const File::ReadPtr record(file, number, key);
  return BytesOf(*record);
}

Records RecordsOf(File& file) {
  std::vector<std::uint32_t> keys;
  file.Index().ForEach([&](std::uint32_t key, std::uint32_t) { keys.push_back(key); });
  Records records;
  for (const std::uint32_t key : keys) fuzz::Try([&] { records[key] = Read(file, key); });
  file.ForEachKey([](std::uint32_t) {});
  return records;
}

// The index of a damaged file may refuse a key, and know one that no record bears.
void Apply(File& file, const fuzz::EntryChange& change, Records& records, bool isSound) {
  const Record record{{change.value, change.key, change.value, ~change.value}};
  if (const std::uint32_t number = file.Find(change.key); number == 0 && change.adds) {
    Expect(file.Insert(change.key, &record) != 0 || !isSound, "making a record");
    records[change.key] = BytesOf(record);
  } else if (number != 0 && change.adds) {
    const File::WritePtr old(file, number, change.key);
    *old = record;
    records[change.key] = BytesOf(record);
  } else {
    Expect(file.Delete(change.key) == (number != 0) || !isSound, "deleting a record");
    records.erase(change.key);
  }
}

bool IsSound(const File& file) {
  try {
    file.CheckInvariants();
  } catch (const std::logic_error&) {
    return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  const auto changes = fuzz::ChangesOf(in.Part());
  const std::string& directory = fuzz::EmptyScratch();
  const std::uint32_t length = in.Word();
  WriteBytes(directory + "/records.db", in.Text(length));
  WriteBytes(directory + "/records.idx", in.Rest());
  CMSDurability durability(CMSDurabilityLevel::Process, directory);
  const CMSEngineContext context{g_MSBaseInformer, durability, false};
  Records records;
  bool isSound = false;
  const bool opens = fuzz::Try([&] {
    File file(context, directory, "records");
    isSound = IsSound(file);
    records = RecordsOf(file);
  });
  if (!opens) return 0;
  {
    File file(context, directory, "records");
    for (const fuzz::EntryChange& change : changes) {
      if (isSound)
        Apply(file, change, records, isSound);
      else
        fuzz::Try([&] { Apply(file, change, records, isSound); });
    }
    if (isSound) file.CheckInvariants();
  }
  Records now;
  const bool opensAgain = fuzz::Try([&] {
    File file(context, directory, "records");
    now = RecordsOf(file);
    if (isSound) file.CheckInvariants();
  });
  // Changes may have met damage that nobody had to see before.
  Expect(!isSound || (opensAgain && now == records), "records in the file");
  return 0;
}
