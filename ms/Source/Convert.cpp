#include "Convert.h"

#include <algorithm>
#include <utility>

#include "StoreFiles.h"
#include "kit/KitErrors.h"
#include "kit/KitFile.h"
#include "kit/KitString.h"
#include "kit/LogDispatcher.h"

namespace {

constexpr char kSource[] = "ms\\Source\\Convert";
constexpr int kStartLine = 1;

}  // namespace

CMSConverter::CMSConverter(std::string directory, int checkDataConverting)
    : m_directory(std::move(directory)), m_checkDataConverting(checkDataConverting) {}

bool CMSConverter::IsEarlierFormat() const {
  const auto exists = [this](const char* name) {
    return CKitFile::IsVisible(CKitFile::Join(m_directory, name));
  };
  if (!exists("docs.db") && !exists("docs2.db")) return false;
  const auto& current = storefiles::kRequired;
  return !std::all_of(current.begin(), current.end(), exists);
}

void CMSConverter::Run(CKeyCarrier&, CAbstractAsymmKey*, CGroupID&) const {
  if (!IsEarlierFormat()) return;
  LogEvent(severity::Information,
           KitFormat("Starting to convert MS at %s", m_directory.c_str()).c_str(), kSource,
           kStartLine);
  throw XKitStatus(kit::kStatusNotSupported,
                   KitFormat("the store in '%s' has an earlier format, which this version cannot "
                             "convert; nothing was changed, so the program that wrote it can still "
                             "open it",
                             m_directory.c_str()));
}
