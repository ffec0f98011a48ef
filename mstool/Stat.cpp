// stat: what is in the files of a store.
#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <vector>

#include "CommandLine.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Open.h"
#include "Output.h"
#include "Text.h"
#include "kit/KitFile.h"
#include "ms/Source/EntryFormat.h"
#include "ms/Source/Format.h"
#include "platform/Profile.h"

namespace tool {
namespace {

struct RecordFile {
  const char* name;
  const char* holds;
};
constexpr std::array<RecordFile, 4> kRecordFiles = {{{"docs3.db", "letters"},
                                                     {"attach3.db", "attachments"},
                                                     {"rcpt3.db", "recipients"},
                                                     {"folders3.db", "folders"}}};

struct EntryFile {
  const char* name;
  CMSEntryFormat format;
};
constexpr std::array<EntryFile, 6> kEntryFiles = {{{"docs3.idx", kIndexFormat},
                                                   {"attach3.idx", kIndexFormat},
                                                   {"rcpt3.idx", kIndexFormat},
                                                   {"folders3.idx", kIndexFormat},
                                                   {"rltns3.db", kSetFormat},
                                                   {"packets3.db", kPacketFormat}}};

std::ifstream OpenFile(const std::string& directory, const char* name) {
  std::ifstream in(CKitFile::Join(directory, name), std::ios::binary);
  if (!in) throw Failure(kExitCannotAccess, std::string("cannot read ") + name);
  return in;
}

std::uint64_t FileBytes(const std::string& directory, const char* name) {
  return CKitFile::Info(CKitFile::Join(directory, name)).length;
}

Json RecordFileJson(const std::string& directory, const RecordFile& file) {
  CMSFileHeader header;
  std::ifstream in = OpenFile(directory, file.name);
  in.read(reinterpret_cast<char*>(&header), sizeof header);
  if (!in) throw Failure(kExitDamaged, std::string(file.name) + " has no whole header");
  const auto value = [](LittleU32 field) { return static_cast<std::uint32_t>(field); };
  return {{"file", file.name},
          {"holds", file.holds},
          {"bytes", FileBytes(directory, file.name)},
          {"SI", value(header.SI)},
          {"VE", value(header.VE)},
          {"DO", value(header.DO)},
          {"KS", value(header.KS)},
          {"DS", value(header.DS)},
          {"TC", value(header.TC)},
          {"UC", value(header.UC)},
          {"FI", value(header.FI)},
          {"DC", value(header.DC)},
          {"R1", value(header.R1)},
          {"R2", value(header.R2)},
          {"R3", value(header.R3)}};
}

Json EntryFileJson(const std::string& directory, const EntryFile& file) {
  std::ifstream in = OpenFile(directory, file.name);
  std::vector<char> header(file.format.HeaderSize());
  in.read(header.data(), static_cast<std::streamsize>(header.size()));
  if (!in) throw Failure(kExitDamaged, std::string(file.name) + " has no whole header");

  std::uint64_t live = 0;
  std::uint64_t deleted = 0;
  std::vector<char> entry(file.format.EntrySize());
  while (in.read(entry.data(), static_cast<std::streamsize>(entry.size()))) {
    (static_cast<unsigned char>(entry[0]) == kEntryLive ? live : deleted) += 1;
    if ((live + deleted) % 65536 == 0) StopIfInterrupted();
  }
  return {{"file", file.name},
          {"bytes", FileBytes(directory, file.name)},
          {"live", live},
          {"deleted", deleted}};
}

Json Gather(const std::string& directory, OpenStore& store) {
  const std::string master = CKitFile::Join(directory, "ms3.db");
  Json result = {
      {"State", store.FoundState()},
      {"LastID", platform::ReadProfileInt(master, "MessageStore", "LastID", 1)},
      {"Size", store->GetFullSize()},
      {"GetDocumentCount", store->GetDocumentCount()},
  };
  Json records = Json::array();
  for (const RecordFile& file : kRecordFiles) records.push_back(RecordFileJson(directory, file));
  Json entries = Json::array();
  for (const EntryFile& file : kEntryFiles) entries.push_back(EntryFileJson(directory, file));
  result["records"] = std::move(records);
  result["entries"] = std::move(entries);
  result["masterBytes"] = FileBytes(directory, "ms3.db");
  return result;
}

std::string Number(const Json& value) {
  return std::to_string(value.get<std::uint64_t>());
}

std::string Percent(std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? "-" : std::to_string(part * 100 / whole) + "%";
}

// FI says "none" with all bits set.
std::string HeaderValue(const Json& file, const char* tag) {
  const auto value = file[tag].get<std::uint32_t>();
  return value == kNoContainer ? "none" : KitFormat(tag[0] == 'S' ? "%08X" : "%u", value);
}

void PrintRecordFiles(const Json& files) {
  using enum Table::Align;
  static constexpr std::array<const char*, 12> kTags = {"SI", "VE", "DO", "KS", "DS", "TC",
                                                        "UC", "FI", "DC", "R1", "R2", "R3"};
  std::vector<Table::Align> columns(kTags.size() + 4, Right);
  columns[0] = Left;
  Table table(columns);
  std::vector<std::string> head = {"FILE"};
  head.insert(head.end(), kTags.begin(), kTags.end());
  head.insert(head.end(), {"FILL", "SIZE", ""});
  table.Row(head);
  for (const Json& file : files) {
    std::vector<std::string> row = {file["file"].get<std::string>()};
    for (const char* tag : kTags) row.push_back(HeaderValue(file, tag));
    row.push_back(Percent(file["UC"].get<std::uint64_t>(), file["TC"].get<std::uint64_t>()));
    row.push_back(SizeText(file["bytes"].get<std::uint64_t>()));
    row.push_back(file["holds"].get<std::string>());
    table.Row(row);
  }
  table.Print();
}

void PrintEntryFiles(const Json& files) {
  using enum Table::Align;
  Table table({Left, Right, Right, Right, Right});
  table.Row({"FILE", "LIVE", "DELETED", "FILL", "SIZE"});
  for (const Json& file : files) {
    const auto live = file["live"].get<std::uint64_t>();
    const auto deleted = file["deleted"].get<std::uint64_t>();
    table.Row({file["file"].get<std::string>(), std::to_string(live), std::to_string(deleted),
               Percent(live, live + deleted), SizeText(file["bytes"].get<std::uint64_t>())});
  }
  table.Print();
}

void PrintSummary(const Json& all) {
  using enum Table::Align;
  Table table({Left, Left});
  const std::string state = all["State"].get<std::string>();
  table.Row({"State:", state.empty() ? "(none)" : Visible(state)});
  table.Row({"Last ID:", std::to_string(all["LastID"].get<std::int64_t>())});
  table.Row({"Attachments' size:", std::to_string(all["Size"].get<std::int64_t>()) + " bytes"});
  for (const Json& file : all["records"]) {
    std::string holds = file["holds"].get<std::string>();
    holds.front() = static_cast<char>(holds.front() - 'a' + 'A');
    table.Row({holds + ":", Number(file["UC"])});
  }
  table.Print();
}

int Stat(const std::string& directory, bool json) {
  OpenStore store(directory, Purpose::Read);
  const Json all = Gather(directory, store);
  if (json) {
    PrintJson(all);
    return kExitDone;
  }
  PrintSummary(all);
  Print("");
  PrintRecordFiles(all["records"]);
  Print("");
  PrintEntryFiles(all["entries"]);
  return kExitDone;
}

}  // namespace

void AddStat(CommandLine& line) {
  const auto json = std::make_shared<bool>(false);
  Command command = line.Add("stat", "Header values and fill of each file, sizes, counts",
                             [&line, json] { return Stat(line.store, *json); });
  command.Flag("--json", *json, "Print JSON");
}

}  // namespace tool
