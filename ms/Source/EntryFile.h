// The file side of key index, relations set and packet table: a header, then entries of one size
// that are written, marked deleted and reused, oldest first.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "EngineContext.h"
#include "EntryFormat.h"
#include "platform/File.h"

// Entries are named by slot: their number in the file, from 0. Not locked: the owner's lock guards
// it.
class CMSEntryFile {
 public:
  // Opens "<directory>/<name><extension>", creating it in a writable context; an empty file gets
  // its header. CMSDBException 17 when it cannot be opened; 22, after a report, when it is no such
  // file.
  CMSEntryFile(const CMSEngineContext& context, const std::string& directory,
               const std::string& name, const CMSEntryFormat& format);

  const std::string& FileName() const { return m_fileName; }
  const CMSEngineContext& Context() const { return m_context; }

  // Calls live(payload, slot) for every live entry, in file order, and collects the free slots.
  template <class Live>
  void Load(Live live);

  // Writes an entry into the oldest free slot, or at the end; answers the slot. XKitFile when that
  // fails: the file then holds what it held before.
  //
  // In a batch, from the ninth on, the entries of successive slots are gathered, while the file
  // gets deleted entries in their place: a full disk shows at once, and a process that dies leaves
  // free slots.
  std::uint32_t Put(const std::byte* payload);
  // The one that the next Put will take.
  std::uint32_t NextSlot() const { return m_free.empty() ? m_slots : m_free.front(); }
  // Marks the entry deleted. XKitFile when that fails; it is then still live.
  void Drop(std::uint32_t slot);
  // Writes what is gathered, and cuts off what was made ready for more. XKitFile when that fails:
  // the store then takes no further change.
  void WriteGathered();

  // Entries in the file, live or not.
  std::uint32_t Slots() const { return m_slots; }
  std::size_t FreeSlots() const { return m_free.size(); }

  // Writes all live entries anew, packed from slot 0, and cuts the file behind them. next(payload)
  // is called count times for the entries in their new order. Nothing has happened when there is
  // not memory enough.
  template <class Next>
  void Rewrite(std::size_t count, Next next);

 private:
  static constexpr std::size_t kBlockEntries = 2048;
  static constexpr unsigned kFew = 8;  // cost less if written one by one
  // By how many entries the file is made ready for what is gathered: at first, and at most.
  static constexpr std::uint32_t kFirstReady = 64;
  static constexpr std::uint32_t kMostReady = 4096;

  void Open(const std::string& directory);
  bool IsValid();
  void CreateHeader();
  void WriteAt(std::uint64_t offset, const void* data, std::size_t size);
  void WriteEntry(std::uint32_t slot, std::span<const std::byte> entry);
  void Gather(std::uint32_t slot, std::span<const std::byte> entry);
  void MakeReady(std::uint32_t slot);
  void WriteRun();
  std::size_t ReadBlock(std::uint32_t slot, std::vector<std::byte>& block);
  void WriteBlock(std::uint32_t slot, const std::vector<std::byte>& block);
  void Cut(std::uint32_t slots);
  void UndoPut(std::uint32_t slot);
  void MarkAgain(std::uint32_t slot, unsigned char state);
  void CannotUndo(const platform::Status& status);
  std::uint64_t OffsetOf(std::uint32_t slot) const {
    return m_format.HeaderSize() + std::uint64_t{slot} * m_format.EntrySize();
  }

  const CMSEngineContext m_context;
  const CMSEntryFormat m_format;
  const std::string m_fileName;
  std::unique_ptr<platform::File> m_file;
  std::unique_ptr<CMSFileTarget> m_target;
  std::uint32_t m_slots = 0;         // entries in the file, live or not
  std::deque<std::uint32_t> m_free;  // oldest first; empty when the context is read-only
  std::vector<std::byte> m_run;      // gathered entries, of successive slots
  std::uint32_t m_runBegin = 0;      // the slot of the first of them
  std::uint32_t m_ready = 0;         // up to this slot the file has bytes
  std::uint32_t m_nextReady = kFirstReady;
  unsigned m_putInBatch = 0;
};

template <class Live>
void CMSEntryFile::Load(Live live) {
  m_free.clear();
  std::vector<std::byte> block(kBlockEntries * m_format.EntrySize());
  const std::size_t size = m_format.EntrySize();
  std::uint32_t slot = 0;
  while (const std::size_t count = ReadBlock(slot, block)) {
    const std::byte* entry = block.data();
    for (const std::byte* end = entry + count * size; entry != end; entry += size, ++slot) {
      if (std::to_integer<unsigned char>(*entry) == kEntryLive)
        live(entry + 1, slot);
      else if (!m_context.readOnly)
        m_free.push_back(slot);
    }
  }
}

template <class Next>
void CMSEntryFile::Rewrite(std::size_t count, Next next) {
  const std::size_t size = m_format.EntrySize();
  std::vector<std::byte> block;
  block.reserve(std::min(count, kBlockEntries) * size);  // all that is asked for
  m_run.clear();
  m_free.clear();
  std::uint32_t slot = 0;
  while (count > 0) {
    const std::size_t part = count < kBlockEntries ? count : kBlockEntries;
    block.assign(part * size, std::byte{kEntryLive});
    for (std::size_t i = 0; i < part; ++i) next(block.data() + i * size + 1);
    WriteBlock(slot, block);
    slot += static_cast<std::uint32_t>(part);
    count -= part;
  }
  Cut(slot);
}
