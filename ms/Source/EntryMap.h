// Entry file and sorted entries together: what key index, relations set and packet table have in
// common.
#pragma once

#include <array>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "EntryFile.h"
#include "Errors.h"
#include "SortedRuns.h"
#include "kit/SharedLock.h"

// Traits give: Entry (default-constructible, with a member slot), Key and Of as CMSSortedRuns wants
// them, kFormat, kUnique, Decode(payload, slot, entry) and Encode(entry, payload).
//
// Invariant: the live entries of the file are those of the map, each at its slot.
//
// The entries of a map that is not unique may arrive in any order and are sorted when they are
// first asked for; a unique one is sorted at once, since loading must find duplicates.
template <class Traits>
class CMSEntryMap : private CMSGatherer {
 public:
  using Entry = typename Traits::Entry;
  using Key = typename Traits::Key;
  using Entries = CMSSortedRuns<Entry, Traits>;

  // compacts: whether the file is rewritten when deleted entries outnumber the live ones.
  CMSEntryMap(const CMSEngineContext& context, const std::string& directory,
              const std::string& name, bool compacts)
      : m_file(context, directory, name, Traits::kFormat), m_compacts(compacts) {
    Load();
    m_file.Context().durability.Register(*this);
  }
  ~CMSEntryMap() override { m_file.Context().durability.Unregister(*this); }
  CMSEntryMap(const CMSEntryMap&) = delete;
  CMSEntryMap& operator=(const CMSEntryMap&) = delete;

  CSharedLock& Lock() const { return m_lock; }
  const std::string& FileName() const { return m_file.FileName(); }

  std::size_t Size() const {
    const CSharedLocker guard(m_lock);
    return m_entries.Size() + m_unsorted.size();
  }

  // False, with nothing changed, when the key is there. XKitFile when the write fails; nothing is
  // changed then either.
  bool Add(Entry entry) {
    const CSharedLocker guard(m_lock);
    Sort();
    std::byte payload[Traits::kFormat.PayloadSize()];
    Traits::Encode(entry, payload);
    // First what may lack memory: an entry is taken out again without any.
    entry.slot = m_file.NextSlot();
    if (!m_entries.Insert(entry)) return false;
    try {
      m_file.Put(payload);
    } catch (const std::exception&) {
      m_entries.Erase(m_entries.LowerBound(Traits::Of(entry)));
      throw;
    }
    return true;
  }

  // False when the key is not there.
  bool Remove(const Key& key) {
    const CSharedLocker guard(m_lock);
    Sort();
    const auto at = m_entries.LowerBound(key);
    if (m_entries.IsEnd(at) || key < Traits::Of(m_entries.At(at))) return false;
    m_file.Drop(m_entries.At(at).slot);
    m_entries.Erase(at);
    if (m_compacts && m_file.FreeSlots() > m_entries.Size()) Compact();
    return true;
  }

  std::optional<Entry> Find(const Key& key) const {
    const CSharedLocker guard(m_lock);
    Sort();
    const Entry* entry = m_entries.Find(key);
    return entry != nullptr ? std::optional<Entry>(*entry) : std::nullopt;
  }
  // As Find, for keys that are distinct and a caller that keeps all changes out. Takes no lock.
  const Entry* Peek(const Key& key) const {
    static_assert(Traits::kUnique);
    return m_entries.Find(key);
  }
  // The first entry whose key is not less.
  std::optional<Entry> LowerBound(const Key& key) const {
    const CSharedLocker guard(m_lock);
    Sort();
    const auto at = m_entries.LowerBound(key);
    return m_entries.IsEnd(at) ? std::nullopt : std::optional<Entry>(m_entries.At(at));
  }

  // Calls body with one entry after the other from the first whose key is not less, until it
  // answers false. The lock is held meanwhile.
  template <class Body>
  void From(const Key& key, Body body) const {
    const CSharedLocker guard(m_lock);
    Sort();
    auto at = m_entries.LowerBound(key);
    while (!m_entries.IsEnd(at) && body(m_entries.At(at))) at = m_entries.Next(at);
  }

  // The entry with the greatest key.
  std::optional<Entry> Last() const {
    const CSharedLocker guard(m_lock);
    Sort();
    return m_entries.Size() > 0 ? std::optional<Entry>(m_entries.Last()) : std::nullopt;
  }

  // Calls body with a function that tells whether a key is there: quick for keys in rising order.
  // The lock is held meanwhile.
  template <class Body>
  void Ask(Body body) const {
    const CSharedLocker guard(m_lock);
    Sort();
    auto at = m_entries.Begin();
    body([&](const Key& key) {
      const auto holds = [&] {
        return !m_entries.IsEnd(at) && !(key < Traits::Of(m_entries.At(at))) &&
               !(Traits::Of(m_entries.At(at)) < key);
      };
      if (!m_entries.IsEnd(at) && Traits::Of(m_entries.At(at)) < key) at = m_entries.Next(at);
      if (!holds()) at = m_entries.LowerBound(key);
      return holds();
    });
  }

  // Calls body with every entry; in key order, except where the entries of a map that is not unique
  // have not been asked for yet. The lock is held meanwhile.
  template <class Body>
  void ForEach(Body body) const {
    const CSharedLocker guard(m_lock);
    for (const Entry& entry : m_unsorted) body(entry);
    m_entries.ForEach(body);
  }

  void CheckInvariants() const {
    const CSharedLocker guard(m_lock);
    Sort();
    m_entries.CheckInvariants();
  }

 private:
  // Entries lie in the file in the order in which they were made: a few sequences of rising keys,
  // interleaved (links of folders and links of letters, say). Each is collected as it comes.
  struct Sequence {
    Entries entries;
    Key last{};
  };
  static constexpr std::size_t kDecodedAtOnce = 256;
  static constexpr std::size_t kMaxSequences = Traits::kUnique ? 16 : 1;

  void WriteGathered() override {
    const CSharedLocker guard(m_lock);
    m_file.WriteGathered();
  }

  void Load() {
    const CSharedLocker guard(m_lock);
    std::vector<Sequence> sequences;
    // Decoded some time before they are looked at: a processor waits when it loads at once what it
    // has just stored in other pieces, which took a quarter of an opening.
    std::array<Entry, kDecodedAtOnce> decoded;
    std::size_t count = 0;
    const auto take = [&] {
      for (std::size_t i = 0; i < count; ++i) {
        if (!Place(sequences, decoded[i])) KeepUnsorted(decoded[i]);
      }
      count = 0;
    };
    m_file.Load([&](const std::byte* payload, std::uint32_t slot) {
      Traits::Decode(payload, slot, decoded[count]);
      if (++count == decoded.size()) take();
    });
    take();
    for (Sequence& sequence : sequences) m_entries.Merge(std::move(sequence.entries));
    if constexpr (Traits::kUnique) {
      if (sequences.size() > 1) CheckDistinct();
      Sort();
    }
  }
  void KeepUnsorted(const Entry& entry) {
    if (m_unsorted.empty()) m_unsorted.reserve(m_file.Slots() - entry.slot);
    m_unsorted.push_back(entry);
  }
  // False when the entry continues none of the sequences and there are too many for one more.
  static bool Place(std::vector<Sequence>& sequences, const Entry& entry) {
    const Key key = Traits::Of(entry);
    auto place = std::find_if(sequences.begin(), sequences.end(),
                              [&](const Sequence& sequence) { return sequence.last < key; });
    if (place == sequences.end()) {
      if (sequences.size() == kMaxSequences) return false;
      place = sequences.emplace(place);
    }
    place->entries.PushBack(entry);
    place->last = key;
    return true;
  }
  void CheckDistinct() {
    const Entry* before = nullptr;
    m_entries.ForEach([&](const Entry& entry) {
      if (before != nullptr && !(Traits::Of(*before) < Traits::Of(entry))) Duplicate();
      before = &entry;
    });
  }

  // Merges what was loaded out of order.
  void Sort() const {
    if (m_unsorted.empty()) return;
    std::vector<Entry> all;
    all.reserve(m_entries.Size() + m_unsorted.size());
    m_entries.ForEach([&](const Entry& entry) { all.push_back(entry); });
    all.insert(all.end(), m_unsorted.begin(), m_unsorted.end());
    std::sort(all.begin(), all.end(),
              [](const Entry& a, const Entry& b) { return Traits::Of(a) < Traits::Of(b); });
    Entries sorted;
    for (const Entry& entry : all) {
      if (sorted.Size() > 0 && !(Traits::Of(sorted.Last()) < Traits::Of(entry))) Duplicate();
      sorted.PushBack(entry);
    }
    m_entries = std::move(sorted);
    m_unsorted = {};
  }
  [[noreturn]] void Duplicate() const {
    m_unsorted = {};
    m_entries.Clear();
    const std::string text =
        std::string(" ") + Traits::kFormat.kind + " %s detected duplicate key while loading";
    ReportAndThrow(m_file.Context(), text.c_str(), m_file.FileName(),
                   CMSDBException::kIndexInvalid);
  }

  // A failure leaves file and map at odds, so the store takes no further change; a repair rebuilds
  // the file.
  void Compact() {
    try {
      auto at = m_entries.Begin();
      m_file.Rewrite(m_entries.Size(), [&](std::byte* payload) {
        Traits::Encode(m_entries.At(at), payload);
        at = m_entries.Next(at);
      });
      std::uint32_t slot = 0;
      m_entries.ForEach([&](Entry& entry) { entry.slot = slot++; });
    } catch (const std::bad_alloc&) {
      // It can wait for the next removal.
    } catch (const XKitFile& error) {
      m_file.Context().durability.Refuse(error.what());
    }
  }

  mutable CSharedLock m_lock;
  CMSEntryFile m_file;
  const bool m_compacts;
  mutable Entries m_entries;
  mutable std::vector<Entry> m_unsorted;  // loaded, and part of no rising sequence
};
