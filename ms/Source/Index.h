// The key index of a record file: which container holds the record of a key.
#pragma once

#include <cstring>
#include <string>

#include "EntryMap.h"

struct CMSIndexTraits {
  struct Entry {
    std::uint32_t key = 0;
    std::uint32_t value = 0;
    std::uint32_t slot = 0;
  };
  using Key = std::uint32_t;
  static constexpr CMSEntryFormat kFormat = kIndexFormat;
  static constexpr bool kUnique = true;

  static Key Of(const Entry& entry) { return entry.key; }
  static void Decode(const std::byte* payload, std::uint32_t slot, Entry& entry) {
    LittleU32 words[2];
    std::memcpy(words, payload, sizeof words);
    entry = {words[0], words[1], slot};
  }
  static void Encode(const Entry& entry, std::byte* payload) {
    const LittleU32 words[2] = {entry.key, entry.value};
    std::memcpy(payload, words, sizeof words);
  }
};

// Thread-safe. Lookups touch no file. The file is never compacted: slots are reused, so it is as
// long as the store was large at its largest.
class CMSIndex {
 public:
  CMSIndex(const CMSEngineContext& context, const std::string& directory, const std::string& name)
      : m_map(context, directory, name, false) {}

  std::size_t Size() const { return m_map.Size(); }
  // The container index, or kNoContainer's absence: nothing when the key is unknown.
  std::optional<std::uint32_t> Find(std::uint32_t key) const {
    const auto entry = m_map.Find(key);
    return entry ? std::optional<std::uint32_t>(entry->value) : std::nullopt;
  }
  // The same for a caller that keeps all changes out: takes no lock.
  std::optional<std::uint32_t> Peek(std::uint32_t key) const {
    const auto* entry = m_map.Peek(key);
    return entry != nullptr ? std::optional<std::uint32_t>(entry->value) : std::nullopt;
  }
  // False when the key is there already. XKitFile when the write fails; nothing is changed then.
  bool Add(std::uint32_t key, std::uint32_t container) { return m_map.Add({key, container, 0}); }
  // False when the key is unknown. XKitFile when the write fails.
  bool Remove(std::uint32_t key) { return m_map.Remove(key); }

  // Calls body with a function that tells whether a key is known: quick for keys in rising order.
  template <class Body>
  void Ask(Body body) const {
    m_map.Ask(body);
  }
  // 0 when there is none.
  std::uint32_t GreatestKey() const {
    const auto entry = m_map.Last();
    return entry ? entry->key : 0;
  }
  // Calls body(key, container) in key order.
  template <class Body>
  void ForEach(Body body) const {
    m_map.ForEach([&](const CMSIndexTraits::Entry& entry) { body(entry.key, entry.value); });
  }
  void CheckInvariants() const { m_map.CheckInvariants(); }

 private:
  CMSEntryMap<CMSIndexTraits> m_map;
};
