// Tries what a crash may leave of a store: it opens or refuses, a repair makes it whole, and what
// was acknowledged is there.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <unordered_set>

#include "LogSink.h"
#include "StoreAtWork.h"
#include "Walk.h"

#include "ms/Source/MSFixer.h"

namespace crash {

inline const bool kFull = FromEnvironment("MS_CRASH_FULL", 0) != 0;
// Of what a slice tries without a sanitizer, a sanitizer gets one in so many.
#ifdef __SANITIZE_ADDRESS__
inline constexpr unsigned kSparing = 4;
#else
inline constexpr unsigned kSparing = 1;
#endif
inline const unsigned kSeed = FromEnvironment("MS_CRASH_SEED", 1);

struct Figures {
  std::size_t sequences = 0, states = 0, tries = 0, repaired = 0, refused = 0, lost = 0, torn = 0,
              failed = 0;
};

// The states of one test. Each comes in two ways: repaired at once, and first opened for writing,
// walked and closed, as a client would that does not look.
class CrashRun {
 public:
  explicit CrashRun(std::string name) : m_name(std::move(name)) {}
  ~CrashRun() {
    std::ostringstream line;
    line << m_name << ": " << m_figures.sequences << " sequences, " << m_figures.states
         << " states, " << m_figures.tries << " tries; of these " << m_figures.repaired
         << " needed a repair, " << m_figures.refused << " refused to open, " << m_figures.torn
         << " had an object torn in its own change, " << m_figures.lost << " lost something";
    std::cout << line.str() << std::endl;
    testing::Test::RecordProperty("figures", line.str());
  }
  CrashRun(const CrashRun&) = delete;
  CrashRun& operator=(const CrashRun&) = delete;

  void Sequence(const std::string& name) {
    ++m_figures.sequences;
    m_sequence = name;
  }
  const Figures& Totals() const { return m_figures; }
  const std::string& Place() const { return m_place.Path(); }

  // store: its directory below that of the files.
  void Try(const Files& files, const std::string& store, const LetterBook& before,
           const LetterBook& after, const std::function<void()>& then = {}) {
    if (!kFull && ++m_offered % kSparing != 0) return;
    if (!IsNew(files, before, after)) return;
    ++m_figures.states;
    for (const bool opensFirst : {false, true}) {
      // A slice tries some states in one way only.
      if (!kFull && m_figures.states % 3 == (opensFirst ? 1 : 2)) continue;
      WriteTree(m_place.Path(), files);
      const std::size_t failed = m_figures.failed;
      Check(m_place / store, opensFirst, before, after);
      if (then && m_figures.failed == failed) then();
      if (m_figures.failed > failed) Keep(files);
    }
  }
  // One try, on the store itself; it is left repaired.
  void Check(const std::string& path, bool opensFirst, const LetterBook& before,
             const LetterBook& after) {
    ++m_figures.tries;
    m_what = m_sequence + (opensFirst ? ", opened first" : "");
    m_refusal.clear();
    if (opensFirst) OpenUnrepaired(path);
    Repair(path, before, after);
  }
  void Fail(const std::string& text) {
    ++m_figures.failed;
    if (m_figures.failed <= kShown)
      ADD_FAILURE() << m_what << ": " << text
                    << (m_refusal.empty() ? "" : "\nopening said: " + m_refusal);
  }

 private:
  static constexpr std::size_t kShown = 10;

  static std::size_t HashOf(const LetterBook& book) {
    std::size_t hash = 1;
    const auto add = [&](const std::string& text) {
      hash = hash * 1000003 ^ std::hash<std::string>()(text);
    };
    for (const auto& [id, object] : book.Objects())
      for (const auto& [name, value] : object) add(std::to_string(id) + name + "\n" + value);
    return hash;
  }
  bool IsNew(const Files& files, const LetterBook& before, const LetterBook& after) {
    std::size_t hash = HashOf(before) * 31 + HashOf(after);
    for (const auto& [name, bytes] : files)
      hash = (hash * 1000003 ^ std::hash<std::string>()(name)) * 1000003 ^
             std::hash<std::string>()(bytes);
    return m_seen.insert(hash).second;
  }

  // Whatever it throws of the library's own is an answer.
  void OpenUnrepaired(const std::string& path) {
    try {
      CMSMessageStore store = OpenStore(path);
      const Walk walk(store);
    } catch (const XKitMsg& error) {
      ++m_figures.refused;
      m_refusal = error.what();
    }
  }
  void Repair(const std::string& path, const LetterBook& before, const LetterBook& after) {
    MSF::CFixer fixer;
    const std::string directory = path + "/";
    const bool scans = kFull || m_figures.states % 4 == 0;
    const bool isClean = scans && fixer.ScanMS(directory.c_str());
    if (!fixer.RepairMS(directory.c_str())) return Fail("repair failed: " + fixer.Error());
    if (!fixer.Findings().empty()) ++m_figures.repaired;
    if (isClean && !fixer.Findings().empty())
      return Fail("a repair finds what no check has reported" + Repairs(fixer));
    const std::string repairs = Repairs(fixer);
    const auto found = CheckStore(path);
    if (!found.empty()) return Fail("after the repair: " + found.front() + repairs);
    const Files once = Databases(path);
    if (!fixer.RepairMS(directory.c_str()) || !fixer.Findings().empty())
      return Fail("a second repair failed or found something" + repairs);
    for (const auto& [name, bytes] : Databases(path))
      if (bytes != once.at(name)) return Fail("a second repair changed " + name + repairs);
    CMSMessageStore store = OpenStore(path, true);
    const Outcome outcome = Compare(before, after, LetterBook(store));
    if (!outcome.torn.empty() && ++m_figures.torn && FromEnvironment("MS_CRASH_TORN", 0) != 0)
      std::cout << m_what << ": torn: " << outcome.torn;
    if (outcome.lost.empty()) return;
    ++m_figures.lost;
    Fail("lost:\n" + outcome.lost + outcome.torn + repairs);
  }
  static std::string Repairs(const MSF::CFixer& fixer) {
    std::string repairs;
    for (const auto& one : fixer.Findings())
      if (repairs.size() < 1000)
        repairs += "\n  " + one.Object + " " + one.What + " " + one.Stored + " -> " + one.Found;
    return repairs;
  }
  // The last ID comes down again when a repair has removed the objects that had it.
  static Files Databases(const std::string& path) {
    Files files;
    for (const std::string& name : storecheck::kFiles)
      files[name] = storecheck::ReadWhole(path + "/" + name);
    std::string& master = files["ms3.db"];
    const std::size_t at = master.find("LastID=");
    if (at != master.npos) master.erase(at, master.find('\r', at) - at);
    return files;
  }
  // The first state that failed, for a look.
  void Keep(const Files& files) {
    const char* const place = std::getenv("MS_CRASH_KEEP");
    if (place == nullptr || m_figures.failed > 1) return;
    std::filesystem::create_directories(place);
    WriteTree(place, files);
  }

  const std::string m_name;
  TempDir m_place{InMemory()};
  LogSink m_log;
  Figures m_figures;
  std::size_t m_offered = 0;
  std::string m_sequence, m_what, m_refusal;
  std::unordered_set<std::size_t> m_seen;
};

}  // namespace crash
