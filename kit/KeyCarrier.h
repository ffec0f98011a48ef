// The user's key carrier and asymmetric key, as far as a store needs to know them.
//
// A store never sees a key of the carrier: it hands both to the conversion of earlier formats and
// to the wrapping of document keys. A client derives its own.
#pragma once

#include "kit/Export.h"

class MS_API CKeyCarrier {
 public:
  virtual ~CKeyCarrier() = default;
};

class MS_API CAbstractAsymmKey {
 public:
  virtual ~CAbstractAsymmKey() = default;
};
