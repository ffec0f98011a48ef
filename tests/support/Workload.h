// What a client does to a store, one acknowledged call after the other. The same seed on the same
// store does the same, also in another process.
#pragma once

#include <list>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "TempDir.h"

#include "ms/Source/Archiver.h"
#include "ms/Source/MessageStore.h"

class Workload {
 public:
  // source: a file to be made, for attachments. backup: where to; "" leaves backups out. top: the
  // folder that everything happens in, if not the whole store.
  Workload(const CMSMessageStore& store, unsigned seed, std::string source, std::string backup,
           const CMSFolder& top = {})
      : m_store(store),
        m_top(top ? top : m_store.Root()),
        m_random(seed),
        m_names(std::to_string(seed) + "_"),
        m_source(std::move(source)),
        m_backup(std::move(backup)) {}

  // One public call, or one batch of them.
  void Step() {
    if (m_unfinished) return GoOn();
    m_folders.clear();
    m_letters.clear();
    List(m_top);
    CMSFolder folder = m_folders[Below(m_folders.size())];
    if (m_letters.empty()) return (void)Create(folder, docflag::Complete);
    CMSDocument letter = m_letters[Below(m_letters.size())];
    const bool isFull = m_letters.size() > 20;
    switch (Below(20)) {
      case 0:
        return letter.Name(Name("subject", Below(300)).c_str());
      case 1:
        return letter.Flag(letter.Flag() ^ docflag::MarkedUnread);
      case 2:
        return letter.Move(folder);
      case 3:
        return AddFile(letter);
      case 4:
        return ChangeFile(letter);
      case 5:
        return AddAddressee(letter);
      case 6:
        return ChangeAddressee(letter);
      case 7:
        return Create(folder, Name("folder"));
      case 8:
        return Move(folder, m_folders[Below(m_folders.size())]);
      case 9:
        return IsFixed(folder) ? void() : folder.Parent().DeleteFolder(folder);
      case 10:
        m_store.WriteCustomData("Client", Below(2) == 0 ? "one" : "two", Name("value").c_str());
        return;
      case 11:
        if (!m_backup.empty()) CMSArchiver().Backup(m_store, m_backup.c_str(), nullptr, nullptr);
        return;
      default:
        if (isFull) return letter.Parent().DeleteDocument(letter);
    }
    switch (Below(4)) {
      case 0:
        return (void)Create(folder, docflag::Complete);
      case 1:
        return (void)letter.Clone(folder, false);
      case 2:
        return Batch(folder);
      default:
        m_unfinished = Create(folder, 0);
    }
  }
  // A letter that was begun is to be finished before the store is closed.
  void Finish() {
    if (m_unfinished) std::exchange(m_unfinished, {}).SetActionFlag(docflag::Complete);
  }

 private:
  std::size_t Below(std::size_t limit) { return m_random() % limit; }
  std::string Name(const char* what, std::size_t length = 0) {
    std::string name = what + m_names + std::to_string(++m_count);
    return name + std::string(length > name.size() ? length - name.size() : 0, 'x');
  }
  void List(const CMSFolder& folder) {
    m_folders.push_back(folder);
    std::list<CMSDocument> letters;
    folder.Documents(letters);
    m_letters.insert(m_letters.end(), letters.begin(), letters.end());
    std::list<CMSFolder> below;
    folder.Folders(below);
    for (const CMSFolder& one : below) List(one);
  }
  template <class Handle>
  Handle Any(const std::list<Handle>& list) {
    return list.empty() ? Handle()
                        : *std::next(list.begin(), static_cast<long>(Below(list.size())));
  }

  CMSDocument Create(CMSFolder& folder, long flags) {
    return folder.CreateDocument(Name("subject", Below(200)), Name("number"), "07.03.2024 09:30",
                                 "", "g", "u", "", "", "user", flags | docflag::Incoming, 0);
  }
  void Create(CMSFolder& folder, const std::string& name) {
    if (m_folders.size() < 15) folder.CreateFolder(name, "", 0);
  }
  bool IsFixed(const CMSFolder& folder) const { return folder == m_top || folder.Type() != 0; }
  void Move(CMSFolder& folder, CMSFolder& target) {
    if (IsFixed(folder)) return;
    for (CMSFolder above = target; above; above = above.Parent())
      if (above == folder) return;
    folder.Move(target);
  }
  void AddFile(CMSDocument& letter) {
    WriteSource();
    const long flag = letter.BodyID() == 0 ? attachmentflag::Body : attachmentflag::Encrypted;
    letter.AddAttachment(m_source, false, Name("file"), "source", flag);
  }
  void WriteSource() { WriteBytes(m_source, Name("bytes", Below(9000))); }
  void AddAddressee(CMSDocument& letter) {
    letter.AddRecipient("", Name("p"), "", "", "", "", "", "", Name("user"), Name("note"), "", "",
                        "", "", recipientflag::Sent, 0);
  }
  void ChangeFile(CMSDocument& letter) {
    std::list<CMSAttachment> files;
    letter.Attachments(files);
    CMSAttachment file = Any(files);
    if (!file) return;
    if (Below(2) == 0) return letter.DeleteAttachment(file);
    WriteBytes(m_source, std::string(static_cast<std::size_t>(file.Size()), 'r'));
    file.Get(m_source.c_str(), false);
  }
  void ChangeAddressee(CMSDocument& letter) {
    std::list<CMSRecipient> all;
    letter.Recipients(all);
    CMSRecipient one = Any(all);
    if (!one) return;
    Below(2) == 0 ? letter.DeleteRecipient(one) : one.TransEnvFileName(Name("q").c_str());
  }
  void GoOn() {
    const std::size_t next = Below(3);
    next == 0 ? AddFile(m_unfinished) : next == 1 ? AddAddressee(m_unfinished) : Finish();
  }
  void Batch(CMSFolder& folder) {
    CMSBatch batch(m_store);
    for (std::size_t n = 1 + Below(4); n-- > 0;) {
      CMSDocument letter = Create(folder, 0);
      AddFile(letter);
      AddAddressee(letter);
      letter.SetActionFlag(docflag::Complete);
    }
    batch.Commit();
  }

  CMSMessageStore m_store;
  CMSFolder m_top;
  std::mt19937 m_random;
  const std::string m_names, m_source, m_backup;
  unsigned m_count = 0;
  std::vector<CMSFolder> m_folders;
  std::vector<CMSDocument> m_letters;
  CMSDocument m_unfinished;  // a letter that is still without bit Complete
};
