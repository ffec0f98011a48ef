// A persistent ordered set of fixed elements.
#pragma once

#include <string>

#include "EntryMap.h"

// Codec gives Encode(element, payload) and Decode(payload, element) for an element of 12 bytes.
template <class T, class Codec>
struct CMSSetTraits {
  struct Entry {
    T element{};
    std::uint32_t slot = 0;
  };
  using Key = T;
  static constexpr CMSEntryFormat kFormat = kSetFormat;
  static constexpr bool kUnique = true;

  static const Key& Of(const Entry& entry) { return entry.element; }
  static void Decode(const std::byte* payload, std::uint32_t slot, Entry& entry) {
    Codec::Decode(payload, entry.element);
    entry.slot = slot;
  }
  static void Encode(const Entry& entry, std::byte* payload) {
    Codec::Encode(entry.element, payload);
  }
};

// Thread-safe. Compacted when deleted entries outnumber the live ones.
template <class T, class Codec>
class CMSSet {
 public:
  CMSSet(const CMSEngineContext& context, const std::string& directory, const std::string& name)
      : m_map(context, directory, name, true) {}

  std::size_t Size() const { return m_map.Size(); }
  bool Contains(const T& element) const { return m_map.Find(element).has_value(); }
  // Calls body with one element after the other from the first that is not less, until it answers
  // false.
  template <class Body>
  void From(const T& element, Body body) const {
    m_map.From(element, [&](const auto& entry) { return body(entry.element); });
  }
  // False when it is there already; nothing is written then. XKitFile when the write fails.
  bool Add(const T& element) { return m_map.Add({element, 0}); }
  bool Remove(const T& element) { return m_map.Remove(element); }

  template <class Body>
  void ForEach(Body body) const {
    m_map.ForEach([&](const auto& entry) { body(entry.element); });
  }
  void CheckInvariants() const { m_map.CheckInvariants(); }

 private:
  CMSEntryMap<CMSSetTraits<T, Codec>> m_map;
};
