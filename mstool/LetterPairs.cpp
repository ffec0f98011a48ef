#include "LetterPairs.h"

#include <algorithm>
#include <array>
#include <functional>
#include <numeric>
#include <string>
#include <unordered_map>

namespace tool {
namespace {

// What two letters must share; empty for a letter that has nothing of the kind.
using Key = std::function<std::string(const LetterRecord&)>;

std::string Joined(std::initializer_list<std::uint64_t> parts) {
  std::string key;
  for (const std::uint64_t part : parts) key += std::to_string(part) + ' ';
  return key;
}

std::string Content(const LetterRecord& letter) {
  return {letter.digest.begin(), letter.digest.end()};
}

const std::array<Key, 5> kLikeness = {
    [](const LetterRecord& l) -> std::string {
      return l.created != 0 && l.subject != 0 ? Joined({l.created, l.sender, l.subject}) : "";
    },
    [](const LetterRecord& l) -> std::string {
      return l.created != 0 ? Joined({l.created, l.sender}) : "";
    },
    [](const LetterRecord& l) -> std::string {
      return l.subject != 0 ? Joined({l.subject, l.sender}) : "";
    },
    [](const LetterRecord& l) -> std::string {
      return l.registration != 0 ? Joined({l.registration}) : "";
    },
    [](const LetterRecord& l) -> std::string {
      return l.created != 0 && l.subject != 0 ? Joined({l.created, l.subject}) : "";
    }};

Key InSameFolder(const Key& key) {
  return [&key](const LetterRecord& letter) {
    const std::string text = key(letter);
    return text.empty() ? text : std::to_string(letter.path) + '/' + text;
  };
}

using Pairs = std::vector<std::pair<std::size_t, std::size_t>>;

class Matcher {
 public:
  Matcher(const std::vector<LetterRecord>& store, const std::vector<LetterRecord>& target)
      : m_store(store), m_target(target), m_restStore(store.size()), m_restTarget(target.size()) {
    std::iota(m_restStore.begin(), m_restStore.end(), 0U);
    std::iota(m_restTarget.begin(), m_restTarget.end(), 0U);
  }

  // Pairs what is left by the key, in the order of the lists.
  Pairs Match(const Key& key) {
    std::unordered_map<std::string, std::vector<std::size_t>> partners;
    for (std::size_t n = m_restTarget.size(); n-- > 0;) {
      const std::string text = key(m_target[m_restTarget[n]]);
      if (!text.empty()) partners[text].push_back(m_restTarget[n]);
    }
    Pairs pairs;
    std::vector<std::size_t> rest;
    std::vector<bool> taken(m_target.size());
    for (const std::size_t i : m_restStore) {
      const auto found = partners.find(key(m_store[i]));
      if (found == partners.end() || found->second.empty()) {
        rest.push_back(i);
        continue;
      }
      pairs.emplace_back(i, found->second.back());
      taken[found->second.back()] = true;
      found->second.pop_back();
    }
    m_restStore = std::move(rest);
    std::erase_if(m_restTarget, [&](std::size_t i) { return taken[i]; });
    return pairs;
  }

  const std::vector<std::size_t>& RestOfStore() const { return m_restStore; }
  const std::vector<std::size_t>& RestOfTarget() const { return m_restTarget; }

 private:
  const std::vector<LetterRecord>& m_store;
  const std::vector<LetterRecord>& m_target;
  std::vector<std::size_t> m_restStore;
  std::vector<std::size_t> m_restTarget;
};

}  // namespace

LetterPairs PairLetters(const std::vector<LetterRecord>& store,
                        const std::vector<LetterRecord>& target) {
  Matcher matcher(store, target);
  LetterPairs result;
  const Key content = Content;
  result.equal = matcher.Match(InSameFolder(content)).size();
  const auto match = [&](const Key& key) {
    const Pairs pairs = matcher.Match(key);
    result.different.insert(result.different.end(), pairs.begin(), pairs.end());
  };
  match(content);
  for (const Key& key : kLikeness) match(InSameFolder(key));
  for (const Key& key : kLikeness) match(key);
  std::sort(result.different.begin(), result.different.end());
  result.onlyStore = matcher.RestOfStore();
  result.onlyTarget = matcher.RestOfTarget();
  return result;
}

}  // namespace tool
