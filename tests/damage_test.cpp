// Damaged files: every opening either works or gives an error that says why, and so does everything
// done afterwards.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <random>

#include "kit/LogDispatcher.h"
#include "ms/Source/StoreFiles.h"
#include "support/OpenStore.h"
#include "support/TempDir.h"
#include "support/Walk.h"

namespace {

// Errors are part of the damage; they need not be seen on the terminal.
struct Quiet : CLogSink {
  Quiet() : previous(SetLogSink(this)) {}
  ~Quiet() override { SetLogSink(previous); }
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;
  void WriteLogFormatted(const char*, const char*, int) override {}
  int ReportLog(int, const char*, const char*, int) override { return 0; }
  CLogSink* previous;
};

CMSDocument AddLetter(CMSFolder folder, const std::string& file) {
  const std::string subject(150, 's');
  CMSDocument letter = folder.CreateDocument(subject, "N-7", "01.02.2020 03:04", "", "", "", "", "",
                                             "Desk", docflag::Incoming, 3);
  letter.AddAttachment(file, false, "a", "a", 0);
  letter.CreateEmptyLetterText();
  letter.AddRecipient("", "PKT" + std::to_string(letter.ID()), "", "", "", "", "", "", "r", "", "",
                      "", "", "", 4, 1);
  return letter;
}

class Damage : public testing::Test {
 protected:
  Damage() : m_dir(InMemory()) {
    WriteBytes(m_dir / "note.txt", "some bytes");
    CMSMessageStore store = OpenStore(Store());
    CMSFolder inbox = store.Root().CreateFolder("INBOX", "p", 2);
    CMSFolder below = inbox.CreateFolder("below", "", 0);
    CMSDocument gone = AddLetter(inbox, m_dir / "note.txt");
    AddLetter(inbox, m_dir / "note.txt");
    AddLetter(below, m_dir / "note.txt");
    inbox.DeleteDocument(gone);
    (void)inbox.GetUnreadDocumentCount();
  }

  std::string Store() const { return m_dir / "store"; }
  std::string File(const std::string& name) const { return CKitFile::Join(Store(), name); }

  void Remember() {
    for (const char* name : storefiles::kRequired) m_files[name] = ReadBytes(File(name));
  }
  void Restore() {
    for (const auto& [name, bytes] : m_files) WriteBytes(File(name), bytes);
  }

  // True when nothing was noticed.
  bool Use(bool readOnly) {
    try {
      CMSMessageStore store = OpenStore(Store(), readOnly);
      const Walk before(store);
      (void)store.FindRecipient("PKT4", true);
      if (!readOnly) Change(store);
      return true;
    } catch (const XKitMsg& error) {
      EXPECT_GT(std::string(error.what()).size(), 10u);
      return false;
    }
  }
  void Change(CMSMessageStore& store) {
    CMSFolder root = store.Root();
    CMSFolder inbox = root.OpenFolder("INBOX");
    if (!inbox) return;
    CMSDocument letter;
    auto place = inbox.GetFirstDocumentPosition();
    if (inbox.GetNextDocument(letter, place)) {
      letter.Flag(letter.Flag() ^ docflag::MarkedUnread);
      letter.Name("short");
    }
    CMSDocument made = AddLetter(inbox, m_dir / "note.txt");
    inbox.DeleteDocument(made);
    if (letter) inbox.MoveDocument(letter, root);
    inbox.CreateFolder("new", "", 0);
    root.DeleteFolder(inbox);
  }

  TempDir m_dir;
  std::map<std::string, std::string> m_files;
  Quiet m_quiet;
};

}  // namespace

TEST_F(Damage, Files_cut_at_every_length_up_to_200_bytes) {
  Remember();
  unsigned noticed = 0;
  for (const char* name : storefiles::kRequired) {
    const std::size_t most = std::min<std::size_t>(200, m_files[name].size());
    for (std::size_t length = 0; length < most; ++length) {
      Restore();
      std::filesystem::resize_file(File(name), length);
      if (!Use(true)) ++noticed;
      Restore();
      std::filesystem::resize_file(File(name), length);
      Use(false);
    }
  }
  // A cut record file is always noticed; four of them are.
  EXPECT_GE(noticed, 4u * 200u);
}

TEST_F(Damage, Ten_thousand_random_bytes) {
  Remember();
  std::mt19937 random(20261121);
  unsigned unnoticed = 0;
  for (int i = 0; i < 10000; ++i) {
    Restore();
    // Half of them where it hurts most: headers, the first containers, the entries.
    const std::string name = storefiles::kRequired[random() % storefiles::kRequired.size()];
    std::string bytes = m_files[name];
    const std::size_t range =
        random() % 2 == 0 ? std::min<std::size_t>(bytes.size(), 1000) : bytes.size();
    for (unsigned n = 1 + random() % 4; n > 0; --n)
      bytes[random() % range] = static_cast<char>(random() % 3 == 0 ? 0xFF : random());
    WriteBytes(File(name), bytes);
    if (Use(i % 2 == 0)) ++unnoticed;
  }
  EXPECT_GT(unnoticed, 1000u);
  EXPECT_LT(unnoticed, 9999u);
}
