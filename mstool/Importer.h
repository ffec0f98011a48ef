// Reads sources and puts their letters into a store.
#pragma once

#include <chrono>
#include <map>
#include <optional>

#include "LetterWriter.h"
#include "Open.h"
#include "Progress.h"
#include "SourceWalk.h"

namespace tool {

struct ImportCounts {
  std::uint64_t imported = 0;
  std::uint64_t refused = 0;
  std::uint64_t bytes = 0;
};

class Importer {
 public:
  // batch: letters per promise to the medium; 0 is one promise at the end.
  Importer(OpenStore& store, std::string storeName, const CMSFolder& target, std::uint64_t batch,
           std::uint64_t totalBytes);

  // Imports until the end, or until an interrupt; a refused letter is told on standard error.
  // What the store or its medium cannot do ends it with an exception. Whatever was imported
  // before is kept.
  void Run(const SourceList& list);
  void Commit() { m_batch.Commit(); }

  const ImportCounts& Counts() const { return m_counts; }
  const WriteCounts& Texts() const { return m_writer.Counts(); }
  double Seconds() const { return m_progress.Seconds(); }

 private:
  void ImportFile(const SourceFile& file);
  void ImportMbox(const SourceFile& file, std::istream& in);
  void ImportLetter(const SourceFile& file, std::string_view bytes, std::uint64_t offset);
  CMSFolder& FolderFor(const std::vector<std::string>& path);
  void Refuse(const SourceFile& file, std::uint64_t offset, const std::string& cause);

  std::string m_storeName;
  CMSFolder m_target;
  std::map<std::vector<std::string>, CMSFolder> m_folders;
  std::uint64_t m_batchSize;
  CMSBatch m_batch;
  LetterWriter m_writer;
  Progress m_progress;
  ImportCounts m_counts;
};

}  // namespace tool
