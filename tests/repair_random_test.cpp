// Stores damaged at random, each by its seed: a repair makes them consistent, and keeps what was
// not touched.
//   MS_DAMAGE_STORE   a store to take instead of a made one; it is only read
//   MS_DAMAGE_SEEDS   how many seeds (100)
//   MS_DAMAGE_FIRST   the first of them (1)
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "support/LetterBook.h"
#include "support/LogSink.h"
#include "support/OpenStore.h"
#include "support/Tree.h"
#include "support/Walk.h"
#include "support/Workload.h"

#include "ms/Source/MSFixer.h"
#include "ms/Source/Roles.h"

namespace {

namespace fs = std::filesystem;
using namespace storecheck;
using crash::Files, crash::FromEnvironment, crash::LetterBook;
using IDs = std::set<std::uint32_t>;

class Random {
 public:
  explicit Random(unsigned seed) : m_engine(seed) {}
  std::uint32_t Any() { return static_cast<std::uint32_t>(m_engine()); }
  std::size_t Below(std::size_t end) { return end > 0 ? m_engine() % end : 0; }
  Bytes Garbage(std::size_t size) {
    Bytes bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(Any());
    return bytes;
  }

 private:
  std::mt19937 m_engine;
};

// Folders within folders, and free slots between used ones.
void MakeStore(const std::string& path, const std::string& source) {
  CMSMessageStore store = OpenStore(path);
  for (const auto& role : MSF::kFolderRoles)
    store.Root().CreateFolder(role.name, role.props, role.type);
  for (const unsigned seed : {1U, 2U, 3U}) {
    const CMSFolder top = store.Root().CreateFolder(std::to_string(seed), "", 0);
    Workload work(store, seed, source, "", top);
    for (unsigned n = 0; n < 300; ++n) work.Step();
    work.Finish();
  }
}

struct Object {
  std::size_t slot;
  Bytes bytes;  // of the slot
  std::uint32_t ID() const { return U32(bytes, 8); }
  std::uint32_t Parent() const { return U32(bytes, kHead); }
};
using Objects = std::array<std::vector<Object>, 4>;

// All slots that are not free for certain.
Objects ObjectsOf(const Files& files, bool onlyUsed) {
  Objects objects;
  for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
    const auto file = files.find(kKinds[kind].db);
    for (std::size_t slot = 0;
         file != files.end() && kKinds[kind].At(slot + 1) <= file->second.size(); ++slot) {
      const Object one{slot, file->second.substr(kKinds[kind].At(slot), kKinds[kind].Slot())};
      const bool isUsed = U32(one.bytes, 0) == kNone && U32(one.bytes, 4) == kNone && one.ID() != 0;
      if (isUsed || !onlyUsed) objects[kind].push_back(one);
    }
  }
  return objects;
}

class Damage {
 public:
  Damage(Files& files, unsigned seed) : m_files(files), m_random(seed) {
    for (std::size_t n = 1 + m_random.Below(20); n > 0; --n) One();
    for (const std::string& name : m_removed) m_files.erase(name);
  }

 private:
  void One() {
    const std::size_t choice = m_random.Below(100);
    const std::string& name = kFiles[m_random.Below(kFiles.size())];
    Bytes& file = m_files[name];
    const std::size_t kind = m_random.Below(kKinds.size());
    Bytes& records = m_files[kKinds[kind].db];
    if (choice < 30) return Scatter(file, m_random.Below(file.size()), 1 + m_random.Below(8));
    if (choice < 60) return PutField(records, kKinds[kind]);
    if (choice < 80) return PutSlot(records, kKinds[kind]);
    if (choice < 95) return Mangle(kFiles[4 + m_random.Below(7)]);
    if (choice < 98)
      return records.resize(std::min(records.size(), kHeader + m_random.Below(records.size())));
    if (choice < 99) return Scatter(records, 4 * m_random.Below(12), 4);
    records.resize(m_random.Below(2 * kHeader));
  }
  void Scatter(Bytes& file, std::size_t at, std::size_t count) {
    for (; count > 0 && at < file.size(); --count, ++at)
      file[at] = static_cast<char>(m_random.Any());
  }
  // Mostly among the used ones, which are the first.
  std::size_t AnySlot(const Bytes& records, const Kind& kind) {
    const std::size_t slots =
        records.size() < kHeader ? 0 : (records.size() - kHeader) / kind.Slot();
    return m_random.Below(m_random.Below(4) == 0 ? slots : std::min<std::size_t>(slots, 70));
  }
  void PutField(Bytes& records, const Kind& kind) {
    const std::size_t at = kind.At(AnySlot(records, kind));
    if (at + kind.Slot() > records.size()) return;
    const std::size_t field = m_random.Below(kind.texts.size() + 6);
    const std::uint32_t values[] = {
        0, 1, kNone, kGreatestID + 1, m_random.Any(), m_random.Any() % 400};
    if (field < 6) return PutU32(records, at + 4 * field, values[m_random.Below(6)]);
    const Field& text = kind.texts[field - 6];
    const Bytes garbage =
        m_random.Below(2) == 0 ? Bytes(text.width, 'x') : m_random.Garbage(text.width);
    records.replace(at + kHead + text.at, text.width, garbage);
  }
  void PutSlot(Bytes& records, const Kind& kind) {
    const std::size_t at = kind.At(AnySlot(records, kind)), from = kind.At(AnySlot(records, kind));
    if (std::max(at, from) + kind.Slot() > records.size()) return;
    const Bytes slots[] = {Bytes(kind.Slot(), '\0'), m_random.Garbage(kind.Slot()),
                           records.substr(from, kind.Slot()),
                           Bytes(8, '\xFF') + m_random.Garbage(kind.Slot() - 8)};
    records.replace(at, kind.Slot(), slots[m_random.Below(4)]);
  }
  void Mangle(const std::string& name) {
    Bytes& file = m_files[name];
    const std::size_t choice = m_random.Below(5), at = m_random.Below(file.size());
    if (choice == 0) file.clear();
    if (choice == 1) file.resize(at);
    if (choice == 2) file += m_random.Garbage(m_random.Below(100));
    if (choice == 3) Scatter(file, at, m_random.Below(40));
    if (choice == 4) m_removed.insert(name);
  }

  Files& m_files;
  Random m_random;
  std::set<std::string> m_removed;
};

// Which of the healthy store's objects a repair has no reason to touch.
class Untouched {
 public:
  Untouched(const Objects& healthy, const Files& damaged) {
    const Objects now = ObjectsOf(damaged, false);
    for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
      std::map<std::size_t, const Object*> were;
      for (const Object& one : healthy[kind]) were[one.slot] = &one;
      const std::uint32_t firstFree = U32(damaged.at(kKinds[kind].db), 28);
      for (const Object& one : now[kind]) {
        const auto was = were.find(one.slot);
        if (was != were.end() && was->second->bytes == one.bytes && one.slot != firstFree) {
          m_slots[kind].insert(one.slot);
          continue;
        }
        m_borne.insert(one.ID());
        if (kind == Attachments || kind == Recipients) m_borne.insert(one.Parent());
        if (kind == Attachments) m_paths.insert(TextAt(one.bytes, {kHead + 20, 260}));
      }
    }
  }
  bool Has(std::size_t kind, const Object& one) const {
    return m_slots[kind].count(one.slot) != 0 && m_borne.count(one.ID()) == 0;
  }
  // Whether a damaged record names the file too.
  bool SharesFile(const Object& one) const {
    return m_paths.count(TextAt(one.bytes, {kHead + 20, 260})) != 0;
  }

 private:
  std::array<std::set<std::size_t>, 4> m_slots;
  IDs m_borne;  // IDs that damaged slots bear or name as the letter that they belong to
  std::set<std::string> m_paths;
};

class RandomDamage : public testing::Test {
 protected:
  RandomDamage() {
    if (const char* const given = std::getenv("MS_DAMAGE_STORE"))
      fs::copy(given, path, fs::copy_options::recursive);
    else
      MakeStore(path, dir / "source");
    m_healthy = crash::ReadTree(path);
    m_objects = ObjectsOf(m_healthy, true);
    for (const std::size_t kind : {Attachments, Recipients})
      for (const Object& one : m_objects[kind]) m_children[one.Parent()].push_back({kind, &one});
    CMSMessageStore store = OpenStore(path);
    for (const Object& one : m_objects[Letters])
      m_told[one.ID()] = Told(store.GetDocument(one.ID()));
  }
  // Its folder is another one when that was damaged.
  static crash::Object Told(const CMSDocument& letter) {
    crash::Object told = LetterBook::Read(letter);
    told.erase("parent");
    return told;
  }
  // What a repair refuses, of a header or of the IDs.
  static bool MayRefuse(const Files& files, const std::string& error) {
    std::uint32_t greatest = 0;
    for (const Kind& kind : kKinds) {
      const Bytes& bytes = files.at(kind.db);
      const bool isRefused = bytes.size() < kHeader || U32(bytes, 0) != 0x45674B21 ||
                             U32(bytes, 4) != 5 || U32(bytes, 12) != 4 ||
                             U32(bytes, 16) != kind.record;
      if (isRefused && error.find(kind.db) != error.npos) return true;
    }
    for (const auto& objects : ObjectsOf(files, true))
      for (const Object& one : objects)
        if (one.ID() <= kGreatestID) greatest = std::max(greatest, one.ID());
    return greatest > kGreatestID - 1000 &&
           error.find("object ID took invalid value") != error.npos;
  }

  void Compare(const Files& damaged) {
    const Untouched untouched(m_objects, damaged);
    CMSMessageStore store = OpenStore(path);
    const Walk walk(store);
    EXPECT_EQ(walk.letters, store.GetDocumentCount());
    std::map<std::uint32_t, Bytes> records;
    for (const auto& objects : ObjectsOf(crash::ReadTree(path), true))
      for (const Object& one : objects) records[one.ID()] = one.bytes;
    for (const Object& letter : m_objects[Letters]) {
      const std::uint32_t id = letter.ID();
      const auto& children = m_children[id];
      const auto isUntouched = [&](const auto& child) {
        return untouched.Has(child.first, *child.second);
      };
      if (!untouched.Has(Letters, letter) ||
          !std::all_of(children.begin(), children.end(), isUntouched))
        continue;
      ++m_kept;
      const CMSDocument kept = store.GetDocument(id);
      ASSERT_TRUE(kept) << "letter " << id;
      EXPECT_EQ(Told(kept), m_told[id]) << "letter " << id;
      const auto same = [&](Bytes was, std::size_t at, std::size_t width) {
        was.replace(at, width, records[U32(was, 8)].substr(at, width));
        EXPECT_TRUE(records[U32(was, 8)] == was) << "record " << U32(was, 8);
      };
      const auto isFolder = [&](const Object& one) { return one.ID() == letter.Parent(); };
      const auto folder =
          std::find_if(m_objects[Folders].begin(), m_objects[Folders].end(), isFolder);
      same(letter.bytes, kHead, untouched.Has(Folders, *folder) ? 0 : 4);
      for (const auto& [kind, child] : children)
        same(child->bytes, kHead + 20,
             kind == Attachments && untouched.SharesFile(*child) ? 260 : 0);
    }
  }

  TempDir dir{std::getenv("MS_DAMAGE_STORE") == nullptr ? InMemory() : ""};
  const std::string path = dir / "store";
  LogSink m_events;
  MSF::CFixer fixer;
  Files m_healthy;
  Objects m_objects;
  std::map<std::uint32_t, std::vector<std::pair<std::size_t, const Object*>>> m_children;
  std::map<std::uint32_t, crash::Object> m_told;
  std::size_t m_kept = 0;
};

}  // namespace

TEST_F(RandomDamage, A_repair_keeps_what_was_not_touched) {
  for (const std::string& one : CheckStore(path)) ADD_FAILURE() << "before: " << one;
  const unsigned first = FromEnvironment("MS_DAMAGE_FIRST", 1),
                 seeds = FromEnvironment("MS_DAMAGE_SEEDS", 100);
  unsigned repaired = 0;
  for (unsigned seed = first; seed < first + seeds && !HasFatalFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    m_events.events.clear();
    Files damaged = m_healthy;
    const Damage damage(damaged, seed);
    crash::WriteTree(path, damaged);
    if (!fixer.RepairMS(path.c_str())) {
      EXPECT_TRUE(MayRefuse(damaged, fixer.Error())) << fixer.Error();
      EXPECT_TRUE(crash::ReadTree(path) == damaged);
      continue;
    }
    ++repaired;
    const std::string report = fixer.ReportDirectory();
    for (const std::string& one : CheckStore(path)) ADD_FAILURE() << one;
    Files after = crash::ReadTree(path);
    EXPECT_TRUE(fixer.RepairMS(path.c_str())) << fixer.Error();
    EXPECT_EQ(fixer.Findings().size(), 0U);
    EXPECT_EQ(fixer.ReportDirectory(), "");
    // The last ID comes down again when the objects that had it are gone.
    after["ms3.db"] = ReadWhole(path + "/ms3.db");
    EXPECT_TRUE(crash::ReadTree(path) == after);
    Compare(damaged);
    fs::remove_all(report);
  }
  EXPECT_GT(repaired, seeds / 2);
  EXPECT_GT(m_kept, repaired);
}
