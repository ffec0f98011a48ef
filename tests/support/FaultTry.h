// One try of a piece of work on a disk that fails, or in a process that runs out of memory.
#pragma once

#include <gtest/gtest.h>

#include <new>
#include <optional>

#include "CrashRun.h"
#include "FaultyFiles.h"

namespace crash {

// Allocations that are still granted on this thread (see fault_test.cpp, which replaces operator
// new). They are counted only while a piece of work is under way.
struct Memory {
  bool counts = false;
  bool fails = false;    // at all
  bool forGood = false;  // and not just once
  unsigned long left = 0, asked = 0;

  bool Grants() {
    if (!counts) return true;
    ++asked;
    if (!fails || left > 1) {
      if (fails) --left;
      return true;
    }
    if (!forGood) fails = false;
    return false;
  }
};
inline thread_local Memory t_memory;

struct KindOfCall {
  const char* name;
  std::uint32_t calls;
  std::size_t written = 0;
};
inline constexpr KindOfCall kKindsOfCalls[] = {
    {"open", call::kOpen | call::kCreate},
    {"write", call::kWrite | call::kAppend},
    {"short write", call::kWrite | call::kAppend, FaultyFiles::kHalf},
    {"read", call::kRead},
    {"truncate", call::kTruncate},
    {"map", call::kMap},
    {"flush", call::kFlush},
    {"sync", call::kSync | call::kSyncDirectory},
    {"sync of all", call::kSyncVolume | call::kStartWriteOut},
    {"rename", call::kMove | call::kReplace},
    {"copy", call::kCopy},
    {"remove", call::kRemove},
    {"directory", call::kDirectory},
    {"list", call::kList},
    {"info", call::kStat | call::kSpace},
    {"lock", call::kLock | call::kAttributes},
    {"any", ~0U},
};

// What fails: a kind of calls, or without one an allocation; nothing when nth is 0.
struct Trouble {
  const KindOfCall* kind = nullptr;
  unsigned nth = 0;
  bool forGood = false;
  platform::Cause cause = platform::Cause::Io;

  std::string Text() const {
    if (nth == 0) return "unharmed";
    return std::string(kind != nullptr ? kind->name : "memory") + " " + std::to_string(nth) +
           (forGood ? " for good" : " once") +
           (cause == platform::Cause::NoSpace ? ", no space" : "");
  }
};

// Work is made of steps; each is acknowledged when it returns. The unharmed try keeps a book after
// each; any other knows from those what has to be there, and what may be.
class FaultTry {
 public:
  FaultTry(const Files& content, const Trouble& trouble, const FaultTry* unharmed)
      : m_trouble(trouble), m_unharmed(unharmed) {
    WriteTree(m_dir.Path(), content);
    if (unharmed != nullptr && !unharmed->m_books.empty()) before = after = unharmed->m_books[0];
  }
  ~FaultTry() { t_memory = {}; }
  FaultTry(const FaultTry&) = delete;
  FaultTry& operator=(const FaultTry&) = delete;

  std::string operator/(const char* name) const { return m_dir / name; }
  const TempDir& Dir() const { return m_dir; }
  bool IsUnharmed() const { return m_unharmed == nullptr; }
  bool IsOfMemory() const { return m_trouble.kind == nullptr; }
  bool IsForGood() const { return m_trouble.forGood; }

  // From here on things fail.
  void Arm() {
    for (std::size_t n = 0; n < m_counts.size(); ++n)
      m_counts[n] = files.Count(kKindsOfCalls[n].calls);
    t_memory = {false, m_trouble.kind == nullptr && m_trouble.nth != 0, m_trouble.forGood,
                m_trouble.nth, 0};
    if (m_trouble.kind != nullptr)
      files.Fail({m_trouble.kind->calls, m_trouble.nth, m_trouble.forGood, m_trouble.cause,
                  m_trouble.kind->written});
  }
  // How often it was asked for since then.
  unsigned Asked(std::size_t kind) const {
    return files.Count(kKindsOfCalls[kind].calls) - m_counts[kind];
  }
  bool HasFailed() const {
    if (m_trouble.kind == nullptr) return t_memory.asked >= m_trouble.nth;
    return Asked(static_cast<std::size_t>(m_trouble.kind - kKindsOfCalls)) >= m_trouble.nth;
  }
  // Whether a wait for the medium has failed, other than for the master file, of which the store
  // needs nothing that could not be worked out again.
  bool HasBrokenPromise() const {
    constexpr std::uint32_t kWaits = call::kFlush | call::kSync | call::kSyncDirectory;
    return m_trouble.kind != nullptr && (m_trouble.kind->calls & ~kWaits) == 0 &&
           files.Struck().find(m_dir.Path()) == 0 &&
           files.Struck().find("ms3.db") == std::string::npos;
  }
  void Heal() {
    files.Heal();
    t_memory = {};
  }

  // Whether body returned. Otherwise it has said clearly what failed.
  template <class Body>
  bool Attempt(Body body) {
    std::string text;
    try {
      t_memory.counts = true;
      body();
      t_memory.counts = false;
      return true;
    } catch (const std::bad_alloc&) {
      t_memory.counts = false;
      if (m_trouble.kind != nullptr || m_trouble.nth == 0) ADD_FAILURE() << "bad_alloc of a disk";
      return false;
    } catch (const CMSDocument::XCloneError&) {
      ADD_FAILURE() << "not a word of what failed";
      return false;
    } catch (const XKitStatus& error) {
      t_memory.counts = false;
      // An empty handle, or false, was the answer to the call itself.
      if (error.Code() == kit::kStatusInvalidHandle) return false;
      text = error.what();
    } catch (const XKitMsg& error) {
      t_memory.counts = false;
      text = error.what();
    }
    CheckText(text);
    return false;
  }
  void CheckText(const std::string& text) const {
    const bool names = text.find(m_dir.Path()) != text.npos || text == "out of memory";
    const platform::Status status(m_trouble.cause, FaultyFiles::CodeOf(m_trouble.cause));
    // The profile calls tell no cause; and what a refusal came of is in the log.
    const bool says = text.find("ms3.db") != text.npos || text.find("cannot hold") != text.npos ||
                      m_trouble.kind == nullptr || text.find(status.Text()) != text.npos;
    EXPECT_TRUE(m_trouble.nth != 0 && names && says) << text;
  }

  // A book of the store as it is, when this is the unharmed try.
  void Note(CMSMessageStore& store) {
    if (!IsUnharmed()) return;
    const bool counted = std::exchange(t_memory.counts, false);
    m_books.emplace_back(store);
    t_memory.counts = counted;
  }
  // The next step has returned, or failed.
  void Acknowledge(CMSMessageStore& store) {
    Note(store);
    ++m_steps;
    const bool counted = std::exchange(t_memory.counts, false);
    if (!IsUnharmed()) before = after = m_unharmed->m_books.at(m_steps);
    t_memory.counts = counted;
  }
  void Failed() {
    if (!IsUnharmed()) after = m_unharmed->m_books.at(m_steps + 1);
  }

  FaultyFiles files;
  LetterBook before, after;  // of what was acknowledged, and with what was under way

 private:
  TempDir m_dir{InMemory()};
  const Trouble m_trouble;
  const FaultTry* const m_unharmed;
  std::vector<LetterBook> m_books;
  std::size_t m_steps = 0;
  std::array<unsigned, std::size(kKindsOfCalls)> m_counts{};
};

}  // namespace crash
