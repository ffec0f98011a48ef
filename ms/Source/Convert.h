// Stores in earlier formats.
#pragma once

#include <string>

#include "kit/Identifiers.h"
#include "kit/KeyCarrier.h"

// Recognises the files of earlier formats. There is no converter in this build: Run refuses such a
// store and touches nothing. A converter takes this class's place without anything else changing:
// after Run, a directory holds either no store or one of the current format.
class CMSConverter {
 public:
  CMSConverter(std::string directory, int checkDataConverting);

  // Whether the directory holds a store of an earlier format (and no complete one of the current
  // format).
  bool IsEarlierFormat() const;
  // Does nothing for other directories. XKitStatus 50 for an earlier format.
  void Run(CKeyCarrier& keys, CAbstractAsymmKey* key, CGroupID& group) const;

 private:
  std::string m_directory;
  int m_checkDataConverting;
};
