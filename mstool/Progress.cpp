#include "Progress.h"

#include <algorithm>
#include <cmath>
#include <iostream>

#include "kit/KitString.h"
#include "platform/Program.h"

namespace tool {
namespace {

constexpr std::size_t kBarColumns = 30;

std::string Bar(double part) {
  const auto full = static_cast<std::size_t>(part * static_cast<double>(kBarColumns));
  return "[" + std::string(full, '#') + std::string(kBarColumns - full, '.') + "]";
}

std::string TimeLeft(double seconds) {
  const auto whole = static_cast<long>(std::lround(seconds));
  return KitFormat("%ld:%02ld", whole / 60, whole % 60);
}

}  // namespace

Progress::Progress(std::uint64_t totalBytes)
    : m_onTerminal(platform::IsTerminal(platform::Stream::Error)), m_total(totalBytes) {}

double Progress::Seconds() const {
  return std::chrono::duration<double>(Clock::now() - m_start).count();
}

void Progress::Show(std::uint64_t letters, std::uint64_t bytes) {
  if (!IsDue()) return;
  Draw(KitFormat("%llu letters  %.0f/s", static_cast<unsigned long long>(letters),
                 static_cast<double>(letters) / std::max(Seconds(), 0.001)),
       bytes, m_total);
}

void Progress::Draw(const std::string& text, std::uint64_t done, std::uint64_t total) {
  m_drawn = Clock::now();
  m_visible = true;
  const double seconds = std::chrono::duration<double>(m_drawn - m_begun).count();
  const double part =
      total == 0 ? 1.0 : std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
  std::string line = "\r" + text + "  " + Bar(part);
  if (part > 0) line += "  " + TimeLeft(seconds * (1 - part) / part) + " left";
  std::cerr << line << "\x1B[K" << std::flush;
}

void Progress::Hide() {
  if (!m_visible) return;
  m_visible = false;
  m_drawn = {};
  std::cerr << "\r\x1B[K" << std::flush;
}

}  // namespace tool
