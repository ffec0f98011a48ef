#include "bench/Stores.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>

#include "bench/Letters.h"
#include "platform/File.h"

namespace {

constexpr char kFolderName[] = "INBOX";

void Fill(PreparedStore& prepared, std::size_t letters) {
  CMSMessageStore store = OpenStore(prepared.directory.Path());
  CMSFolder folder = store.Root().CreateFolder(kFolderName, "", 2);
  prepared.letters.reserve(letters);
  for (std::size_t i = 0; i < letters; ++i) prepared.letters.push_back(PutLetter(folder, i).ID());
}

}  // namespace

PreparedStore& Prepared(std::size_t letters) {
  static std::map<std::size_t, PreparedStore> stores;
  const auto [at, made] = stores.try_emplace(letters);
  if (made) Fill(at->second, letters);
  return at->second;
}

ScratchStore::ScratchStore(const PreparedStore& original) {
  std::filesystem::copy(original.directory.Path(), m_directory.Path());
  KitCheck(platform::Files().SyncVolume(Path()), "sync", Path());
}

CMSFolder LettersFolder(CMSMessageStore& store) {
  return store.Root().OpenFolder(CKitString(kFolderName));
}

RandomOrder::RandomOrder(std::vector<unsigned long> values) : m_values(std::move(values)) {
  std::shuffle(m_values.begin(), m_values.end(), std::mt19937_64(17));
}
