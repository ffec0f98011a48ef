#include "MSFixerFile.h"

namespace MSF {

void CMSDBFile::Open(const std::string& path) {
  m_path = path;
  m_file = std::make_unique<CKitFile>(
      path, platform::OpenOptions{platform::Access::ReadWrite, platform::Disposition::OpenOrCreate,
                                  platform::Sharing::ReadOnly});
}

void CMSDBFile::Close() {
  if (m_file == nullptr) return;
  const std::unique_ptr<CKitFile> file = std::move(m_file);
  file->Sync();
}

std::uint32_t CMSDBFile::SlotCount() {
  const std::uint64_t length = Length();
  if (length < sizeof(CMSFileHeader)) return 0;
  const std::uint64_t slots = (length - sizeof(CMSFileHeader)) / SlotSize();
  return slots < kNoContainer ? static_cast<std::uint32_t>(slots) : kNoContainer;
}

CMSFileHeader CMSDBFile::ReadHeader() {
  CMSFileHeader header;
  if (m_file->Read(0, &header, sizeof header) != sizeof header)
    throw XKitFile(XKitFile::Cause::Io, 0, m_path, "'" + m_path + "' has no header");
  return header;
}

void CMSDBFile::WriteHeader(const CMSFileHeader& header) {
  m_isChanged = true;
  m_file->Write(0, &header, sizeof header);
}

void CMSDBFile::Grow(std::uint32_t slots) {
  Trim();
  m_isChanged = true;
  const std::vector<std::byte> zeros(SlotSize());
  for (std::uint32_t i = 0; i < slots; ++i) m_file->Append(zeros.data(), zeros.size());
}

void CMSDBFile::Trim() {
  const std::uint64_t end = OffsetOf(SlotCount());
  if (Length() <= end) return;
  m_isChanged = true;
  m_file->Truncate(end);
}

void CMSDBFile::ReadRecord(std::uint32_t slot, void* record) {
  if (m_file->Read(OffsetOf(slot) + sizeof(CMSContainerHead), record, m_recordSize) != m_recordSize)
    throw XKitFile(XKitFile::Cause::Io, 0, m_path, "'" + m_path + "' became shorter");
}

void CMSDBFile::WriteRecord(std::uint32_t slot, const void* record) {
  m_isChanged = true;
  m_file->Write(OffsetOf(slot) + sizeof(CMSContainerHead), record, m_recordSize);
}

void CMSDBFile::WriteHead(std::uint32_t slot, const CMSContainerHead& head) {
  m_isChanged = true;
  m_file->Write(OffsetOf(slot), &head, sizeof head);
}

}  // namespace MSF
