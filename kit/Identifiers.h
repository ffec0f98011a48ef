// Identifiers of users, stations and workgroups: short opaque texts.
#pragma once

#include "kit/Export.h"
#include "kit/KitString.h"

class CKitIdentifier {
 public:
  CKitIdentifier() = default;
  explicit CKitIdentifier(CKitString text) : m_text(std::move(text)) {}
  const CKitString& Text() const { return m_text; }
  bool operator==(const CKitIdentifier&) const = default;

 private:
  CKitString m_text;
};

class CUserID : public CKitIdentifier {
 public:
  using CKitIdentifier::CKitIdentifier;
};
class CStationID : public CKitIdentifier {
 public:
  using CKitIdentifier::CKitIdentifier;
};
class CGroupID : public CKitIdentifier {
 public:
  using CKitIdentifier::CKitIdentifier;
};
