#include "Lookup.h"

#include <ms/Roles.h>

#include <algorithm>
#include <charconv>

#include "Failure.h"

namespace tool {
namespace {

// 0 for what is no number; no object has it.
unsigned long Number(const std::string& text) {
  std::uint32_t number = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  return result.ec == std::errc() && result.ptr == end ? number : 0;
}

CMSFolder Descend(CMSFolder folder, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    folder = folder.OpenFolder(CKitString(name));
    if (!folder) break;
  }
  return folder;
}

}  // namespace

std::vector<std::string> PathComponents(const std::string& path) {
  std::vector<std::string> names;
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    if (end > at) names.push_back(path.substr(at, end - at));
    at = end + 1;
  }
  return names;
}

CMSFolder LookForFolder(CMSMessageStore& store, const std::string& text) {
  if (CMSFolder folder = Descend(store.Root(), PathComponents(text))) return folder;
  const unsigned long id = Number(text);
  return id != 0 ? store.GetFolder(id) : CMSFolder();
}

CMSFolder FindFolder(CMSMessageStore& store, const std::string& text) {
  CMSFolder folder = LookForFolder(store, text);
  if (!folder) {
    throw Failure(kExitUsage, "there is no folder " + text + "; mstool folders lists them");
  }
  return folder;
}

CMSDocument LookForLetter(CMSMessageStore& store, const std::string& number) {
  const unsigned long id = Number(number);
  return id != 0 ? store.GetDocument(id) : CMSDocument();
}

CMSDocument FindLetter(CMSMessageStore& store, const std::string& number) {
  CMSDocument letter = LookForLetter(store, number);
  if (!letter) {
    throw Failure(kExitUsage, "there is no letter " + number + "; mstool ls lists a folder's");
  }
  return letter;
}

CMSFolder SubFolder(CMSFolder& parent, const std::string& name) {
  CMSFolder folder = parent.OpenFolder(CKitString(name));
  return folder ? folder : parent.CreateFolder(name, "", 0);
}

CMSFolder FolderOfRole(CMSMessageStore& store, long role) {
  const CMSFolder root = store.Root();
  CMSFolder folder;
  for (auto place = root.GetFirstFolderPosition(); root.GetNextFolder(folder, place);) {
    if (folder.Type() == role) return folder;
  }
  return {};
}

bool LiesIn(CMSFolder folder, const CMSFolder& ancestor) {
  for (; folder && folder != ancestor; folder = folder.Parent()) {
    if (folder.IsRoot()) return false;
  }
  return folder.IsValid();
}

bool IsPredefined(const CMSFolder& folder) {
  return folder.IsRoot() || MSF::IsPredefinedType(folder.Type());
}

std::string PathOf(const CMSFolder& folder) {
  return folder.IsRoot() ? "/" : folder.FullName().str();
}

std::string LabelOf(const CMSDocument& letter) {
  return "letter " + std::to_string(letter.ID()) + " (" + PathOf(letter.Parent()) + ", \"" +
         letter.Name().str() + "\")";
}

}  // namespace tool
