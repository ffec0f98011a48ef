#include "PacketTable.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "Index.h"
#include "kit/KitString.h"
#include "kit/LogDispatcher.h"

CPacketName::CPacketName(const std::string& name) {
  *this = Known(name);
  if (name.size() <= kLength) return;
  const std::string text =
      KitFormat("Unexpected packetname %s. Truncated to %s", name.c_str(), c_str());
  LogEvent(severity::Repaired, text.c_str(), "PacketTable", 23);
}

CPacketName CPacketName::Known(const std::string& name) {
  CPacketName known;
  std::memcpy(known.m_name.data(), name.data(), std::min(name.size(), kLength));
  return known;
}

void CPacketName::ClearBehindEnd() {
  std::fill(std::find(m_name.begin(), m_name.end(), 0), m_name.end(), 0);
}

void CPacketNameCodec::Encode(const CPacketName& name, std::byte* payload) {
  std::memcpy(payload, name.m_name.data(), name.m_name.size());
}

void CMSPacketTable::Add(const std::string& name, std::uint32_t recipient) {
  if (!name.empty()) m_index.Add(CPacketName(name), recipient);
}

bool CMSPacketTable::Remove(const std::string& name, std::uint32_t recipient) {
  return !name.empty() && m_index.Remove(CPacketName::Known(name), recipient);
}

void CMSPacketTable::DropEntriesWithoutRecipient(const CMSIndex& recipients) {
  std::vector<std::pair<CPacketName, std::uint32_t>> lost;
  recipients.Ask([&](const auto& isKnown) {
    m_index.ForEach([&](const CPacketName& name, std::uint32_t recipient) {
      if (!isKnown(recipient)) lost.emplace_back(name, recipient);
    });
  });
  for (const auto& [name, recipient] : lost) m_index.Remove(name, recipient);
}
