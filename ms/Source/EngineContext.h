// What the engine is handed by the store that uses it.
#pragma once

#include <string>

#include "Durability.h"
#include "corrupted.h"

struct CMSEngineContext {
  CMSBaseIntegrityInformer& informer;
  CMSDurability& durability;
  bool readOnly = false;

  // XKitStatus 19 when the store takes no changes.
  void CheckWritable(const std::string& file) const;
};

// The one place where a text is made, reported with the directory of the damaged file, and perhaps
// thrown. The format takes the file's full name.
void ReportCorruption(const CMSEngineContext& context, const char* format, const std::string& file);
[[noreturn]] void ReportAndThrow(const CMSEngineContext& context, const char* format,
                                 const std::string& file, int code);
