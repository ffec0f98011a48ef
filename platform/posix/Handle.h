// A file descriptor with an owner, and the way from errno to Status.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/Status.h"

namespace platform::posix {

class Handle {
 public:
  Handle() = default;
  explicit Handle(int fd) : m_fd(fd) {}
  Handle(Handle&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
  }
  // Whatever close has to say, the descriptor is gone, and data that matters was synced before.
  ~Handle() {
    if (m_fd != -1) ::close(m_fd);
  }
  bool Valid() const { return m_fd != -1; }
  int Get() const { return m_fd; }

 private:
  int m_fd = -1;
};

Status StatusOf(int error);
inline Status LastStatus() {
  return StatusOf(errno);
}
// For calls that answer 0, or -1 with errno.
inline Status StatusOfCall(int result) {
  return result == 0 ? Status() : LastStatus();
}

// Repeats a call as long as a signal interrupts it.
template <class Call>
auto Retry(Call call) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

}  // namespace platform::posix
