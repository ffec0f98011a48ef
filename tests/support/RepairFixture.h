// A small store for tests that damage and repair it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "LogSink.h"
#include "OpenStore.h"
#include "StoreChecker.h"
#include "TempDir.h"
#include "Walk.h"

#include "ms/Source/MSFixer.h"
#include "ms/Source/Roles.h"

// 1 root, 2 to 8 predefined; in INBOX (3) letter 9 with attachment 10 and recipient 11, and letter
// 12 with attachment 15; folder 13 in INBOX with folder 14. Slots are in the order of IDs.
class RepairFixture : public testing::Test {
 public:
  using Files = std::map<std::string, std::string>;  // bytes by path below the store

  Files ReadFiles() const {
    Files files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path))
      if (entry.is_regular_file())
        files[entry.path().lexically_relative(path).generic_string()] =
            storecheck::ReadWhole(entry.path());
    return files;
  }
  void Restore(const Files& files) {
    for (const auto& entry : std::filesystem::directory_iterator(dir.Path()))
      std::filesystem::remove_all(entry.path());
    for (const auto& [name, bytes] : files) {
      const std::filesystem::path file = std::filesystem::path(path) / name;
      std::filesystem::create_directories(file.parent_path());
      WriteBytes(file.string(), bytes);
    }
  }
  template <class Change>
  void Edit(const std::string& file, Change change) {
    std::string bytes = storecheck::ReadWhole(path + "/" + file);
    change(bytes);
    WriteBytes(path + "/" + file, bytes);
  }
  // A line each: object, what, stored -> found; files without the store's path and ".tmp".
  std::string Findings() const {
    std::string found;
    for (const auto& one : fixer.Findings())
      found += one.Object + " " + one.What + " " + one.Stored + " -> " + one.Found + "\n";
    for (const std::string& part : {CKitFile::Join(path, ""), std::string(".tmp")})
      for (auto at = found.find(part); at != found.npos; at = found.find(part))
        found.erase(at, part.size());
    return found;
  }

 protected:
  RepairFixture() {
    CMSMessageStore store = OpenStore(path);
    CMSFolder root = store.Root();
    for (const auto& role : MSF::kFolderRoles) root.CreateFolder(role.name, role.props, role.type);
    CMSFolder inbox = root.OpenFolder(CKitString("INBOX"));
    WriteBytes(dir / "text.txt", "text");
    WriteBytes(dir / "more.txt", "other");
    CMSDocument letter = inbox.CreateDocument("one", "", "", "", "", "", "", "", "",
                                              docflag::Complete | docflag::Incoming, 77);
    letter.AddAttachment(dir / "text.txt", false, "t", "t", attachmentflag::Body);
    letter.AddRecipient("", "PACKET", "", "", "", "", "", "", "r", "", "", "", "", "", 0, 0);
    CMSDocument second =
        inbox.CreateDocument("two", "", "", "", "", "", "", "", "", docflag::Complete, 5);
    inbox.CreateFolder("a", "", 0).CreateFolder("b", "", 0);
    second.AddAttachment(dir / "more.txt", false, "m", "m", 0);
  }

  // In memory, where there is such a place: a repair waits for the medium often.
  TempDir dir{InMemory()};
  const std::string path = dir / "store";
  LogSink events;
  MSF::CFixer fixer;
};
