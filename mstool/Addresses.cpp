#include "Addresses.h"

#include <gmime/gmime.h>

#include <algorithm>
#include <optional>
#include <regex>

#include "Charset.h"
#include "EncodedWords.h"
#include "Glib.h"
#include "Text.h"

namespace tool {
namespace {

// Header fields longer than this are not matched against patterns.
constexpr std::size_t kPatternLimit = 1000;

std::string Text(const char* text) {
  return text != nullptr ? CleanUtf8(text) : std::string();
}

void Collect(InternetAddressList* list, std::vector<MailAddress>& found) {
  const int count = internet_address_list_length(list);
  for (int i = 0; i < count; ++i) {
    InternetAddress* address = internet_address_list_get_address(list, i);
    if (INTERNET_ADDRESS_IS_GROUP(address)) {
      InternetAddressGroup* group = INTERNET_ADDRESS_GROUP(address);
      if (InternetAddressList* members = internet_address_group_get_members(group)) {
        Collect(members, found);
      }
    } else if (INTERNET_ADDRESS_IS_MAILBOX(address)) {
      InternetAddressMailbox* mailbox = INTERNET_ADDRESS_MAILBOX(address);
      MailAddress who{Text(internet_address_get_name(address)),
                      Text(internet_address_mailbox_get_addr(mailbox))};
      if (who.address.find('@') == who.address.npos && who.address.starts_with("=?")) {
        // A name that no address follows.
        who = {DecodeWords(who.address), ""};
      }
      if (!who.name.empty() || !who.address.empty()) found.push_back(std::move(who));
    }
  }
}

std::string Unquoted(std::string name) {
  if (name.size() >= 2 && name.front() == '"' && name.back() == '"') {
    name = name.substr(1, name.size() - 2);
  }
  return name;
}

// List archives hide addresses as "user at host (Name)" or "Name <user at host>".
std::optional<MailAddress> HiddenAddress(const std::string& line) {
  static const std::regex kCommented(R"(^(\S+ at \S+?)(?:\s+\((.*)\))?$)");
  static const std::regex kAngled(R"(^(.*?)\s*<(\S+ at \S+)>$)");
  if (line.size() > kPatternLimit || line.find(" at ") == line.npos) return std::nullopt;
  std::smatch match;
  if (std::regex_match(line, match, kAngled)) {
    return MailAddress{DecodeHeaderText(Unquoted(match[1]), ""), match[2]};
  }
  if (std::regex_match(line, match, kCommented)) {
    return MailAddress{DecodeHeaderText(match[2].str(), ""), match[1]};
  }
  return std::nullopt;
}

// Gateways append their domain to an address that has one: all of it is the address.
std::optional<MailAddress> TwiceRouted(const std::string& line) {
  static const std::regex kRouted(R"(^[^\s@<>()\[\],;:"]+(?:@[^\s@<>()\[\],;:"]+){2,}$)");
  if (line.size() > kPatternLimit || !std::regex_match(line, kRouted)) return std::nullopt;
  return MailAddress{"", line};
}

}  // namespace

std::vector<MailAddress> ReadAddresses(std::string_view raw, const std::string& textCharset) {
  const std::string line = DecodeHeaderBytes(raw, textCharset);
  if (line.empty()) return {};
  if (auto hidden = HiddenAddress(line)) return {*hidden};
  if (auto routed = TwiceRouted(line)) return {*routed};

  std::vector<MailAddress> found;
  const std::string joined = JoinWords(line);
  const GPtr<InternetAddressList> list(internet_address_list_parse(nullptr, joined.c_str()));
  if (list) Collect(list.get(), found);
  const bool emptyGroup = line.find(':') != line.npos && line.find('@') == line.npos;
  const bool saysSomething = line.find_first_not_of("\"<>,; \t") != line.npos;
  if (found.empty() && !emptyGroup && saysSomething)
    found.push_back({"", DecodeHeaderText(line, textCharset)});
  return found;
}

}  // namespace tool
