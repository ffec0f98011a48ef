// What clients do to a store, the same on every system: all that is random or of the moment is
// fixed, and texts are not cut where a system could cut them otherwise.
#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/support/OpenStore.h"
#include "tests/support/TempDir.h"

#include "kit/MemoryEncryption.h"
#include "ms/Source/Archiver.h"
#include "ms/Source/Roles.h"
#include "platform/File.h"

namespace interchange {

inline std::string Long(const std::string& word, std::size_t length) {
  std::string text;
  while (text.size() + word.size() <= length) text += word;
  return text;
}

// Files to attach, with times and attributes of their own.
class Sources {
 public:
  explicit Sources(const std::string& directory) : m_directory(directory) {
    CKitFolder::MakePath(directory);
    std::string picture(70'000, '\0');
    for (std::size_t i = 0; i < picture.size(); ++i)
      picture[i] = static_cast<char>(i * i >> 7 & 0xFF);
    Put("text.txt", "A line.\r\nAnother.\n", 1'700'000'001);
    Put("same.txt", "As long as a text.", 1'700'000'002);
    Put("picture.bin", picture, 1'600'000'000);
    Put("Отчёт за год.txt", "Отчёт\n", 1'500'000'000);
    Put("empty", "", 1'400'000'000);
    Put("kept.txt", "read only", 1'300'000'000);
    CKitFile::SetAttributes(Path("kept.txt"), platform::attribute::ReadOnly);
  }
  std::string Path(const std::string& name) const { return CKitFile::Join(m_directory, name); }

 private:
  void Put(const std::string& name, const std::string& bytes, std::int64_t time) const {
    const std::string path = Path(name);
    if (CKitFile::Exists(path)) return;
    CKitFile(path, {platform::Access::ReadWrite, platform::Disposition::CreateNew,
                    platform::Sharing::All})
        .Append(bytes.data(), bytes.size());
    using Clock = std::filesystem::file_time_type::clock;
    std::filesystem::last_write_time(
        std::filesystem::path(std::u8string(path.begin(), path.end())),
        Clock::from_sys(std::chrono::sys_seconds(std::chrono::seconds(time))));
  }
  const std::string m_directory;
};

class Client {
 public:
  Client(const std::string& directory, const Sources& sources, CMSDurabilityLevel level)
      : m_store(OpenStore(directory, false, nullptr, level)), m_sources(sources) {}
  CMSMessageStore& Store() { return m_store; }

  void MakePredefinedFolders() {
    for (const auto& role : MSF::kFolderRoles)
      m_store.Root().CreateFolder(role.name, role.props, role.type);
    m_store.WriteCustomData("Client", "Layout", "wide; 3 columns");
    m_store.WriteCustomData("Client", "Quoted", "' kept '");
    m_store.WriteCustomData("Client", "Gone", "1");
    m_store.WriteCustomData("Other", "Key = value", "=");
  }

  // A tree that is renamed, moved and partly deleted, with letters of all kinds in it.
  void Fill(int round) {
    CMSFolder top = m_store.Root().CreateFolder(KitFormat("Папка %d", round),
                                                Long("свойства ", 200).c_str(), 0);
    CMSFolder a = top.CreateFolder("a", "", 0);
    CMSFolder b = a.CreateFolder("b", "", 77);
    CMSFolder c = b.CreateFolder("Вложенная", "p", 0);
    for (int i = 0; i < 9; ++i) AddLetter(i % 3 == 0 ? top : i % 3 == 1 ? b : c, 10 * round + i);
    b.Name("Переименованная");
    c.Props("other");
    c.Move(top);
    top.DeleteFolder(a);
    m_store.WriteCustomData("Client", KitFormat("Round%d", round).c_str(), "done");
    m_store.WriteCustomData("Client", "Gone", nullptr);
  }

  // More than 100 objects of each kind, of which most go again: files grow, free slots are chained,
  // and entry files are compacted.
  void GrowAndShrink() {
    CMSFolder many = m_store.Root().CreateFolder("many", "", 0);
    std::vector<CMSDocument> letters;
    const CMSBatch batch(m_store);
    for (int i = 0; i < 130; ++i) {
      many.CreateFolder(KitFormat("%d", i), "", 0);
      letters.push_back(many.CreateDocument(KitFormat("small %d", i), "", "", "", "", "", "", "",
                                            "", docflag::Complete, i));
      letters.back().AddAttachment("gone.txt", false, "gone", "gone.txt",
                                   attachmentflag::FileRemoved);
      AddRecipient(letters.back(), 1000 + i);
    }
    for (int i = 0; i < 130; ++i)
      if (i % 13 != 5) many.DeleteDocument(letters[static_cast<std::size_t>(i * 7 % 130)]);
    std::list<CMSFolder> folders;
    many.Folders(folders);
    int n = 0;
    for (CMSFolder& folder : folders)
      if (n++ % 10 != 3) many.DeleteFolder(folder);
  }

  // Changes every letter that is not in "many", each in one of several ways.
  void EditAll() {
    CMSFolder target = m_store.Root().CreateFolder("Цель", "", 0);
    std::vector<CMSDocument> letters;
    std::list<CMSFolder> folders;
    m_store.Root().Folders(folders);
    for (const CMSFolder& folder : folders)
      if (folder.Name().str().starts_with("Папка")) Collect(folder, letters);
    int n = 0;
    for (CMSDocument& letter : letters) Edit(letter, n++, target);
  }

  void BackUp(const std::string& directory) {
    CMSArchiver archiver;
    const CMSBackupSettings settings{.Options = kBackupMirror, .CountRule = true};
    archiver.Backup(m_store, directory.c_str(), &settings, nullptr);
  }

 private:
  static void Collect(const CMSFolder& folder, std::vector<CMSDocument>& letters) {
    std::list<CMSDocument> found;
    folder.Documents(found);
    letters.insert(letters.end(), found.begin(), found.end());
    std::list<CMSFolder> below;
    folder.Folders(below);
    for (const CMSFolder& one : below) Collect(one, letters);
  }

  void AddRecipient(CMSDocument& letter, int n) {
    letter.AddRecipient(" 7.03.2024 09:07", KitFormat("PACKET%05d.env", n), "address", "station",
                        "group", "user", "Станция", "Группа", KitFormat("Получатель %d", n),
                        Long("примечание ", 255).c_str(), "receiver", "29.02.2024 23:59", "reader",
                        "", n % 2 == 0 ? recipientflag::Sent : recipientflag::Delivered, n);
  }

  void AddLetter(CMSFolder folder, int n) {
    const std::size_t length = n % 3 == 0 ? 340 : 60;
    CMSDocument letter = folder.CreateDocument(
        Long(KitFormat("Тема %d ", n), length).c_str(), Long("№", 99).c_str(), "31.12.2023 00:00",
        Long("9", 16).c_str(), "senderwg", "senderu", "Рабочее место", "Рабочая группа",
        "Отправитель", docflag::Complete | (n % 2 == 0 ? docflag::Incoming : 0), n);
    if (n % 3 != 0) letter.LetterPath("C:\\Письма\\a.txt");
    letter.AddAttachment(m_sources.Path("text.txt"), false, "Текст", "text.txt",
                         attachmentflag::Body);
    const auto add = [&](const char* name, long flag) {
      letter.AddAttachment(m_sources.Path(name), false, name, name, flag);
    };
    add("Отчёт за год.txt", attachmentflag::Signed);
    if (n % 2 == 0) add("picture.bin", attachmentflag::Encrypted);
    if (n % 4 == 1) add("kept.txt", attachmentflag::RemoveEntirely);
    if (n % 5 == 2) add("empty", attachmentflag::Read);
    for (int i = 0; i <= n % 3; ++i) AddRecipient(letter, 10 * n + i);
    if (n % 4 == 0)
      letter.SetRawKeys(Long("k", 32).c_str(), "abcd", "initvect", "group\0\0\0\0\0\0\0");
    if (n % 4 == 2) letter.SetCryptInfoEx({1, 2, 3, 4, 5, CGroupID("g")});
  }

  void Edit(CMSDocument& letter, int n, CMSFolder& target) {
    std::list<CMSAttachment> attachments;
    letter.Attachments(attachments);
    std::list<CMSRecipient> recipients;
    letter.Recipients(recipients);
    CMSAttachment& body = attachments.front();
    switch (n % 9) {
      case 0:
        letter.Name(Long("Новая тема ", 200).c_str());
        letter.Flag(letter.Flag() | docflag::MarkedUnread);
        return letter.CreationData(" 1.01.2024 10:00");
      case 1:
        recipients.front().TransEnvFileName(KitFormat("RENAMED%04d", n).c_str());
        recipients.front().ReadDateTime("15.06.2024 12:30");
        return recipients.front().Flag(recipientflag::Sent);
      case 2:
        return body.Get(m_sources.Path("same.txt").c_str(), false);
      case 3:
        return letter.Move(target);
      case 4:
        letter.Clone(target, false);
        return letter.DeleteAttachment(attachments.back());
      case 5:
        return letter.RemoveAttachments();
      case 6: {
        CMSDocument copy = letter.BlankCopy(target);
        copy.AcceptRecipients(letter, nullptr, false);
        copy.AcceptAttachments(letter, nullptr);
        copy.Flag(copy.Flag() | docflag::Complete);
        return letter.DeleteRecipient(recipients.front());
      }
      case 7:
        letter.DeleteAttachment(body);
        letter.CreateEmptyLetterText();
        return letter.ClearKey();
      default:
        return letter.Parent().DeleteDocument(letter);
    }
  }

  CMSMessageStore m_store;
  const Sources& m_sources;
};

}  // namespace interchange
