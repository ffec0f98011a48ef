// How far a long command is.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tool {

// One line on standard error that renews itself: how much is done, a bar, the time left. Shown only
// on a terminal.
class Progress {
 public:
  // totalBytes: for Show alone.
  explicit Progress(std::uint64_t totalBytes = 0);
  ~Progress() { Hide(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Letters, rate, bar, time left. Redrawn at most ten times a second.
  void Show(std::uint64_t letters, std::uint64_t bytes);
  // For work whose size shows only later, or that has several parts: Begin at the start of each
  // part, from which the time left is reckoned, and Draw, a text of the caller's with the bar, when
  // IsDue says that it is time.
  void Begin() { m_begun = Clock::now(); }
  bool IsDue() const { return m_onTerminal && Clock::now() - m_drawn >= kRedraw; }
  void Draw(const std::string& text, std::uint64_t done, std::uint64_t total);
  // Before anything else is printed; the next Show brings it back.
  void Hide();
  // Since construction.
  double Seconds() const;

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kRedraw{100};
  const bool m_onTerminal;
  const std::uint64_t m_total;
  const Clock::time_point m_start = Clock::now();
  Clock::time_point m_begun = m_start;
  Clock::time_point m_drawn{};
  bool m_visible = false;
};

}  // namespace tool
