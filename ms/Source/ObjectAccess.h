// How handles reach their records.
#pragma once

#include <cstring>
#include <string_view>

#include "Object.h"
#include "ObjectDB.h"
#include "Records.h"

// The data lock is held for the whole of each access, so that the bytes of a record are never read
// while another thread changes them.
struct CMSFieldAccess {
  // XKitStatus 6 for an empty or stale handle.
  template <class T>
  static CMSDBObject& Cell(const CMSObject<T>& handle) {
    return Checked(handle.m_cell);
  }

  // Calls body with the record, const T&, and answers what it answers. The body only copies out: it
  // calls nothing that takes a lock.
  template <class T, class Body>
  static auto Read(const CMSObject<T>& handle, Body body) {
    CMSDBObject& cell = Cell(handle);
    return cell.owner->File().Read(
        [&] { return Number(cell); }, cell.key,
        [&](const std::byte* record) { return body(*reinterpret_cast<const T*>(record)); });
  }
  template <class T>
  static T Copy(const CMSObject<T>& handle) {
    return Read(handle, [](const T& record) { return record; });
  }

  // Calls body with the record, T&; the record is flushed afterwards.
  template <class T, class Body>
  static auto Write(const CMSObject<T>& handle, Body body) {
    return Write(handle, CMSRecordFile::Kind::Primary, body);
  }
  // The same for what a repair works out again, so that no call waits for it.
  template <class T, class Body>
  static auto WriteDerived(const CMSObject<T>& handle, Body body) {
    return Write(handle, CMSRecordFile::Kind::Derived, body);
  }
  template <class T, class Body>
  static auto Write(const CMSObject<T>& handle, CMSRecordFile::Kind kind, Body body) {
    CMSDBObject& cell = Cell(handle);
    CMSRecordFile& file = cell.owner->File();
    const CSharedLocker guard(file.Lock());
    const typename CMSDB<unsigned long, T>::WritePtr record(file, Number(cell), cell.key, kind);
    return body(*record);
  }

  template <class T, std::size_t N>
  static CKitString Text(const CMSObject<T>& handle, char (T::*field)[N]) {
    return Read(handle, [&](const T& record) { return TextOf(record.*field); });
  }
  template <class T, class V>
  static V Value(const CMSObject<T>& handle, CMSLittle<V> T::*field) {
    return Read(handle, [&](const T& record) -> V { return record.*field; });
  }

  // An ID as a key; 0, which names nothing, for one that no object can have.
  static std::uint32_t KeyOf(unsigned long id) {
    return id <= kNoContainer ? static_cast<std::uint32_t>(id) : 0;
  }

  // The text in a field, which need not be terminated in a damaged record.
  template <std::size_t N>
  static CKitString TextOf(const char (&field)[N]) {
    return CKitString(std::string_view(field, ::strnlen(field, N)));
  }
  // Stores a text with its terminator; what was behind it stays. Fits must have been asked.
  template <std::size_t N>
  static void PutText(char (&field)[N], const std::string& text) {
    std::memcpy(field, text.c_str(), text.size() + 1);
  }
  // XKitStatus 87 when the text does not fit a field of that width (or holds a zero byte). what
  // names it to a person.
  static void CheckFits(const std::string& text, std::size_t width, const char* what);

  // The record's number. XKitStatus 6 for an object that is gone.
  static std::uint32_t Number(const CMSDBObject& cell);

 private:
  static CMSDBObject& Checked(CMSDBObject* cell);
};

template <class T>
auto CMSObject<T>::Data() const {
  CMSDBObject& cell = CMSFieldAccess::Cell(*this);
  return typename CMSDB<unsigned long, T>::ReadPtr(cell.owner->File(), CMSFieldAccess::Number(cell),
                                                   cell.key);
}
template <class T>
auto CMSObject<T>::Data() {
  CMSDBObject& cell = CMSFieldAccess::Cell(*this);
  return typename CMSDB<unsigned long, T>::WritePtr(cell.owner->File(),
                                                    CMSFieldAccess::Number(cell), cell.key);
}
