// Stores to compare engines with: made once for each engine and size, kept for the run.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bench/peers/Peer.h"
#include "tests/support/TempDir.h"

struct KeptLetter {
  Id id;
  std::uint32_t number;
  std::int32_t flag;
};

// One folder with letters, in an order of chance, and an empty one.
struct Letters {
  Id folder = kNone, other = kNone;
  std::uint32_t next = 0;  // number of the next letter
  std::vector<KeptLetter> kept;

  void Shuffle();
  // Within Begin and Commit.
  void Add(Peer& peer);
};

struct OpenedStore {
  Letters& letters;
  std::unique_ptr<Peer> peer;
};

// The store of that engine and size, open without a promise and warm: its letters have been listed
// and a packet name asked for. For all that leaves the number of letters as it is; any thread may
// ask. It stays open until another one is asked for or CloseLent is called, and no thread may use
// it then.
OpenedStore& Lend(const Engine& engine, std::size_t letters);
void CloseLent();
// Its directory, with nothing open in it.
std::string ClosedStore(const Engine& engine, std::size_t letters);

// A store to be changed at will, open and warm: a copy, which is on the medium already, or beyond
// 100,000 letters the store itself.
class WorkingStore {
 public:
  WorkingStore(const Engine& engine, std::size_t size, Promise promise);
  Letters& letters() { return *m_letters; }
  Peer& peer() { return *m_peer; }
  std::string Path() const { return m_path; }

 private:
  std::unique_ptr<TempDir> m_directory;
  std::string m_path;
  Letters m_copy;
  Letters* m_letters = &m_copy;
  std::unique_ptr<Peer> m_peer;
};

// A copy of a closed store of 2,000 folders with five letters each. Nobody has asked for a count.
inline constexpr std::size_t kManyFolders = 2000;
inline constexpr std::size_t kLettersInEach = 5;
struct ManyFolders {
  explicit ManyFolders(const Engine& engine);
  TempDir directory;
  std::vector<Id> folders;
};
