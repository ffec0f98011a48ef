// Offline maintenance of a store.
#pragma once

#include "kit/Export.h"

namespace MSF {

class MS_API CFixer {
 public:
  // Whether a derived file of the store is missing (a key index, the relations, the packet names or
  // the master file). Null is the current directory. Looks at no file's content.
  static bool IsRequiresRepair(const char* directory);
  // Whether the directory holds the four record files of a store. Null is the current directory.
  static bool IsMSDirectory(const char* directory);
};

}  // namespace MSF
