// A persistent index in which a key may have several values.
#pragma once

#include <cstring>
#include <optional>
#include <string>

#include "EntryMap.h"

// Codec gives kFormat, and Encode(name, payload) and Decode(payload, name) for the name; the value
// of 4 bytes follows it.
template <class Name, class Codec>
struct CMSMultiIndexTraits {
  // Equal names come in the order of their values; equal pairs may repeat. An entry is its own key,
  // so that sorting copies none.
  struct Entry {
    Name name{};
    std::uint32_t value = 0;
    std::uint32_t slot = 0;
    auto operator<=>(const Entry&) const = default;
  };
  using Key = Entry;
  static constexpr CMSEntryFormat kFormat = Codec::kFormat;
  static constexpr bool kUnique = false;

  static const Key& Of(const Entry& entry) { return entry; }
  static void Decode(const std::byte* payload, std::uint32_t slot, Entry& entry) {
    Codec::Decode(payload, entry.name);
    LittleU32 value;
    std::memcpy(&value, payload + kFormat.keySize, sizeof value);
    entry.value = value;
    entry.slot = slot;
  }
  static void Encode(const Entry& entry, std::byte* payload) {
    Codec::Encode(entry.name, payload);
    const LittleU32 value = entry.value;
    std::memcpy(payload + kFormat.keySize, &value, sizeof value);
  }
};

// Thread-safe. Compacted when deleted entries outnumber the live ones.
template <class Name, class Codec>
class CMSMultiIndex {
 public:
  using Traits = CMSMultiIndexTraits<Name, Codec>;

  CMSMultiIndex(const CMSEngineContext& context, const std::string& directory,
                const std::string& name)
      : m_map(context, directory, name, true) {}

  std::size_t Size() const { return m_map.Size(); }
  // Always adds. XKitFile when the write fails; nothing is changed then.
  void Add(const Name& name, std::uint32_t value) { m_map.Add({name, value, kNoContainer}); }
  // Takes one entry of that name and value; false when there is none.
  bool Remove(const Name& name, std::uint32_t value) {
    const CSharedLocker guard(m_map.Lock());
    const auto entry = m_map.LowerBound({name, value, 0});
    if (!entry || entry->name != name || entry->value != value) return false;
    return m_map.Remove(Traits::Of(*entry));
  }
  // The least value of the name that is not less than from.
  std::optional<std::uint32_t> Find(const Name& name, std::uint32_t from) const {
    const auto entry = m_map.LowerBound({name, from, 0});
    return entry && entry->name == name ? std::optional<std::uint32_t>(entry->value) : std::nullopt;
  }

  // Calls body(name, value), in any order.
  template <class Body>
  void ForEach(Body body) const {
    m_map.ForEach([&](const auto& entry) { body(entry.name, entry.value); });
  }
  void CheckInvariants() const { m_map.CheckInvariants(); }

 private:
  CMSEntryMap<Traits> m_map;
};
