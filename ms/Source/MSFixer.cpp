#include "MSFixer.h"

#include <algorithm>
#include <array>
#include <string>

#include "kit/KitFile.h"

namespace {

template <std::size_t N>
bool AllExist(const char* directory, const std::array<const char*, N>& names) {
  const std::string in = CKitFile::NormalizeFileName(directory != nullptr ? directory : ".");
  return std::all_of(names.begin(), names.end(), [&](const char* name) {
    return CKitFile::IsVisible(CKitFile::Join(in, name));
  });
}

}  // namespace

bool MSF::CFixer::IsRequiresRepair(const char* directory) {
  constexpr std::array kDerived{"docs3.idx", "attach3.idx", "rcpt3.idx", "folders3.idx",
                                "rltns3.db", "packets3.db", "ms3.db"};
  return !AllExist(directory, kDerived);
}

bool MSF::CFixer::IsMSDirectory(const char* directory) {
  constexpr std::array kRecords{"docs3.db", "attach3.db", "folders3.db", "rcpt3.db"};
  return AllExist(directory, kRecords);
}
