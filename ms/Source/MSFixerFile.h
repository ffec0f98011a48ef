// One record file, read and written directly, slot by slot.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Format.h"
#include "MSFixer.h"
#include "kit/KitErrors.h"
#include "kit/KitFile.h"

namespace MSF {

// The head of a slot: the container's own, and the first field of every record.
struct CSlotHead {
  CMSContainerHead head;
  LittleU32 parent;
};
static_assert(sizeof(CSlotHead) == 16);

// The record in the bytes of a slot.
template <class T>
T RecordIn(const std::byte* slot) {
  T record;
  std::memcpy(&record, slot + sizeof(CMSContainerHead), sizeof record);
  return record;
}

template <class T>
void PutRecord(std::byte* slot, const T& record) {
  std::memcpy(slot + sizeof(CMSContainerHead), &record, sizeof record);
}

// Slots lie behind a header of 48 bytes, which is all that a repair accepts. What is behind the
// last whole slot counts for nothing. XKitFile when reading or writing fails.
class CMSDBFile {
 public:
  CMSDBFile(EObjectType type, std::uint32_t recordSize) : m_type(type), m_recordSize(recordSize) {}

  EObjectType Type() const { return m_type; }
  // Opened for this process alone; made when it is not there, never emptied.
  void Open(const std::string& path);
  // Once everything written has reached the medium.
  void Close();
  void Discard() { m_file.reset(); }
  const std::string& Path() const { return m_path; }
  // Whether anything was written since it was opened.
  bool IsChanged() const { return m_isChanged; }

  std::uint32_t RecordSize() const { return m_recordSize; }
  std::uint32_t SlotSize() const {
    return static_cast<std::uint32_t>(sizeof(CMSContainerHead)) + m_recordSize;
  }
  std::uint64_t Length() { return m_file->Length(); }
  std::uint32_t SlotCount();
  CMSFileHeader ReadHeader();
  void WriteHeader(const CMSFileHeader& header);
  // Appends zeroed slots.
  void Grow(std::uint32_t slots);
  // Cuts off what is no whole slot.
  void Trim();

  // The record alone, without its head.
  void ReadRecord(std::uint32_t slot, void* record);
  void WriteRecord(std::uint32_t slot, const void* record);
  void WriteHead(std::uint32_t slot, const CMSContainerHead& head);

  // Calls body(slot, bytes) with every slot in order, head and record. Where it answers true it has
  // changed the bytes, and they are written back.
  template <class Body>
  void ForEachSlot(Body body);

 private:
  std::uint64_t OffsetOf(std::uint32_t slot) const {
    return sizeof(CMSFileHeader) + std::uint64_t{slot} * SlotSize();
  }

  const EObjectType m_type;
  const std::uint32_t m_recordSize;
  std::string m_path;
  std::unique_ptr<CKitFile> m_file;
  bool m_isChanged = false;
};

template <class Body>
void CMSDBFile::ForEachSlot(Body body) {
  constexpr std::size_t kBlockBytes = 1 << 20;
  const std::uint32_t count = SlotCount();
  const auto perBlock =
      std::min(static_cast<std::uint32_t>(kBlockBytes / SlotSize()), std::max(count, 1U));
  std::vector<std::byte> block(std::size_t{perBlock} * SlotSize());
  for (std::uint32_t first = 0; first < count; first += perBlock) {
    const std::uint32_t slots = std::min(perBlock, count - first);
    const std::size_t bytes = std::size_t{slots} * SlotSize();
    if (m_file->Read(OffsetOf(first), block.data(), bytes) != bytes)
      throw XKitFile(XKitFile::Cause::Io, 0, m_path, "'" + m_path + "' became shorter");
    bool changed = false;
    for (std::uint32_t i = 0; i < slots; ++i)
      if (body(first + i, block.data() + std::size_t{i} * SlotSize())) changed = true;
    if (!changed) continue;
    m_isChanged = true;
    m_file->Write(OffsetOf(first), block.data(), bytes);
  }
}

}  // namespace MSF
