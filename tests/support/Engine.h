// What the engine needs around it, over a directory of its own.
#pragma once

#include <string>

#include "TempDir.h"
#include "ms/Source/Durability.h"
#include "ms/Source/EngineContext.h"
#include "ms/Source/Errors.h"

struct Engine {
  TempDir dir;
  CMSDurability durability{CMSDurabilityLevel::Process, dir.Path()};

  CMSEngineContext Context(bool readOnly = false) {
    return {g_MSBaseInformer, durability, readOnly};
  }
  // The reasons in the journal so far, one a line, with the directory's name taken out.
  std::string Reports() const {
    std::string reports;
    const std::string journal = ReadBytes(dir / "fixme.dat");
    static const std::string kMark = "The reason is: ";
    for (auto at = journal.find(kMark); at != std::string::npos; at = journal.find(kMark, at)) {
      at += kMark.size();
      reports += journal.substr(at, journal.find("\r\n", at) - at) + "\n";
    }
    const std::string prefix = dir / "";
    for (auto at = reports.find(prefix); at != std::string::npos; at = reports.find(prefix))
      reports.erase(at, prefix.size());
    return reports;
  }
};

// The status code that body fails with; 0 when it does not.
template <class Body>
int CodeOf(Body body) {
  try {
    body();
  } catch (const XKitStatus& error) {
    return error.Code();
  }
  return 0;
}
