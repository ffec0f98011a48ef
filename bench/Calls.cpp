// How often public calls ask the file system for something, by kind, as a table in Markdown. Bytes
// are changed through mapped files, too, which asks for nothing; what such a change would be at
// level Immediate is a flush.
#include <cstdio>
#include <exception>
#include <functional>
#include <type_traits>
#include <vector>

#include "bench/Letters.h"
#include "tests/support/FaultyFiles.h"
#include "tests/support/OpenStore.h"
#include "tests/support/TempDir.h"

namespace {

struct Column {
  const char* title;
  std::uint32_t calls;
};
constexpr Column kColumns[] = {{"open", call::kOpen | call::kCreate},
                               {"look at", call::kStat | call::kSpace | call::kList},
                               {"read", call::kRead},
                               {"write", call::kWrite},
                               {"append", call::kAppend},
                               {"grow, map", call::kTruncate | call::kMap},
                               {"rename", call::kMove | call::kReplace},
                               {"flush", call::kFlush},
                               {"begin to write out", call::kStartWriteOut},
                               {"sync", call::kSync | call::kSyncDirectory | call::kSyncVolume}};

struct Level {
  const char* name;
  CMSDurabilityLevel level;
};
constexpr Level kLevels[] = {{"Process", CMSDurabilityLevel::Process},
                             {"Operation", CMSDurabilityLevel::Operation},
                             {"Immediate", CMSDurabilityLevel::Immediate}};
constexpr std::size_t kLetters = 1000;

// One store, and what it asks for.
class Counted {
 public:
  explicit Counted(const Level& level)
      : m_level(level), m_store(OpenStore(m_directory.Path(), false, nullptr, level.level)) {
    m_files.Watch([this](const FaultyFiles::Call& made) {
      if (made.kind == call::kWrite) m_written += made.length;
      if (made.kind == call::kFlush) m_flushed += made.length;
    });
    m_inbox = m_store.Root().CreateFolder("INBOX", "", 2);
    m_other = m_store.Root().CreateFolder("Other", "", 0);
    PutThousand([] {});
  }

  void PrintAll() {
    std::size_t at = 0;
    const auto letter = [&]() -> CMSDocument { return m_store.GetDocument(m_ids[at++]); };
    Print("a letter with its children", 200, [&] { PutLetter(m_inbox, m_next++); });
    Print("`CMSDocument::Flag`", 100, [&] {
      CMSDocument changed = letter();
      changed.Flag(changed.Flag() ^ 0x200000);
    });
    Print("`AddRecipient`", 100, [&] {
      letter().AddRecipient("", "", "", "", "", "U1", "", "", "user", "", "", "", "", "", 0, 0);
    });
    Print("`TransEnvFileName`", 100, [&] {
      const std::size_t number = at++;
      m_store.FindRecipient(PacketName(number, 1).c_str(), true)
          .TransEnvFileName(PacketName(number + kLetters * 10, 1).c_str());
    });
    Print("`CMSDocument::Move`", 100, [&] { letter().Move(m_other); });
    Print("`DeleteDocument`", 100, [&] {
      CMSDocument gone = letter();
      gone.Parent().DeleteDocument(gone);
    });
    Print("`WriteCustomData`", 100,
          [&] { m_store.WriteCustomData("Client", "Last", std::to_string(at++).c_str()); });
    Print("1,000 letters in a `CMSBatch`", 1, [&] { PutThousand([] {}); });
    PutThousand(
        [&](CMSBatch& batch) { Print("the `Commit` of such", 1, [&] { batch.Commit(); }); });
  }

 private:
  template <class AtEnd>
  void PutThousand(AtEnd atEnd) {
    CMSBatch batch(m_store);
    for (std::size_t i = 0; i < kLetters; ++i) m_ids.push_back(PutLetter(m_inbox, m_next++).ID());
    if constexpr (std::is_invocable_v<AtEnd, CMSBatch&>) atEnd(batch);
    batch.Commit();
  }

  // A line of averages over that many calls.
  void Print(const char* what, int times, const std::function<void()>& once) {
    std::vector<unsigned> before;
    for (const Column& column : kColumns) before.push_back(m_files.Count(column.calls));
    m_written = m_flushed = 0;
    for (int i = 0; i < times; ++i) once();
    std::printf("| %s | %s |", what, m_level.name);
    for (std::size_t i = 0; i < std::size(kColumns); ++i) {
      const unsigned calls = m_files.Count(kColumns[i].calls) - before[i];
      const double each = static_cast<double>(calls) / times;
      std::printf(each < 10'000 ? " %.4g" : " %.0f", each);
      const std::uint64_t bytes = kColumns[i].calls == call::kWrite   ? m_written
                                  : kColumns[i].calls == call::kFlush ? m_flushed
                                                                      : 0;
      if (bytes != 0) std::printf(" (%.0f B)", static_cast<double>(bytes) / times);
      std::printf(" |");
    }
    std::printf("\n");
  }

  std::uint64_t m_written = 0, m_flushed = 0;
  FaultyFiles m_files;  // in place before the store, gone after it
  const Level m_level;
  const TempDir m_directory{InMemory()};  // what is counted is the same, and syncs are quick
  CMSMessageStore m_store;
  CMSFolder m_inbox, m_other;
  std::vector<unsigned long> m_ids;
  std::size_t m_next = 0;
};

void PrintTable() {
  std::printf("| call | level |");
  for (const Column& column : kColumns) std::printf(" %s |", column.title);
  std::printf("\n|---|---|");
  for (std::size_t i = 0; i < std::size(kColumns); ++i) std::printf("---:|");
  std::printf("\n");
  for (const Level& level : kLevels) Counted(level).PrintAll();
}

}  // namespace

int main() {
  try {
    PrintTable();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ms_calls: %s\n", error.what());
    return 1;
  }
  return 0;
}
