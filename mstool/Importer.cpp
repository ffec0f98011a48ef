#include "Importer.h"

#include <fstream>
#include <iostream>
#include <iterator>

#include "Failure.h"
#include "Interrupt.h"
#include "Lookup.h"
#include "Mbox.h"
#include "Text.h"

namespace tool {
namespace {

constexpr std::size_t kFolderName = 200;

LetterState StateOf(const SourceFile& file, const Mail& mail) {
  const bool mbox = file.kind == SourceKind::Mbox;
  const auto has = [](const std::string& flags, char flag) {
    return flags.find(flag) != flags.npos;
  };
  return {has(file.flags, 'S') || (mbox && has(mail.status, 'R')),
          has(file.flags, 'T') || (mbox && has(mail.status, 'D'))};
}

}  // namespace

Importer::Importer(OpenStore& store, std::string storeName, const CMSFolder& target,
                   std::uint64_t batch, std::uint64_t totalBytes)
    : m_storeName(std::move(storeName)),
      m_target(target),
      m_batchSize(batch),
      m_batch(*store),
      m_progress(totalBytes) {}

void Importer::Run(const SourceList& list) {
  for (const auto& path : list.unreadable) {
    Refuse({path, SourceKind::Letter, 0, {}, "", false}, 0, "the directory cannot be read");
  }
  for (const SourceFile& file : list.files) {
    if (Interrupted()) break;
    ImportFile(file);
  }
  m_progress.Hide();
}

void Importer::ImportFile(const SourceFile& file) {
  std::ifstream in(file.path, std::ios::binary);
  if (!in) {
    Refuse(file, 0, "the file cannot be read");
    return;
  }
  if (file.kind == SourceKind::Mbox) {
    ImportMbox(file, in);
    return;
  }
  const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  ImportLetter(file, bytes, 0);
}

void Importer::ImportMbox(const SourceFile& file, std::istream& in) {
  MboxReader reader(in);
  std::string letter;
  std::uint64_t offset = 0;
  while (!Interrupted() && reader.Next(letter, offset)) ImportLetter(file, letter, offset);
}

void Importer::ImportLetter(const SourceFile& file, std::string_view bytes, std::uint64_t offset) {
  m_counts.bytes += bytes.size();
  try {
    const Mail mail = ReadMail(bytes);
    m_writer.Write(FolderFor(file.folder), mail, StateOf(file, mail));
    ++m_counts.imported;
  } catch (const NotALetter& error) {
    Refuse(file, offset, error.what());
  } catch (const XKitStatus& error) {
    if (error.Code() != kit::kStatusInvalidArgument) throw;
    Refuse(file, offset, error.what());
  }
  if (m_batchSize != 0 && m_counts.imported % m_batchSize == 0) m_batch.Commit();
  m_progress.Show(m_counts.imported, m_counts.bytes);
}

CMSFolder& Importer::FolderFor(const std::vector<std::string>& path) {
  const auto known = m_folders.find(path);
  if (known != m_folders.end()) return known->second;
  CMSFolder folder = m_target;
  if (!path.empty()) {
    CMSFolder& parent = FolderFor({path.begin(), path.end() - 1});
    folder = SubFolder(parent, m_writer.Fit(path.back(), kFolderName));
  }
  return m_folders.emplace(path, std::move(folder)).first->second;
}

void Importer::Refuse(const SourceFile& file, std::uint64_t offset, const std::string& cause) {
  ++m_counts.refused;
  m_progress.Hide();
  std::cerr << "mstool: " << Visible(m_storeName) << ": refused " << Visible(file.path.string())
            << ", offset " << offset << ": " << Visible(cause) << '\n';
}

}  // namespace tool
