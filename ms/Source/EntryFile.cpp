#include "EntryFile.h"

#include <cstring>
#include <utility>

#include "Errors.h"
#include "OpenFile.h"
#include "kit/KitFile.h"
#include "kit/KitString.h"

namespace {

struct Header {
  LittleU32 signature;
  LittleU32 version;
  LittleU32 keySize;
  LittleU32 valueSize;
};
static_assert(sizeof(Header) == 16);

}  // namespace

CMSEntryFile::CMSEntryFile(const CMSEngineContext& context, const std::string& directory,
                           const std::string& name, const CMSEntryFormat& format)
    : m_context(context),
      m_format(format),
      m_fileName(CKitFile::Join(directory, name + format.extension)) {
  Open(directory);
  if (IsValid()) return;
  platform::FileInfo info;
  KitCheck(m_file->GetInfo(info), "examine", m_fileName);
  if (info.length == 0 && !m_context.readOnly) {
    CreateHeader();
    return;
  }
  const std::string text = std::string(" ") + m_format.kind + " %s has wrong file header";
  ReportAndThrow(m_context, text.c_str(), m_fileName, CMSDBException::kIndexInvalid);
}

void CMSEntryFile::Open(const std::string& directory) {
  m_file = OpenStoreFile(m_context, m_fileName);
  m_target = std::make_unique<CMSFileTarget>(m_context.durability, m_fileName, *m_file);
  if (!m_context.readOnly) m_context.durability.DirectoryChanged(directory);
}

bool CMSEntryFile::IsValid() {
  platform::FileInfo info;
  KitCheck(m_file->GetInfo(info), "examine", m_fileName);
  const std::uint32_t size = m_format.HeaderSize();
  if (info.length < size || (info.length - size) % m_format.EntrySize() != 0) return false;
  const std::uint64_t slots = (info.length - size) / m_format.EntrySize();
  if (slots >= kNoContainer) return false;
  Header header;
  std::size_t done = 0;
  // A medium that cannot be read says nothing of what is on it.
  KitCheck(m_file->Read(0, &header, size, done), "read", m_fileName);
  if (done != size) return false;
  m_slots = m_ready = static_cast<std::uint32_t>(slots);
  return header.signature == m_format.signature && header.version <= kEntryVersion &&
         header.keySize == m_format.keySize &&
         (m_format.valueSize == 0 || header.valueSize == m_format.valueSize);
}

void CMSEntryFile::CreateHeader() {
  const Header header{m_format.signature, kEntryVersion, m_format.keySize, m_format.valueSize};
  try {
    WriteAt(0, &header, m_format.HeaderSize());
  } catch (const XKitFile&) {
    // An empty file can be begun again, a piece of a header cannot.
    KitCheck(m_file->Truncate(0), "truncate", m_fileName);
    throw;
  }
  Cut(0);
}

void CMSEntryFile::WriteAt(std::uint64_t offset, const void* data, std::size_t size) {
  std::size_t done = 0;
  KitCheck(m_file->Write(offset, data, size, done), "write to", m_fileName);
  m_target->Written(CMSSyncTarget::Kind::Derived);
}

std::uint32_t CMSEntryFile::Put(const std::byte* payload) {
  m_context.CheckWritable(m_fileName);
  const std::uint32_t slot = NextSlot();
  std::byte entry[32];
  entry[0] = std::byte{kEntryLive};
  std::memcpy(entry + 1, payload, m_format.PayloadSize());
  const std::span bytes(entry, m_format.EntrySize());
  if (m_context.durability.GathersNow() && ++m_putInBatch > kFew)
    Gather(slot, bytes);
  else
    WriteEntry(slot, bytes);
  if (m_free.empty())
    ++m_slots;
  else
    m_free.pop_front();
  return slot;
}

void CMSEntryFile::WriteEntry(std::uint32_t slot, std::span<const std::byte> entry) {
  WriteRun();
  try {
    WriteAt(OffsetOf(slot), entry.data(), entry.size());
  } catch (const XKitFile&) {
    UndoPut(slot);
    throw;
  }
  m_ready = std::max(m_ready, slot + 1);
}

void CMSEntryFile::Gather(std::uint32_t slot, std::span<const std::byte> entry) {
  const std::size_t gathered = m_run.size() / m_format.EntrySize();
  if (slot != m_runBegin + gathered || gathered >= kMostReady) WriteRun();
  MakeReady(slot);
  if (m_run.empty()) m_runBegin = slot;
  m_run.insert(m_run.end(), entry.begin(), entry.end());
}

void CMSEntryFile::MakeReady(std::uint32_t slot) {
  if (slot < m_ready) return;
  std::vector<std::byte> block(m_nextReady * m_format.EntrySize());
  for (std::size_t at = 0; at < block.size(); at += m_format.EntrySize())
    block[at] = std::byte{kEntryDeleted};
  try {
    WriteAt(OffsetOf(slot), block.data(), block.size());
  } catch (const XKitFile&) {
    UndoPut(slot);
    throw;
  }
  m_ready = slot + m_nextReady;
  m_nextReady = std::min(2 * m_nextReady, kMostReady);
}

// What waits was promised to nobody, but its objects are in use by now.
void CMSEntryFile::WriteRun() {
  if (m_run.empty()) return;
  const std::vector<std::byte> run = std::exchange(m_run, {});
  try {
    WriteAt(OffsetOf(m_runBegin), run.data(), run.size());
  } catch (const XKitFile& error) {
    m_context.durability.Refuse(error.what());
    throw;
  }
}

void CMSEntryFile::WriteGathered() {
  WriteRun();
  m_putInBatch = 0;
  m_nextReady = kFirstReady;
  if (m_ready > m_slots) Cut(m_slots);
}

// A write that failed may have left the first bytes of an entry. They must not be taken for one, so
// the slot is cut off or marked again; when even that fails, the file is refused at the next
// opening and a repair rebuilds it.
void CMSEntryFile::UndoPut(std::uint32_t slot) {
  if (slot != m_slots) return MarkAgain(slot, kEntryDeleted);
  const platform::Status status = m_file->Truncate(OffsetOf(slot));
  m_ready = slot;
  if (!status.Ok()) CannotUndo(status);
}

// Gives a slot the state back that a failed write may have changed.
void CMSEntryFile::MarkAgain(std::uint32_t slot, unsigned char state) {
  std::size_t done = 0;
  const platform::Status status = m_file->Write(OffsetOf(slot), &state, 1, done);
  if (!status.Ok()) CannotUndo(status);
}

void CMSEntryFile::CannotUndo(const platform::Status& status) {
  m_context.durability.Refuse("cannot undo a write to '" + m_fileName + "': " + status.Text());
  const std::string text = std::string(" ") + m_format.kind + " %s could not be restored";
  ReportCorruption(m_context, text.c_str(), m_fileName);
}

void CMSEntryFile::Drop(std::uint32_t slot) {
  m_context.CheckWritable(m_fileName);
  // A link that replaces another one stands in the file before that goes.
  WriteRun();
  const unsigned char deleted = kEntryDeleted;
  m_free.push_back(slot);
  try {
    WriteAt(OffsetOf(slot), &deleted, 1);
  } catch (const XKitFile&) {
    m_free.pop_back();
    MarkAgain(slot, kEntryLive);
    throw;
  }
}

std::size_t CMSEntryFile::ReadBlock(std::uint32_t slot, std::vector<std::byte>& block) {
  std::size_t done = 0;
  KitCheck(m_file->Read(OffsetOf(slot), block.data(), block.size(), done), "read", m_fileName);
  return done / m_format.EntrySize();
}

void CMSEntryFile::WriteBlock(std::uint32_t slot, const std::vector<std::byte>& block) {
  WriteAt(OffsetOf(slot), block.data(), block.size());
}

void CMSEntryFile::Cut(std::uint32_t slots) {
  KitCheck(m_file->Truncate(OffsetOf(slots)), "truncate", m_fileName);
  m_target->Written(CMSSyncTarget::Kind::Derived);
  m_slots = m_ready = slots;
}
