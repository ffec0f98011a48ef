// The in-memory side of an entry file: entries in key order, a few bytes each.
#pragma once

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <vector>

// Order gives a Key type with operator<, and Key Of(const Entry&).
//
// The entries lie in runs of at most kRunLength; the runs' first keys lie side by side, so a search
// touches two short arrays. Keys that arrive in rising order, as those of new objects do, fill
// every run to the brim; others split runs in half.
//
// Invariants: no run is empty; keys rise from entry to entry across all runs; m_firsts[i] is the
// key of m_runs[i][0].
template <class Entry, class Order>
class CMSSortedRuns {
 public:
  using Key = typename Order::Key;
  static constexpr std::size_t kRunLength = 512;

  // A place among the entries; the next change makes it meaningless.
  struct Position {
    std::size_t run = 0;
    std::size_t index = 0;
  };

  std::size_t Size() const { return m_size; }
  bool IsEnd(Position at) const { return at.run == m_runs.size(); }
  const Entry& At(Position at) const { return m_runs[at.run][at.index]; }
  const Entry& Last() const { return m_runs.back().back(); }
  Position Begin() const { return {}; }
  Position Next(Position at) const {
    return at.index + 1 < m_runs[at.run].size() ? Position{at.run, at.index + 1}
                                                : Position{at.run + 1, 0};
  }

  // The first entry whose key is not less.
  Position LowerBound(const Key& key) const {
    const auto first = std::upper_bound(m_firsts.begin(), m_firsts.end(), key);
    if (first == m_firsts.begin()) return {};
    const auto run = static_cast<std::size_t>(first - m_firsts.begin()) - 1;
    const auto& entries = m_runs[run];
    const auto found =
        std::lower_bound(entries.begin(), entries.end(), key,
                         [](const Entry& entry, const Key& k) { return Order::Of(entry) < k; });
    if (found == entries.end()) return {run + 1, 0};
    return {run, static_cast<std::size_t>(found - entries.begin())};
  }
  const Entry* Find(const Key& key) const {
    const Position at = LowerBound(key);
    return !IsEnd(at) && !(key < Order::Of(At(at))) ? &At(at) : nullptr;
  }

  // False, and nothing changed, when the key is there already.
  bool Insert(const Entry& entry) {
    const Key key = Order::Of(entry);
    if (m_size == 0 || Order::Of(m_runs.back().back()) < key) {
      PushBack(entry);
      return true;
    }
    Position at = LowerBound(key);
    if (!(key < Order::Of(At(at)))) return false;
    if (m_runs[at.run].size() == kRunLength) {
      Split(at.run);
      at = LowerBound(key);
    }
    // Behind the last entry of the run before is as good a place as before the first one here, and
    // moves less.
    if (at.index == 0 && at.run > 0 && m_runs[at.run - 1].size() < kRunLength) {
      m_runs[at.run - 1].push_back(entry);
    } else {
      auto& run = m_runs[at.run];
      run.insert(run.begin() + static_cast<std::ptrdiff_t>(at.index), entry);
      m_firsts[at.run] = Order::Of(run.front());
    }
    ++m_size;
    return true;
  }

  // For an entry whose key is greater than all others.
  void PushBack(const Entry& entry) {
    if (m_runs.empty() || m_runs.back().size() == kRunLength) {
      m_runs.emplace_back().reserve(kRunLength);
      m_firsts.push_back(Order::Of(entry));
    }
    m_runs.back().push_back(entry);
    ++m_size;
  }

  void Erase(Position at) {
    auto& run = m_runs[at.run];
    run.erase(run.begin() + static_cast<std::ptrdiff_t>(at.index));
    --m_size;
    if (run.empty())
      DropRun(at.run);
    else
      m_firsts[at.run] = Order::Of(run.front());
    if (at.run < m_runs.size()) JoinWithNext(at.run);
  }

  void Clear() {
    m_runs.clear();
    m_firsts.clear();
    m_size = 0;
  }

  // Calls body with every entry in order; it may change the entries as long as they stay in order.
  template <class Body>
  void ForEach(Body body) {
    for (std::size_t i = 0; i < m_runs.size(); ++i) {
      for (auto& entry : m_runs[i]) body(entry);
      m_firsts[i] = Order::Of(m_runs[i].front());
    }
  }
  template <class Body>
  void ForEach(Body body) const {
    for (const auto& run : m_runs)
      for (const auto& entry : run) body(entry);
  }

  void CheckInvariants() const {
    std::size_t count = 0;
    for (std::size_t i = 0; i < m_runs.size(); ++i) {
      if (m_runs[i].empty()) throw std::logic_error("empty run");
      if (Order::Of(m_runs[i][0]) < m_firsts[i] || m_firsts[i] < Order::Of(m_runs[i][0]))
        throw std::logic_error("wrong first key of a run");
      count += m_runs[i].size();
    }
    if (count != m_size || m_firsts.size() != m_runs.size()) throw std::logic_error("wrong size");
    for (Position at, next; !IsEnd(at); at = next) {
      next = Next(at);
      if (!IsEnd(next) && !(Order::Of(At(at)) < Order::Of(At(next))))
        throw std::logic_error("keys out of order");
    }
  }

 private:
  void Split(std::size_t index) {
    std::vector<Entry> upper;
    upper.reserve(kRunLength);
    auto& lower = m_runs[index];
    const auto middle = lower.begin() + static_cast<std::ptrdiff_t>(lower.size() / 2);
    upper.assign(middle, lower.end());
    lower.erase(middle, lower.end());
    const auto next = static_cast<std::ptrdiff_t>(index) + 1;
    m_firsts.insert(m_firsts.begin() + next, Order::Of(upper.front()));
    m_runs.insert(m_runs.begin() + next, std::move(upper));
  }
  void DropRun(std::size_t index) {
    m_runs.erase(m_runs.begin() + static_cast<std::ptrdiff_t>(index));
    m_firsts.erase(m_firsts.begin() + static_cast<std::ptrdiff_t>(index));
  }
  void JoinWithNext(std::size_t index) {
    if (index + 1 >= m_runs.size()) return;
    auto& run = m_runs[index];
    const auto& next = m_runs[index + 1];
    if (run.size() + next.size() > kRunLength / 2) return;
    run.insert(run.end(), next.begin(), next.end());
    DropRun(index + 1);
  }

  std::vector<std::vector<Entry>> m_runs;
  std::vector<Key> m_firsts;
  std::size_t m_size = 0;
};
