// Ownership of what the mail library hands out.
#pragma once

#include <gmime/gmime.h>

#include <memory>

namespace tool {

struct GObjectRelease {
  template <class T>
  void operator()(T* object) const {
    g_object_unref(object);
  }
};
template <class T>
using GPtr = std::unique_ptr<T, GObjectRelease>;

struct GFree {
  void operator()(char* text) const { g_free(text); }
};
using GText = std::unique_ptr<char, GFree>;

}  // namespace tool
