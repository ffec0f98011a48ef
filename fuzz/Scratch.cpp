#include "Scratch.h"

#include <algorithm>
#include <filesystem>

#include "kit/LogDispatcher.h"
#include "support/TempDir.h"

namespace fuzz {
namespace {

namespace fs = std::filesystem;

class Silence final : public CLogSink {
 public:
  void WriteLogFormatted(const char*, const char*, int) override {}
  int ReportLog(int, const char*, const char*, int) override { return 0; }
};

struct Place {
  Place() {
    static Silence silence;
    SetLogSink(&silence);
    ::setenv("TZ", "UTC", 1);
  }
  TempDir dir{fs::exists("/dev/shm") ? "/dev/shm" : ""};
};

}  // namespace

const std::string& EmptyScratch() {
  static const Place place;
  for (const auto& entry : fs::directory_iterator(place.dir.Path())) fs::remove_all(entry.path());
  return place.dir.Path();
}

std::uint32_t Input::Word() {
  std::uint32_t word = 0;
  for (unsigned i = 0; i < 4; ++i) word |= std::uint32_t{Byte()} << 8 * i;
  return word;
}

std::string Input::Text(std::size_t size) {
  std::string text(m_at, std::min(size, m_left));
  m_at += text.size();
  m_left -= text.size();
  return text;
}

Input Input::Part() {
  const std::size_t wanted = Byte();
  const std::size_t size = std::min(wanted, m_left);
  const Input part(reinterpret_cast<const std::uint8_t*>(m_at), size);
  m_at += size;
  m_left -= size;
  return part;
}

}  // namespace fuzz
