#include "bench/peers/Datasets.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <utility>

#include "bench/Letters.h"

namespace {

struct Dataset {
  TempDir directory;
  Letters letters;
};
using Key = std::pair<std::string, std::size_t>;

constexpr std::size_t kBatch = 1000;
constexpr std::size_t kLargestCopy = 100'000;

void Sync(const std::string& directory) {
  KitCheck(platform::Files().SyncVolume(directory), "sync", directory);
}

void Fill(const Engine& engine, std::size_t size, Dataset& dataset) {
  Letters& letters = dataset.letters;
  auto peer = engine.open(dataset.directory.Path(), Promise::None);
  letters.folder = peer->AddFolder("INBOX");
  letters.other = peer->AddFolder("Elsewhere");
  while (letters.kept.size() < size) {
    peer->Begin();
    for (std::size_t i = 0; i < std::min(kBatch, size); ++i) letters.Add(*peer);
    peer->Commit();
  }
  peer.reset();
  Sync(dataset.directory.Path());
}

Dataset& Made(const Engine& engine, std::size_t size) {
  static std::map<Key, Dataset> datasets;
  const auto [at, made] = datasets.try_emplace(Key(engine.name, size));
  if (made) Fill(engine, size, at->second);
  return at->second;
}

std::unique_ptr<Peer> OpenWarm(const Engine& engine, const std::string& directory,
                               const Letters& letters, Promise promise) {
  auto peer = engine.open(directory, promise);
  peer->List(letters.folder);
  peer->FindPacket(PacketName(letters.kept.front().number, 0));
  return peer;
}

void CopySynced(const std::string& from, const std::string& to) {
  std::filesystem::copy(from, to, std::filesystem::copy_options::recursive);
  Sync(to);
}

std::mutex lending;
Key lentKey;
std::unique_ptr<OpenedStore> lent;

}  // namespace

void Letters::Shuffle() {
  std::shuffle(kept.begin(), kept.end(), std::mt19937_64(17));
}

void Letters::Add(Peer& peer) {
  const std::uint32_t number = next++;
  kept.push_back({peer.AddLetter(folder, number), number, LetterFlag(number)});
}

OpenedStore& Lend(const Engine& engine, std::size_t letters) {
  const std::lock_guard guard(lending);
  if (lent == nullptr || lentKey != Key(engine.name, letters)) {
    lent.reset();
    Dataset& dataset = Made(engine, letters);
    dataset.letters.Shuffle();
    auto peer = OpenWarm(engine, dataset.directory.Path(), dataset.letters, Promise::None);
    lent = std::make_unique<OpenedStore>(OpenedStore{dataset.letters, std::move(peer)});
    lentKey = Key(engine.name, letters);
  }
  return *lent;
}

void CloseLent() {
  const std::lock_guard guard(lending);
  lent.reset();
}

std::string ClosedStore(const Engine& engine, std::size_t letters) {
  CloseLent();
  return Made(engine, letters).directory.Path();
}

WorkingStore::WorkingStore(const Engine& engine, std::size_t size, Promise promise) {
  CloseLent();
  Dataset& dataset = Made(engine, size);
  if (size <= kLargestCopy) {
    m_directory = std::make_unique<TempDir>();
    m_path = m_directory->Path();
    m_copy = dataset.letters;
    CopySynced(dataset.directory.Path(), m_path);
  } else {
    m_path = dataset.directory.Path();
    m_letters = &dataset.letters;
  }
  m_letters->Shuffle();
  m_peer = OpenWarm(engine, m_path, *m_letters, promise);
}

ManyFolders::ManyFolders(const Engine& engine) {
  static std::map<std::string, std::pair<TempDir, std::vector<Id>>> made;
  auto& [original, ids] = made[engine.name];
  if (ids.empty()) {
    const auto peer = engine.open(original.Path(), Promise::None);
    for (std::size_t i = 0; i < kManyFolders; ++i)
      ids.push_back(peer->AddFolder("Folder " + std::to_string(i)));
    peer->Begin();
    for (std::size_t i = 0; i < kManyFolders * kLettersInEach; ++i)
      peer->AddLetter(ids[i / kLettersInEach], i);
    peer->Commit();
  }
  CloseLent();
  CopySynced(original.Path(), directory.Path());
  folders = ids;
}
