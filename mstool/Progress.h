// How far a long command is.
#pragma once

#include <chrono>
#include <cstdint>

namespace tool {

// One line on standard error that renews itself: letters, rate, a bar, the time left. Shown only
// on a terminal.
class Progress {
 public:
  explicit Progress(std::uint64_t totalBytes);
  ~Progress() { Hide(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Redrawn at most ten times a second.
  void Show(std::uint64_t letters, std::uint64_t bytes);
  // Before anything else is printed; the next Show brings it back.
  void Hide();
  double Seconds() const;

 private:
  using Clock = std::chrono::steady_clock;
  const bool m_onTerminal;
  const std::uint64_t m_total;
  const Clock::time_point m_start = Clock::now();
  Clock::time_point m_drawn{};
  bool m_visible = false;
};

}  // namespace tool
