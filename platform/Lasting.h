// A value that lives until the process ends, whatever is destroyed before that.
#pragma once

#include <new>

namespace platform {

// For function-local statics that objects with a longer life still use while the process exits: a
// client's global store closes then.
template <class T>
class Lasting {
 public:
  Lasting() : m_value(::new (m_bytes) T()) {}
  Lasting(const Lasting&) = delete;
  Lasting& operator=(const Lasting&) = delete;
  T& operator*() const { return *m_value; }

 private:
  alignas(T) unsigned char m_bytes[sizeof(T)];
  T* const m_value;
};

}  // namespace platform
