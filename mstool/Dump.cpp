// dump: the whole store as one JSON object.
#include "CommandLine.h"
#include "Failure.h"
#include "FolderWalk.h"
#include "Interrupt.h"
#include "Objects.h"
#include "Open.h"
#include "Output.h"
#include "platform/Profile.h"

namespace tool {
namespace {

Json StoreJson(OpenStore& store) {
  const std::string master = std::string(store->GetMainFolder()) + "/ms3.db";
  return {
      {"GetMainFolder", store->GetMainFolder()},
      {"GetMSName", store->GetMSName().str()},
      {"GetDocumentCount", store->GetDocumentCount()},
      {"GetFullSize", store->GetFullSize()},
      {"LastID", platform::ReadProfileInt(master, "MessageStore", "LastID", 1)},
      {"LastRegNumber", platform::ReadProfileInt(master, "RegInfo", "LastRegNumber", 0)},
      {"State", store.FoundState()},
  };
}

void WriteDocuments(JsonStream& out, const CMSFolder& folder) {
  out.BeginArray("Documents");
  CMSDocument document;
  for (auto place = folder.GetFirstDocumentPosition(); folder.GetNextDocument(document, place);) {
    StopIfInterrupted();
    WriteDocument(out, document);
  }
  out.EndArray();
}

void WriteTree(JsonStream& out, const CMSFolder& root) {
  const auto begin = [&](const CMSFolder& folder, std::size_t) {
    out.BeginObject(FolderJson(folder));
    out.BeginArray("Folders");
  };
  const auto end = [&](const CMSFolder& folder) {
    out.EndArray();
    WriteDocuments(out, folder);
    out.EndObject();
  };
  WalkFolders(root, begin, end);
}

int Dump(const std::string& directory) {
  OpenStore store(directory, Purpose::Read);
  JsonStream out;
  out.BeginObject({{"format", 1}, {"store", StoreJson(store)}});
  out.BeginArray("folders");
  WriteTree(out, store->Root());
  out.EndArray();
  out.EndObject();
  out.Finish();
  return kExitDone;
}

}  // namespace

void AddDump(CommandLine& line) {
  const auto ignored = std::make_shared<bool>(false);
  Command command =
      line.Add("dump", "The whole store as JSON", [&line, ignored] { return Dump(line.store); });
  command.Flag("--json", *ignored, "Accepted, as by the other commands; there is no other form");
}

}  // namespace tool
