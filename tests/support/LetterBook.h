// What a store holds, as its clients see it, and whether another holds the same.
#pragma once

#include <map>
#include <string>

#include "StoreChecker.h"

#include "ms/Source/MessageStore.h"

namespace crash {

// Fields by name; those of an attachment or a recipient begin with its ID.
using Object = std::map<std::string, std::string>;

// Letters and folders by ID; 0 is the clients' own data.
class LetterBook {
 public:
  static constexpr const char* kSection = "Client";

  LetterBook() = default;
  explicit LetterBook(CMSMessageStore& store) {
    for (const char* key : {"one", "two"})
      m_objects[0][key] = store.GetCustomData(kSection, key).str();
    Add(store.Root());
  }
  const std::map<unsigned long, Object>& Objects() const { return m_objects; }
  std::map<unsigned long, Object>& Objects() { return m_objects; }
  bool operator==(const LetterBook&) const = default;

  static Object Read(const CMSDocument& letter);

  // By subject what the letters hold, without IDs.
  std::map<std::string, std::multiset<std::string>> Contents() const {
    std::map<std::string, std::multiset<std::string>> contents;
    for (const auto& [id, object] : m_objects) {
      if (object.count("subject") == 0) continue;
      std::multiset<std::string> fields;
      for (const auto& [name, value] : object)
        if (name != "parent" && name != "body")
          fields.insert(name.substr(name.find(' ') + 1) + "=" + value);
      std::string text;
      for (const std::string& one : fields) text += one + "\n";
      contents[object.at("subject")].insert(text);
    }
    return contents;
  }
  // The subject of a letter that the copy has fewer equals of; "" when there is none.
  std::string MissingIn(const LetterBook& copy) const {
    const auto copies = copy.Contents();
    for (const auto& [subject, letters] : Contents())
      if (copies.count(subject) == 0 || !std::ranges::includes(copies.at(subject), letters))
        return subject;
    return {};
  }

 private:
  template <class Value>
  static std::string Text(const Value& value) {
    std::ostringstream text;
    text << value;
    return text.str();
  }
  void Add(const CMSFolder& folder) {
    Object& object = m_objects[folder.ID()];
    object = {{"name", folder.Name().str()},
              {"props", folder.Props().str()},
              {"type", Text(folder.Type())},
              {"parent", Text(folder.ParentID())}};
    std::list<CMSDocument> letters;
    folder.Documents(letters);
    for (const CMSDocument& letter : letters) Add(letter);
    std::list<CMSFolder> folders;
    folder.Folders(folders);
    for (const CMSFolder& one : folders) Add(one);
  }
  // A letter that its client has not finished is nothing yet: a repair removes it.
  void Add(const CMSDocument& letter) {
    if (!letter.IsAction(docflag::Complete)) return;
    const bool isSecond = m_objects.count(letter.ID()) != 0;
    Object& object = m_objects[letter.ID()] = Read(letter);
    if (isSecond) object["twice"] = "yes";
  }

  std::map<unsigned long, Object> m_objects;
};

inline Object LetterBook::Read(const CMSDocument& letter) {
  Object object;
  object["parent"] = Text(letter.ParentID());
  object["subject"] = letter.Name().str();
  object["path"] = letter.LetterPath().str();
  object["number"] = letter.RegNumber().str();
  object["created"] = Text(letter.CreationTime());
  object["address"] = letter.ObsoleteSenderNetAddr().str();
  object["idwg"] = letter.SenderIDWG().str();
  object["station"] = letter.SenderWSName().str();
  object["group"] = letter.SenderWGName().str();
  object["user"] = letter.SenderUserName().str();
  object["regnum"] = Text(letter.RegNum());
  object["flag"] = Text(letter.Flag());
  object["size"] = Text(letter.Size());
  object["body"] = Text(letter.BodyID());
  std::list<CMSAttachment> attachments;
  letter.Attachments(attachments);
  for (const CMSAttachment& one : attachments) {
    const std::string id = Text(one.ID());
    object[id + " name"] = one.Name().str() + "|" + one.AttachmentName().str();
    object[id + " flag"] = Text(one.Flag());
    object[id + " size"] = Text(one.Size());
    object[id + " bytes"] = storecheck::ReadWhole(one.InternalFileName().str());
  }
  std::list<CMSRecipient> recipients;
  letter.Recipients(recipients);
  for (const CMSRecipient& one : recipients) {
    const std::string id = Text(one.ID());
    object[id + " packet"] = one.TransEnvFileName().str();
    object[id + " user"] = one.UserName().str() + "|" + one.WSName().str();
    object[id + " note"] = one.Annotation().str();
    object[id + " flag"] = Text(one.Flag());
  }
  return object;
}

// What became of the objects, when before was acknowledged and after was under way.
struct Outcome {
  std::string lost;  // what is not as it was promised; a line each
  std::string torn;  // objects under way that are neither as before, nor as after, nor absent
};

inline Outcome Compare(const LetterBook& before, const LetterBook& after, const LetterBook& found) {
  Outcome outcome;
  static const Object kAbsent;
  const auto in = [](const LetterBook& book, unsigned long id) -> const Object& {
    const auto object = book.Objects().find(id);
    return object != book.Objects().end() ? object->second : kAbsent;
  };
  const auto field = [](const Object& object, const std::string& name) {
    const auto value = object.find(name);
    return value != object.end() ? "'" + value->second + "'" : std::string("none");
  };
  std::set<unsigned long> ids;
  for (const LetterBook* book : {&before, &after, &found})
    for (const auto& [id, object] : book->Objects()) ids.insert(id);
  for (const unsigned long id : ids) {
    const Object &was = in(before, id), &becomes = in(after, id), &is = in(found, id);
    if (is == was || is == becomes) continue;
    std::ostringstream text;
    // An object that goes may lose its fields, one that comes may not have them yet.
    bool isLost =
        (was.empty() && becomes.empty()) || (is.empty() && !was.empty() && !becomes.empty());
    std::set<std::string> names;
    for (const Object* one : {&was, &becomes, &is})
      for (const auto& [name, value] : *one) names.insert(name);
    for (const std::string& name : names) {
      const std::string old = field(was, name), next = field(becomes, name), now = field(is, name);
      if (now == old && now == next) continue;
      const bool isStable = !was.empty() && !becomes.empty() && old == next;
      isLost = isLost || isStable;
      text << " " << name << ": " << old.substr(0, 60) << " -> " << next.substr(0, 60) << " is "
           << now.substr(0, 60) << ";";
    }
    (isLost ? outcome.lost : outcome.torn) +=
        std::to_string(id) + (is.empty() ? " is absent" : "") + text.str() + "\n";
  }
  return outcome;
}

}  // namespace crash
