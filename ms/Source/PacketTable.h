// Transport packet names: which recipients bear a name.
#pragma once

#include <array>
#include <compare>
#include <cstring>
#include <optional>
#include <string>

#include "MultiIndex.h"

// At most 12 characters and a terminating zero; compared byte for byte, as text.
class CPacketName {
 public:
  static constexpr std::size_t kLength = 12;

  CPacketName() = default;
  // Cuts a longer name, and logs that it did.
  explicit CPacketName(const std::string& name);
  // The same without a word, for a name that has been given before.
  static CPacketName Known(const std::string& name);

  const char* c_str() const { return m_name.data(); }
  bool operator==(const CPacketName&) const = default;
  // Byte for byte; the first eight at once, since opening sorts many names.
  std::strong_ordering operator<=>(const CPacketName& other) const {
    if (const auto order = Head() <=> other.Head(); order != 0) return order;
    return std::memcmp(m_name.data() + 8, other.m_name.data() + 8, kLength - 8) <=> 0;
  }

 private:
  friend struct CPacketNameCodec;
  std::uint64_t Head() const {
    // Written out, it becomes one load.
    const auto at = [this](std::size_t i) {
      return std::uint64_t{static_cast<unsigned char>(m_name[i])};
    };
    return at(0) << 56 | at(1) << 48 | at(2) << 40 | at(3) << 32 | at(4) << 24 | at(5) << 16 |
           at(6) << 8 | at(7);
  }
  // What a damaged file holds behind the end of a name is no part of it.
  void ClearBehindEnd();

  std::array<char, kLength + 1> m_name{};
};

struct CPacketNameCodec {
  static constexpr CMSEntryFormat kFormat = kPacketFormat;
  static void Decode(const std::byte* payload, CPacketName& name) {
    std::memcpy(name.m_name.data(), payload, CPacketName::kLength);
    if (std::memchr(payload, 0, CPacketName::kLength) != nullptr) name.ClearBehindEnd();
  }
  static void Encode(const CPacketName& name, std::byte* payload);
};

// The values are recipient IDs. An empty name has no entry.
class CMSPacketTable {
 public:
  CMSPacketTable(const CMSEngineContext& context, const std::string& directory,
                 const std::string& name)
      : m_index(context, directory, name) {}

  void Add(const std::string& name, std::uint32_t recipient);
  bool Remove(const std::string& name, std::uint32_t recipient);
  // The least recipient ID, not less than from, that bears the name.
  std::optional<std::uint32_t> Find(const CPacketName& name, std::uint32_t from) const {
    return m_index.Find(name, from);
  }
  std::size_t Size() const { return m_index.Size(); }

  // Drops every entry whose recipient is not in the index given. Reads no record.
  void DropEntriesWithoutRecipient(const class CMSIndex& recipients);

  template <class Body>
  void ForEach(Body body) const {
    m_index.ForEach(body);
  }
  void CheckInvariants() const { m_index.CheckInvariants(); }

 private:
  CMSMultiIndex<CPacketName, CPacketNameCodec> m_index;
};
