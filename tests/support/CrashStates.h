// The directories that a power cut, or the death of the process, may leave of what was recorded.
//
// The model is a medium that keeps each promise of a sync and none besides. What a file holds and
// how long it is belongs to the file; names belong to their directory. Until a sync of the file,
// each of its changed 512-byte blocks is there or not, by itself and in any of its versions, and
// so is each change of its length; what is missing in between reads as zeros. Until a sync of the
// directory, each name made, moved or removed is as it was or as it became: later steps on one
// name only after the earlier ones, a rename whole or not at all (it is sure once both directories
// are synced). A file without a name is not there. A block itself is never torn.
// The death of the process keeps all steps up to a point and none after it.
#pragma once

#include <functional>
#include <random>

#include "RecordingFiles.h"
#include "Tree.h"

namespace crash {

class Medium {
 public:
  explicit Medium(const Base& base)
      : m_files(base.files), m_directories(base.directories), m_bytes(base.bytes) {
    for (const auto& [id, bytes] : m_bytes) m_lengths[id] = bytes.size();
  }

  void Apply(const Step& step) {
    switch (step.kind) {
      case Step::Block:
        Grow(step.file, step.offset + step.bytes.size());
        m_bytes[step.file].replace(static_cast<std::size_t>(step.offset), step.bytes.size(),
                                   step.bytes);
        break;
      case Step::Length:
        if (step.offset < m_lengths[step.file] && step.offset < m_bytes[step.file].size())
          m_bytes[step.file].resize(static_cast<std::size_t>(step.offset));
        m_lengths[step.file] = step.offset;
        break;
      case Step::Create:
        m_files[step.path] = step.file;
        break;
      case Step::Rename:
        if (const auto from = m_files.find(step.from); from != m_files.end()) {
          m_files[step.path] = from->second;
          m_files.erase(from);
        }
        break;
      case Step::Remove:
        m_files.erase(step.path);
        break;
      case Step::MakeDir:
        m_directories.insert(step.path);
        break;
      case Step::RemoveDir:
        m_directories.erase(step.path);
        std::erase_if(m_files, [&](const auto& f) { return f.first.starts_with(step.path + "/"); });
        break;
      default:
        break;
    }
  }

  Files Shown() const {
    Files files;
    for (const std::string& path : m_directories) files[path + "/"];
    for (const auto& [path, id] : m_files) {
      const std::size_t slash = path.rfind('/');
      if (slash != path.npos && m_directories.count(path.substr(0, slash)) == 0) continue;
      std::string& bytes = files[path];
      if (const auto known = m_bytes.find(id); known != m_bytes.end()) bytes = known->second;
      const auto length = m_lengths.find(id);
      bytes.resize(length != m_lengths.end() ? static_cast<std::size_t>(length->second) : 0);
    }
    return files;
  }

 private:
  void Grow(int id, std::uint64_t size) {
    if (m_bytes[id].size() < size) m_bytes[id].resize(static_cast<std::size_t>(size));
  }

  std::map<std::string, int> m_files;
  std::set<std::string> m_directories;
  std::map<int, std::string> m_bytes;  // perhaps beyond the length, until that has followed
  std::map<int, std::uint64_t> m_lengths;
};

// Whether later cannot be on the medium without earlier.
inline bool Needs(const Step& later, const Step& earlier) {
  const auto parent = [](const std::string& path) {
    return path.substr(0, path.find('/') != path.npos ? path.rfind('/') : 0);
  };
  for (const std::string* name : {&later.path, &later.from})
    for (const std::string* other : {&earlier.path, &earlier.from})
      if (!name->empty() && !other->empty() && (*name == *other || parent(*name) == *other))
        return true;
  return false;
}

struct Choice {
  std::size_t few = 12;      // up to so many pending steps in all combinations
  std::size_t samples = 24;  // states of a cut with more, and deaths between two marks
  double cuts = 1;           // the share of the cuts that are looked at
  unsigned seed = 1;
};

// Tells each state with the number of marks that were passed. States may come more than once.
class CrashStates {
 public:
  using Tell = std::function<void(const Medium&, std::size_t marks)>;

  CrashStates(const Base& base, const Trace& trace, const Choice& choice)
      : m_base(base), m_trace(trace), m_choice(choice), m_random(choice.seed) {}

  // Cuts once fromMark marks were passed: before each sync, at each mark, and at the end. Any cut
  // between two of those is a combination that the later one has as well.
  void PowerCuts(std::size_t fromMark, const Tell& tell) {
    Medium medium(m_base);
    std::vector<std::size_t> pending;
    std::size_t marks = 0;
    bool isNew = true;
    const auto cut = [&] {
      if (isNew && marks >= fromMark && Chance(m_choice.cuts))
        Combine(medium, pending, marks, tell);
      isNew = false;
    };
    for (std::size_t at = 0; at < m_trace.size(); ++at) {
      const Step& step = m_trace[at];
      if (step.kind == Step::Mark) {
        cut();
        ++marks;
        isNew = true;
      } else if (step.kind >= Step::SyncFile) {
        if (!Covered(step, pending, true).empty()) cut();
        for (const std::size_t done : Covered(step, pending, false)) medium.Apply(m_trace[done]);
      } else {
        pending.push_back(at);
        isNew = true;
      }
    }
    isNew = true;
    cut();
  }

  // Deaths between marks from - 1 and to - 1 (from the beginning, if from is 0).
  void Deaths(std::size_t fromMark, const Tell& tell) {
    std::vector<std::vector<std::size_t>> spans(1);
    for (std::size_t at = 0; at < m_trace.size(); ++at) {
      if (m_trace[at].kind == Step::Mark)
        spans.emplace_back();
      else if (m_trace[at].kind < Step::SyncFile)
        spans.back().push_back(at);
    }
    Medium medium(m_base);
    for (std::size_t marks = 0; marks < spans.size(); ++marks) {
      const auto& span = spans[marks];
      const double chance = static_cast<double>(m_choice.samples) /
                            static_cast<double>(std::max<std::size_t>(span.size(), 1));
      if (marks >= fromMark && Chance(m_choice.cuts)) tell(medium, marks);
      for (const std::size_t at : span) {
        medium.Apply(m_trace[at]);
        if (marks >= fromMark && !m_trace[at].isPart && Chance(chance)) tell(medium, marks);
      }
    }
  }

 private:
  bool Chance(double chance) { return std::generate_canonical<double, 32>(m_random) < chance; }

  // The pending steps that the sync makes sure; taken off the list unless it is only asked.
  std::vector<std::size_t> Covered(const Step& sync, std::vector<std::size_t>& pending,
                                   bool onlyAsk) {
    std::set<std::size_t> covered;
    for (auto at = pending.rbegin(); at != pending.rend(); ++at) {
      const Step& step = m_trace[*at];
      const auto needs = [&](std::size_t later) { return Needs(m_trace[later], step); };
      if (IsCovered(sync, *at, onlyAsk) || std::any_of(covered.begin(), covered.end(), needs))
        covered.insert(*at);
    }
    if (!onlyAsk) std::erase_if(pending, [&](std::size_t at) { return covered.count(at) != 0; });
    return {covered.begin(), covered.end()};
  }
  bool IsCovered(const Step& sync, std::size_t at, bool onlyAsk) {
    const Step& step = m_trace[at];
    switch (sync.kind) {
      case Step::SyncVolume:
        return true;
      case Step::SyncFile:
        return step.file == sync.file && step.kind <= Step::Length;
      case Step::SyncRange:
        return step.file == sync.file &&
               (step.kind == Step::Length ||
                (step.kind == Step::Block && step.offset + kBlock > sync.offset &&
                 step.offset < sync.offset + sync.length));
      default:
        return step.kind >= Step::Create && IsNameCovered(sync.path, at, onlyAsk);
    }
  }
  bool IsNameCovered(const std::string& directory, std::size_t at, bool onlyAsk) {
    const auto isIn = [&](const std::string& path) {
      const std::size_t slash = path.rfind('/');
      return !path.empty() && (slash == path.npos ? "" : path.substr(0, slash)) == directory;
    };
    const Step& step = m_trace[at];
    if (step.from.empty() || (isIn(step.path) && isIn(step.from))) return isIn(step.path);
    if (!isIn(step.path) && !isIn(step.from)) return false;
    unsigned seen = m_halves[at] | (isIn(step.path) ? 1U : 2U);
    if (!onlyAsk) m_halves[at] = seen;
    return seen == 3;
  }

  void Combine(const Medium& medium, const std::vector<std::size_t>& pending, std::size_t marks,
               const Tell& tell) {
    const std::size_t count = pending.size();
    if (count <= m_choice.few) {
      for (std::size_t mask = 0; mask < std::size_t{1} << count; ++mask)
        Put(
            medium, pending, [=](std::size_t n) { return (mask >> n & 1) != 0; }, marks, tell);
      return;
    }
    Put(
        medium, pending, [](std::size_t) { return false; }, marks, tell);
    Put(
        medium, pending, [](std::size_t) { return true; }, marks, tell);
    for (std::size_t n = 2; n < m_choice.samples; ++n) {
      if (n % 3 == 0) {  // as if written in order
        const std::size_t end = m_random() % count;
        Put(
            medium, pending, [=](std::size_t at) { return at < end; }, marks, tell);
        continue;
      }
      constexpr double chances[] = {0.5, 0.5, 0.1, 0.9};
      const double chance = chances[n % 4];
      Put(
          medium, pending, [&](std::size_t) { return Chance(chance); }, marks, tell);
    }
  }
  template <class Chosen>
  void Put(Medium medium, const std::vector<std::size_t>& pending, Chosen chosen, std::size_t marks,
           const Tell& tell) {
    std::vector<const Step*> left;
    for (std::size_t n = 0; n < pending.size(); ++n) {
      const Step& step = m_trace[pending[n]];
      const auto needs = [&](const Step* earlier) { return Needs(step, *earlier); };
      const bool isName = step.kind >= Step::Create;
      if (!chosen(n) || (isName && std::any_of(left.begin(), left.end(), needs))) {
        if (isName) left.push_back(&step);
        continue;
      }
      medium.Apply(step);
    }
    tell(medium, marks);
  }

  const Base& m_base;
  const Trace& m_trace;
  const Choice m_choice;
  std::mt19937 m_random;
  std::map<std::size_t, unsigned> m_halves;  // of renames between directories: which are synced
};

}  // namespace crash
