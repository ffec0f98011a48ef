#include "VerifyReport.h"

#include "Text.h"

namespace tool {

VerifyReport::VerifyReport(bool json) : m_json(json) {
  if (!m_json) return;
  m_out.BeginObject({{"format", 1}});
  m_out.BeginArray("differences");
}

void VerifyReport::Differs(const VerifySubject& subject, const std::string& field,
                           const std::string& store, const std::string& target) {
  Tell(subject, field + " " + store + " in STORE, " + target + " in TARGET",
       {{"field", field}, {"store", store}, {"target", target}});
}

void VerifyReport::IsNotIn(const VerifySubject& subject, const char* where) {
  Tell(subject, std::string("not in ") + where, {{"notIn", where}});
}

void VerifyReport::FileIsMissing(const VerifySubject& subject, std::size_t attachment,
                                 const std::string& name, const char* where) {
  Tell(subject,
       "the file of attachment " + std::to_string(attachment) + ", \"" + name +
           "\", is missing in " + where,
       {{"attachment", attachment}, {"file", name}, {"notIn", where}});
}

void VerifyReport::Tell(const VerifySubject& subject, const std::string& line,
                        const Json& members) {
  ++m_differences;
  if (m_json) {
    Json value = subject.members;
    value.update(members);
    m_out.Value(value);
  } else {
    Print(Visible(subject.label) + ": " + Visible(line));
  }
}

void VerifyReport::End(const VerifyCounts& counts, double seconds) {
  if (m_json) {
    m_out.EndArray();
    m_out.Member("equal", counts.equal);
    m_out.Member("different", counts.different);
    m_out.Member("notInTarget", counts.notInTarget);
    m_out.Member("onlyInTarget", counts.onlyInTarget);
    m_out.Member("differentFolders", counts.differentFolders);
    m_out.Member("foldersNotInTarget", counts.foldersNotInTarget);
    m_out.Member("foldersOnlyInTarget", counts.foldersOnlyInTarget);
    m_out.Member("missingFiles", counts.missingFiles);
    m_out.Member("seconds", seconds);
    m_out.EndObject();
    m_out.Finish();
    return;
  }
  using enum Table::Align;
  Table table({Right, Left});
  const auto row = [&](std::uint64_t count, const char* what, bool always) {
    if (always || count != 0) table.Row({std::to_string(count), what});
  };
  row(counts.equal, "letters equal", true);
  row(counts.different, "letters different", true);
  row(counts.notInTarget, "letters not in TARGET", true);
  row(counts.onlyInTarget, "letters only in TARGET", true);
  row(counts.differentFolders, "folders different", false);
  row(counts.foldersNotInTarget, "folders not in TARGET", false);
  row(counts.foldersOnlyInTarget, "folders only in TARGET", false);
  row(counts.missingFiles, "files missing", false);
  table.Print();
  FlushOutput();
}

}  // namespace tool
