// A store for a test, opened with what most tests need.
#pragma once

#include <string>

#include "ms/Source/MessageStore.h"

inline CMSMessageStore OpenStore(const std::string& directory, bool readOnly = false,
                                 CMSClientInformer* informer = nullptr,
                                 CMSDurabilityLevel level = CMSDurabilityLevel::Process) {
  static CKeyCarrier keys;
  static CGroupID group;
  return CMSMessageStore(directory.c_str(), keys, nullptr, group, false, readOnly, informer, "",
                         level);
}
