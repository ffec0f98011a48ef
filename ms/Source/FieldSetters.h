// What the accessors of letters, attachments and recipients share.
#pragma once

#include "StoreOf.h"
#include "kit/KitDateTime.h"

// For work that starts before a change could be refused, and should not be done in vain.
inline void RequireWritable(const CMSMessageStoreImp& store) {
  if (!store.IsReadOnly()) return;
  throw XKitStatus(kit::kStatusReadOnly, "the store '" + store.Directory() + "' takes no changes");
}

// Letters alone have listeners.
inline void Announce(const CMSDocument& document) {
  StoreOf(document).Listeners().DocumentChanged(document);
}
inline void Announce(const CMSObject<CMSAttachmentData>&) {}
inline void Announce(const CMSObject<CMSRecipientData>&) {}

// A setter: body gets the record to change.
template <class Handle, class Body>
void ChangeRecord(Handle& handle, Body body) {
  StoreOf(handle).Change([&] {
    CMSFieldAccess::Write(handle, body);
    Announce(handle);
  });
}

// what names the field to a person who is told that the text is too long.
template <class Handle, class T, std::size_t N>
void SetText(Handle& handle, char (T::*field)[N], const char* text, const char* what) {
  const CKitString value(text);
  CMSFieldAccess::CheckFits(value, N, what);
  ChangeRecord(handle, [&](T& record) { CMSFieldAccess::PutText(record.*field, value); });
}

template <class Handle, class T, class V>
void SetValue(Handle& handle, CMSLittle<V> T::*field, V value) {
  ChangeRecord(handle, [&](T& record) { record.*field = value; });
}

template <class Handle, class T>
void SetDate(Handle& handle, LittleU32 T::*field, const char* dateText) {
  SetValue(handle, field, CKitDateTime::Parse(CKitString(dateText)).Seconds());
}

template <class T>
CKitString DateOf(const CMSObject<T>& handle, LittleU32 T::*field) {
  return CKitDateTime(CMSFieldAccess::Value(handle, field)).Text();
}

// For records that are being filled.
template <std::size_t N>
void PutChecked(char (&field)[N], const std::string& text, const char* what) {
  CMSFieldAccess::CheckFits(text, N, what);
  CMSFieldAccess::PutText(field, text);
}

// Counters of damaged records may hold anything, so sums wrap.
constexpr std::int32_t WrappedSum(std::int32_t value, long change) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(value) +
                                   static_cast<std::uint32_t>(change));
}
constexpr std::int32_t WrappedDifference(std::int32_t to, std::int32_t from) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(to) -
                                   static_cast<std::uint32_t>(from));
}
