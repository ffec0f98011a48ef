// The in-memory side of an entry file: entries in key order, a few bytes each.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <type_traits>
#include <utility>
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
    const std::size_t index = LowerBoundIn(run, key);
    return index < m_runs[run].size() ? Position{run, index} : Position{run + 1, 0};
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
  // Inlined into the loading loop, the entry never takes the way through memory.
  [[gnu::always_inline]] void PushBack(const Entry& entry) {
    if (m_runs.empty() || m_runs.back().size() == kRunLength) StartRun(Order::Of(entry));
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

  // Takes in all entries of another one. Equal keys may meet and then stand side by side; whole
  // runs that lie between the other's keys are taken as they are.
  void Merge(CMSSortedRuns&& other) {
    if (m_size == 0) {
      *this = std::move(other);
      return;
    }
    CMSSortedRuns mine = std::exchange(*this, {});
    Position a;
    Position b;
    while (!mine.IsEnd(a) && !other.IsEnd(b)) {
      if (Order::Of(other.At(b)) < Order::Of(mine.At(a)))
        TakeUpTo(Order::Of(mine.At(a)), other, b);
      else
        TakeUpTo(Order::Of(other.At(b)), mine, a);
    }
    while (!mine.IsEnd(a)) TakeRest(mine, a);
    while (!other.IsEnd(b)) TakeRest(other, b);
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
  void StartRun(const Key& first) {
    std::vector<Entry> run;
    run.reserve(kRunLength);
    AddRun(m_runs.size(), first, std::move(run));
  }

  // Keys are often spread evenly, as those of objects of one kind are: a guess from where the run
  // and the next one begin costs one look where halving it would cost several, each in another
  // cache line.
  std::size_t LowerBoundIn(std::size_t index, const Key& key) const {
    const std::vector<Entry>& run = m_runs[index];
    auto begin = run.begin();
    auto end = run.end();
    if constexpr (std::is_integral_v<Key>) {
      const std::uint64_t low = m_firsts[index];
      const bool isLast = index + 1 == m_runs.size();
      const std::uint64_t high =
          isLast ? Order::Of(run.back()) + std::uint64_t{1} : std::uint64_t{m_firsts[index + 1]};
      if (key >= high) return run.size();
      if (key <= low) return 0;
      constexpr std::size_t kReach = 4;
      const auto guess = static_cast<std::size_t>((key - low) * run.size() / (high - low));
      if (Order::Of(run[guess]) == key) return guess;
      const std::size_t from = guess > kReach ? guess - kReach : 0;
      const std::size_t to = std::min(guess + kReach, run.size() - 1);
      if (Order::Of(run[from]) < key && key <= Order::Of(run[to])) {
        begin = run.begin() + static_cast<std::ptrdiff_t>(from);
        end = run.begin() + static_cast<std::ptrdiff_t>(to);
      }
    }
    const auto found = std::lower_bound(
        begin, end, key, [](const Entry& entry, const Key& k) { return Order::Of(entry) < k; });
    return static_cast<std::size_t>(found - run.begin());
  }

  // The entries of from that are less than limit, or at least one; a whole run where it can be.
  void TakeUpTo(const Key& limit, CMSSortedRuns& from, Position& at) {
    if (at.index == 0 && Order::Of(from.m_runs[at.run].back()) < limit) {
      TakeRest(from, at);
      return;
    }
    do {
      PushBack(from.At(at));
      at = from.Next(at);
    } while (at.index != 0 && Order::Of(from.At(at)) < limit);
  }
  // The rest of a run.
  void TakeRest(CMSSortedRuns& from, Position& at) {
    auto& run = from.m_runs[at.run];
    if (at.index == 0) {
      m_size += run.size();
      m_firsts.push_back(Order::Of(run.front()));
      m_runs.push_back(std::move(run));
    } else {
      for (std::size_t i = at.index; i < run.size(); ++i) PushBack(run[i]);
    }
    at = {at.run + 1, 0};
  }
  void Split(std::size_t index) {
    std::vector<Entry> upper;
    upper.reserve(kRunLength);
    const auto& lower = m_runs[index];
    const std::size_t half = lower.size() / 2;
    upper.assign(lower.begin() + static_cast<std::ptrdiff_t>(half), lower.end());
    AddRun(index + 1, Order::Of(upper.front()), std::move(upper));
    m_runs[index].resize(half);
  }
  // All of it or, without memory, nothing.
  void AddRun(std::size_t index, const Key& first, std::vector<Entry>&& run) {
    const auto at = static_cast<std::ptrdiff_t>(index);
    m_firsts.reserve(Room(m_firsts));
    m_runs.reserve(Room(m_runs));
    m_firsts.insert(m_firsts.begin() + at, first);
    m_runs.insert(m_runs.begin() + at, std::move(run));
  }
  template <class T>
  static std::size_t Room(const std::vector<T>& runs) {
    return runs.size() < runs.capacity() ? runs.capacity() : 2 * runs.size() + 1;
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
