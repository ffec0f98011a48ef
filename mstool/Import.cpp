// import: letters from files and directories.
#include <gmime/gmime.h>
#include <ms/Roles.h>

#include <iostream>

#include "CommandLine.h"
#include "Failure.h"
#include "Importer.h"
#include "Interrupt.h"
#include "Lookup.h"
#include "Output.h"
#include "Text.h"

namespace tool {
namespace {

constexpr std::uint64_t kDefaultBatch = 100;

constexpr const char* kRules =
    "Each SOURCE is an mbox file, a letter (.eml), a Maildir, or a directory tree of them.\n"
    "The contents of a directory land in the target folder itself, its directories as "
    "sub-folders.\n"
    "A Maildir is one folder (cur and new are none, tmp is passed over); an mbox, also one named\n"
    "alone, is a sub-folder named after it without .mbox. Other files in a tree are skipped.\n"
    "Folders that are there already are used again; nothing is imported \"only once\".\n\n"
    "Read are letters with the Maildir flag S or with R in the Status field of an mbox; deleted\n"
    "those with T, or with D. Texts too long for a field are cut at a character and counted\n"
    "(of the sender's address a store keeps 16 bytes, which is not counted). What holds no letter\n"
    "is refused and listed; then the exit code is 2. Ctrl-C ends after the letter at hand, with\n"
    "exit code 130.";

// The mail library, from the first use to the last.
class MailLibrary {
 public:
  MailLibrary() { g_mime_init(); }
  ~MailLibrary() { g_mime_shutdown(); }
  MailLibrary(const MailLibrary&) = delete;
  MailLibrary& operator=(const MailLibrary&) = delete;
};

struct Options {
  std::vector<std::string> sources;
  std::string into;
  std::uint64_t batch = kDefaultBatch;
  bool verbose = false;
};

SourceList FindSources(const std::string& directory, const Options& options) {
  SourceList list;
  for (const std::string& source : options.sources) {
    std::error_code error;
    if (!std::filesystem::exists(source, error)) {
      throw Failure(kExitCannotAccess, "cannot read " + source + ": there is nothing of that name");
    }
    AddSource(source, directory, list);
  }
  return list;
}

CMSFolder Target(CMSMessageStore& store, const Options& options) {
  if (options.into.empty()) {
    CMSFolder inbox = FolderOfRole(store, MSF::kRoleInbox);
    CMSFolder root = store.Root();
    return inbox ? inbox : SubFolder(root, "INBOX");
  }
  CMSFolder folder = LookForFolder(store, options.into);
  if (folder) return folder;
  folder = store.Root();
  for (const std::string& name : PathComponents(options.into)) folder = SubFolder(folder, name);
  return folder;
}

void PrintSummary(const Importer& importer, const SourceList& list) {
  const ImportCounts& counts = importer.Counts();
  const double seconds = importer.Seconds();
  using enum Table::Align;
  Table table({Right, Left});
  const auto row = [&](std::uint64_t count, const char* what) {
    table.Row({std::to_string(count), what});
  };
  row(counts.imported, "letters imported");
  row(counts.refused, "refused");
  row(list.skipped.size(), "files without letters skipped");
  row(importer.Texts().cutTexts, "texts cut");
  row(importer.Texts().undated, "letters without a usable date");
  table.Print();
  Print(KitFormat("%s in %.1f s, %.0f letters/s", SizeText(counts.bytes).c_str(), seconds,
                  static_cast<double>(counts.imported) / std::max(seconds, 0.001)));
  FlushOutput();
}

int Import(const std::string& directory, const Options& options) {
  const MailLibrary library;
  OpenStore store(directory, Purpose::Write);
  const SourceList list = FindSources(directory, options);
  if (options.verbose) {
    for (const auto& path : list.skipped) {
      std::cerr << "skipped " << Visible(path.string()) << '\n';
    }
  }
  Importer importer(store, directory, Target(*store, options), options.batch, list.bytes);
  try {
    importer.Run(list);
    importer.Commit();
  } catch (const std::exception& error) {
    PrintSummary(importer, list);
    const Failure failure = Explain(error);
    throw Failure(failure.ExitCode() == kExitUsage ? kExitCannotAccess : failure.ExitCode(),
                  std::string("the import ended early: ") + failure.what());
  }
  PrintSummary(importer, list);
  StopIfInterrupted();
  return importer.Counts().refused == 0 ? kExitDone : kExitDamaged;
}

}  // namespace

void AddImport(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add("import", "Import letters from mbox files, Maildirs and .eml files",
                             [&line, options] { return Import(line.store, *options); });
  command.Words("SOURCE", options->sources, "Files and directories");
  command.Option("--into", "PATH", options->into,
                 "Target folder instead of INBOX; made when missing");
  command.Option("--batch", "N", options->batch,
                 "Letters per promise to the medium (100); 0: one promise at the end");
  command.Flag("-v,--verbose", options->verbose, "List the files that were skipped");
  command.Footer(kRules);
}

}  // namespace tool
