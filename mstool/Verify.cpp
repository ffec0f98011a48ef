// verify: whether a backup holds what its store holds.
#include <algorithm>
#include <map>
#include <unordered_set>
#include <vector>

#include "CommandLine.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Lookup.h"
#include "Open.h"
#include "StoreScan.h"
#include "VerifyReport.h"

namespace tool {
namespace {

constexpr const char* kRules =
    "Compares the folders (path, type, properties) and the letters: every field, the stored key,\n"
    "recipients, attachments and the checksums of their files; all but numbers and places on the\n"
    "disk. A letter without an equal partner is compared with the likeliest one, and each field\n"
    "that differs gets a line. What only TARGET holds was deleted in STORE since, and is counted\n"
    "but no difference without --exact. The exit code is 0 without differences, 2 with any.\n"
    "STORE and TARGET are only read; nothing that backup wrote down about them is used.";

struct Options {
  std::string target;
  std::string folder;
  bool exact = false;
  bool json = false;
};

constexpr const char* kStore = "STORE";
constexpr const char* kTarget = "TARGET";

// The folder of the store with the same names on the way from the root. What is lost, or lies in a
// circle, has no such way.
CMSFolder SamePlace(const CMSFolder& folder, CMSMessageStore& store) {
  std::vector<CKitString> names;
  std::unordered_set<unsigned long> passed;
  for (CMSFolder at = folder; at && !at.IsRoot(); at = at.Parent()) {
    if (!passed.insert(at.ID()).second) return {};
    names.push_back(at.Name());
  }
  CMSFolder place = store.Root();
  for (auto name = names.rbegin(); name != names.rend() && place; ++name) {
    place = place.OpenFolder(*name);
  }
  return place;
}

VerifySubject SubjectOf(const CMSDocument& letter) {
  return {LabelOf(letter),
          {{"letter", letter.ID()},
           {"folder", PathOf(letter.Parent())},
           {"subject", letter.Name().str()}}};
}

VerifySubject SubjectOf(const CMSFolder& folder) {
  return {"folder " + PathOf(folder), {{"folder", PathOf(folder)}}};
}

class Verifier {
 public:
  Verifier(CMSMessageStore& store, CMSMessageStore& target, const Options& options)
      : m_store(store), m_target(target), m_options(options) {}

  int Run() {
    const CMSFolder folder =
        m_options.folder.empty() ? m_store.Root() : FindFolder(m_store, m_options.folder);
    const CMSFolder partner = SamePlace(folder, m_target);
    StoreScanner scanner(CountLetters(folder) + (partner.IsValid() ? CountLetters(partner) : 0));
    const StoreContents store = scanner.Scan(folder);
    const StoreContents target = partner.IsValid() ? scanner.Scan(partner) : StoreContents();
    scanner.Hide();

    VerifyReport report(m_options.json);
    CompareFolders(store, target, report);
    CompareLetters(store, target, report);
    TellMissing(m_store, store, kStore, report);
    TellMissing(m_target, target, kTarget, report);
    report.End(m_counts, scanner.Seconds());
    return report.Differences() == 0 ? kExitDone : kExitDamaged;
  }

 private:
  // Folders of one parent may share a name; they are taken in the order of their numbers.
  void CompareFolders(const StoreContents& store, const StoreContents& target,
                      VerifyReport& report) {
    std::map<std::uint32_t, std::vector<std::uint32_t>> partners;
    for (std::size_t n = target.folders.size(); n-- > 0;) {
      partners[target.folders[n].path].push_back(target.folders[n].id);
    }
    for (const FolderRecord& record : store.folders) {
      const CMSFolder folder = m_store.GetFolder(record.id);
      std::vector<std::uint32_t>& ids = partners[record.path];
      if (ids.empty()) {
        ++m_counts.foldersNotInTarget;
        report.IsNotIn(SubjectOf(folder), kTarget);
        continue;
      }
      CompareFolder(folder, m_target.GetFolder(ids.back()), report);
      ids.pop_back();
    }
    for (const FolderRecord& record : target.folders) {
      const std::vector<std::uint32_t>& ids = partners[record.path];
      if (std::find(ids.begin(), ids.end(), record.id) == ids.end()) continue;
      ++m_counts.foldersOnlyInTarget;
      if (m_options.exact) report.IsNotIn(SubjectOf(m_target.GetFolder(record.id)), kStore);
    }
  }

  void CompareFolder(const CMSFolder& folder, const CMSFolder& partner, VerifyReport& report) {
    const std::uint64_t before = report.Differences();
    if (folder.Type() != partner.Type()) {
      report.Differs(SubjectOf(folder), "Type", std::to_string(folder.Type()),
                     std::to_string(partner.Type()));
    }
    if (!(folder.Props() == partner.Props())) {
      report.Differs(SubjectOf(folder), "Props", '"' + folder.Props().str() + '"',
                     '"' + partner.Props().str() + '"');
    }
    if (report.Differences() != before) ++m_counts.differentFolders;
  }

  void CompareLetters(const StoreContents& store, const StoreContents& target,
                      VerifyReport& report) {
    const LetterPairs pairs = PairLetters(store.letters, target.letters);
    m_counts.equal = pairs.equal;
    m_counts.different = pairs.different.size();
    m_counts.notInTarget = pairs.onlyStore.size();
    m_counts.onlyInTarget = pairs.onlyTarget.size();
    for (const auto& [i, k] : pairs.different) {
      StopIfInterrupted();
      CompareLetter(m_store.GetDocument(store.letters[i].id),
                    m_target.GetDocument(target.letters[k].id),
                    store.letters[i].path != target.letters[k].path, report);
    }
    for (const std::size_t i : pairs.onlyStore) {
      report.IsNotIn(SubjectOf(m_store.GetDocument(store.letters[i].id)), kTarget);
    }
    if (!m_options.exact) return;
    for (const std::size_t i : pairs.onlyTarget) {
      report.IsNotIn(SubjectOf(m_target.GetDocument(target.letters[i].id)), kStore);
    }
  }

  static void CompareLetter(const CMSDocument& letter, const CMSDocument& partner, bool isMoved,
                            VerifyReport& report) {
    const VerifySubject subject = SubjectOf(letter);
    if (isMoved) {
      report.Differs(subject, "Folder", PathOf(letter.Parent()), PathOf(partner.Parent()));
    }
    std::map<std::string, std::string> others;
    for (LetterField& field : FieldsOf(partner)) others.emplace(field.name, field.value);
    for (const LetterField& field : FieldsOf(letter)) {
      const auto other = others.find(field.name);
      const std::string value = other == others.end() ? "none" : other->second;
      if (other != others.end()) others.erase(other);
      // A missing file has a line of its own.
      if (field.value == value || field.value == kNoFile || value == kNoFile) continue;
      report.Differs(subject, field.name, field.value, value);
    }
    for (const auto& [name, value] : others) report.Differs(subject, name, "none", value);
  }

  void TellMissing(CMSMessageStore& store, const StoreContents& contents, const char* where,
                   VerifyReport& report) {
    m_counts.missingFiles += contents.missing.size();
    for (const MissingFile& file : contents.missing) {
      report.FileIsMissing(SubjectOf(store.GetDocument(file.letter)), file.attachment, file.name,
                           where);
    }
  }

  CMSMessageStore& m_store;
  CMSMessageStore& m_target;
  const Options& m_options;
  VerifyCounts m_counts;
};

int Verify(const std::string& directory, const Options& options) {
  OpenStore store(directory, Purpose::Read);
  const std::unique_ptr<OpenStore> target = OpenOther(options.target, Purpose::Read);
  return Verifier(*store, **target, options).Run();
}

}  // namespace

void AddVerify(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add("verify", "Compare a store with its backup",
                             [&line, options] { return Verify(line.store, *options); });
  command.Word("TARGET", options->target, "The backup's directory");
  command.Option("--folder", "FOLDER", options->folder,
                 "Only this folder of STORE with all below it");
  command.Flag("--exact", options->exact, "What only TARGET holds is a difference, too");
  command.Flag("--json", options->json, "Print JSON");
  command.Footer(kRules);
}

}  // namespace tool
