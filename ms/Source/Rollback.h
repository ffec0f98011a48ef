// Takes back what a change has done so far when it does not get to its end.
#pragma once

#include <utility>

#include "kit/LogDispatcher.h"

template <class Undo>
class Rollback {
 public:
  explicit Rollback(Undo undo) : m_undo(std::move(undo)) {}
  ~Rollback() {
    // What is left behind the next repair finds; the first failure is the one to tell.
    if (m_armed) RunOrLog(m_undo, "ms\\Source\\Rollback", 1);
  }
  Rollback(const Rollback&) = delete;
  Rollback& operator=(const Rollback&) = delete;
  void Disarm() { m_armed = false; }

 private:
  Undo m_undo;
  bool m_armed = true;
};
