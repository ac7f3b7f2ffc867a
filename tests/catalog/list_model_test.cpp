// Lists by random filters over random names, against a plain model that has no index:
// names are vectors of tokens there, and the rules are written down once more.
#include <array>
#include <optional>
#include <random>
#include <set>

#include "catalog/catalog_index.h"

namespace zvrtest {
namespace {

// Eleven places; those of a damaged name may be empty before the last.
using Tokens = std::array<std::optional<std::string>, 11>;

Tokens tokens_of(const CfName& name) {
  Tokens tokens;
  for (std::size_t i = 0; i < 11 && name[i] != 255; ++i) {
    if (name[i] > 64) continue;
    tokens[i].emplace();
    for (std::size_t at = name[i]; at < 65 && name[11 + at] != 0; ++at)
      *tokens[i] += static_cast<char>(name[11 + at]);
  }
  return tokens;
}

struct Place {
  std::size_t token = 10;
  std::size_t character = 0;
};

// A filter, and the names that it takes one by one.
class PlainFilter {
 public:
  explicit PlainFilter(const CfName& name) : tokens_(tokens_of(name)) {
    for (std::size_t i = 0; i < 11 && tokens_[i]; ++i) {
      const std::size_t at = tokens_[i]->find_first_of("*?");
      if (at == std::string::npos) continue;
      fixed_ = {i, at};
      break;
    }
    if (tokens_[10]) return;
    for (std::size_t i = 10; i-- > 0 && tokens_[i];) {
      const std::size_t star = tokens_[i]->find('*');
      if (star == std::string::npos) break;
      tail_ = {i, star};
      if (star > 0) break;
    }
  }

  // Whether the name agrees with the filter before its first wildcard.
  bool fixed_part_agrees(const Tokens& name) const {
    for (std::size_t i = 0; i < fixed_.token; ++i) {
      if (!tokens_[i] && !name[i]) return true;
      if (tokens_[i] != name[i]) return false;
    }
    return head(tokens_) == head(name);
  }

  bool takes(const Tokens& name) const {
    for (std::size_t i = 0; i < 11; ++i) {
      if (!tokens_[i]) return !name[i];
      if (*tokens_[i] == "*") continue;
      if (!name[i]) return false;
      switch (token_takes(i, *name[i])) {
        case verdict::tail:
          return true;
        case verdict::no:
          return false;
        case verdict::yes:
          break;
      }
    }
    return true;
  }

  // Whether two neighbours differ only behind the tail, as far as the encoding can tell.
  bool ties(const Tokens& a, const Tokens& b) const {
    return difference(a, b) > tail_.token * 16 + tail_.character;
  }

 private:
  enum class verdict { no, yes, tail };

  std::string head(const Tokens& of) const {
    return of[fixed_.token].value_or("").substr(0, fixed_.character);
  }

  // The two tokens with their NULs, from the left.
  verdict token_takes(std::size_t i, const std::string& text) const {
    const std::string& filter = *tokens_[i];
    for (std::size_t at = 0;; ++at) {
      if (i == tail_.token && at == tail_.character) return verdict::tail;
      const bool filter_ended = at == filter.size();
      const bool text_ended = at == text.size();
      if (filter_ended && text_ended) return verdict::yes;
      if (!filter_ended && !text_ended && filter[at] == text[at]) continue;
      if (filter_ended) return verdict::no;
      if (filter[at] == '*') return verdict::yes;
      if (filter[at] != '?' || text_ended) return verdict::no;
    }
  }

  static std::size_t difference(const Tokens& a, const Tokens& b) {
    std::size_t token = 0;
    while (token < 11 && a[token] && a[token] == b[token]) ++token;
    std::size_t character = 0;
    if (token < 11 && a[token] && b[token])
      while (character < a[token]->size() && character < b[token]->size() &&
             (*a[token])[character] == (*b[token])[character])
        ++character;
    return token * 16 + character;
  }

  Tokens tokens_;
  Place fixed_;
  Place tail_;
};

// The names that the filter takes, judged one by one.
std::vector<std::size_t> matching(const std::vector<Tokens>& names, const CfName& filter) {
  const PlainFilter plain(filter);
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i < names.size(); ++i)
    if (plain.takes(names[i])) found.push_back(i);
  return found;
}

// The same with chains of tied neighbours: from the first name taken on, the rest of its
// chain comes along; and behind a chain the fixed part must go on.
std::vector<std::size_t> matching_by_chains(const std::vector<Tokens>& names, const CfName& filter) {
  const PlainFilter plain(filter);
  std::vector<std::size_t> found;
  std::size_t at = 0;
  while (at < names.size() && !plain.fixed_part_agrees(names[at])) ++at;
  bool taken = false;  // a name of this chain was
  for (; at < names.size(); ++at) {
    taken = taken || plain.takes(names[at]);
    if (taken) found.push_back(at);
    if (at + 1 == names.size() || plain.ties(names[at], names[at + 1])) continue;
    if (taken && !plain.fixed_part_agrees(names[at + 1])) break;
    taken = false;
  }
  return found;
}

// Names and filters out of few words, so that they meet.
struct Choice {
  std::mt19937 random;
  explicit Choice(unsigned seed) : random(seed) {}

  std::size_t below(std::size_t limit) { return random() % limit; }
  template <class T>
  const T& of(const std::vector<T>& from) {
    return from[below(from.size())];
  }
};

const std::vector<std::string> short_words = {"",   "A", "B",  "AB", "ABC",  "B1",
                                              "B2", "*", "A*", "?",  "\xC4", "FIX"};
const std::vector<std::string> long_words = {std::string(17, 'L'),       std::string(17, 'L') + "1",
                                             std::string(17, 'L') + "2", std::string(30, 'L'),
                                             std::string(40, 'M'),       std::string(40, 'M') + "*"};
const std::vector<std::string> patterns = {"*",   "*",  "*",   "?",    "A*",   "B?",
                                           "AB*", "*C", "A*C", "LLL*", "M?M*", "A?*"};

std::string word(Choice& choice, bool with_long) {
  if (with_long && choice.below(3) == 0) return choice.of(long_words);
  return choice.of(short_words);
}

// As long as its text fits, each token with its NUL.
std::vector<std::string> random_tokens(Choice& choice, std::size_t most_tokens, bool with_long) {
  std::vector<std::string> tokens;
  std::size_t room = 65;
  const std::size_t count = 1 + choice.below(most_tokens);
  while (tokens.size() < count) {
    const std::string token = word(choice, with_long);
    if (token.size() + 1 > room) break;
    room -= token.size() + 1;
    tokens.push_back(token);
  }
  return tokens;
}

CfName random_name(Choice& choice, std::size_t most_tokens, bool with_long) {
  return cf_name_of(random_tokens(choice, most_tokens, with_long));
}

std::vector<std::string> random_pattern(Choice& choice, std::size_t most_tokens, bool with_long) {
  std::vector<std::string> tokens = random_tokens(choice, most_tokens, with_long);
  for (std::string& token : tokens)
    if (choice.below(3) == 0) token = choice.of(patterns);
  // Tails are the filters' own only at ten tokens.
  if (choice.below(3) != 0) {
    if (choice.below(2) == 0) tokens.back() += "*";
    tokens.resize(choice.below(4) == 0 ? 9 + choice.below(3) : 10, "*");
  }
  return tokens;
}

CfName random_filter(Choice& choice, std::size_t most_tokens, bool with_long) {
  return cf_name_of(random_pattern(choice, most_tokens, with_long));
}

std::vector<CfName> random_names(Choice& choice, std::size_t count, std::size_t most_tokens, bool with_long) {
  std::set<CfName> names;
  while (names.size() < count) names.insert(random_name(choice, most_tokens, with_long));
  return {names.begin(), names.end()};
}

std::vector<Tokens> tokens_of_all(const CatalogIndex& index) {
  std::vector<Tokens> tokens;
  for (const CfName& name : index.names()) tokens.push_back(tokens_of(name));
  return tokens;
}

std::string told(const std::vector<std::size_t>& positions, const std::vector<CfName>& names) {
  std::string text;
  for (const std::size_t position : positions) text += dotted(names[position]) + "\n";
  return text;
}

TEST(ListModel, TokensThatTheEncodingTellsApartAreListedAsTheyMatch) {
  for (unsigned seed = 1; seed <= 10; ++seed) {
    Choice choice(seed);
    // Tokens below sixteen characters, ten of them at most: every difference has a
    // number of its own.
    const CatalogIndex index(random_names(choice, 120, 10, false));
    const std::vector<Tokens> names = tokens_of_all(index);
    for (int round = 0; round < 60; ++round) {
      std::vector<std::string> pattern = random_pattern(choice, 6, false);
      // A star with more behind it does not take a missing token, but opens a tail that
      // does; alone it is both.
      for (std::string& token : pattern)
        if (!token.empty() && token[0] == '*') token = "*";
      const CfName filter = cf_name_of(pattern);
      const Listing listing = index.list(filter);
      ASSERT_EQ(listing.rc, DBE_OK);
      ASSERT_EQ(told(index.positions(listing), index.names()), told(matching(names, filter), index.names()))
          << "seed " << seed << ", filter " << dotted(filter);
    }
  }
}

TEST(ListModel, LongTokensAndElevenTokensAreListedByChains) {
  std::size_t beside = 0;  // lists that are not simply what matches
  for (unsigned seed = 1; seed <= 10; ++seed) {
    Choice choice(seed);
    const CatalogIndex index(random_names(choice, 120, 11, true));
    const std::vector<Tokens> names = tokens_of_all(index);
    for (int round = 0; round < 60; ++round) {
      const CfName filter = random_filter(choice, 6, true);
      const Listing listing = index.list(filter);
      ASSERT_EQ(listing.rc, DBE_OK);
      const std::vector<std::size_t> expected = matching_by_chains(names, filter);
      ASSERT_EQ(told(index.positions(listing), index.names()), told(expected, index.names()))
          << "seed " << seed << ", filter " << dotted(filter);
      if (expected != matching(names, filter)) ++beside;
    }
  }
  EXPECT_GT(beside, 0u) << "the names shall be such that the chains make a difference";
}

// Sound names with some of their bytes overwritten: offsets behind the text, tables
// without an end, tokens that overlap or have no NUL.
std::vector<CfName> damaged_names(Choice& choice, std::size_t count) {
  std::vector<CfName> names = random_names(choice, count, 11, true);
  for (CfName& name : names) {
    const std::size_t hits = choice.below(4);
    for (std::size_t i = 0; i < hits; ++i)
      name[choice.below(11)] = static_cast<unsigned char>(choice.random());
    if (choice.below(5) == 0) std::memset(name.data(), static_cast<int>(choice.below(66)), 11);
    if (choice.below(5) == 0) std::memset(name.data() + 11, 'A', 65);
  }
  return names;
}

TEST(ListModel, DamagedNamesAreListedByTheSameRules) {
  for (unsigned seed = 1; seed <= 10; ++seed) {
    Choice choice(seed);
    const CatalogIndex index(damaged_names(choice, 120));
    const std::vector<Tokens> names = tokens_of_all(index);
    for (int round = 0; round < 60; ++round) {
      CfName filter = random_filter(choice, 6, true);
      // Damaged names are in no order of tokens that could be searched.
      filter[11 + filter[0]] = '*';
      const Listing listing = index.list(filter);
      ASSERT_EQ(listing.rc, DBE_OK);
      ASSERT_EQ(told(index.positions(listing), index.names()),
                told(matching_by_chains(names, filter), index.names()))
          << "seed " << seed << ", filter " << dotted(filter);
    }
  }
}

TEST(ListModel, DamagedFiltersListWithinTheCatalog) {
  for (unsigned seed = 1; seed <= 8; ++seed) {
    Choice choice(seed);
    const CatalogIndex index(damaged_names(choice, 60));
    for (int round = 0; round < 100; ++round) {
      CfName filter = random_filter(choice, 11, true);
      for (int hit = 0; hit < 4; ++hit)
        filter[choice.below(filter.size())] = static_cast<unsigned char>(choice.random());
      const Listing listing = index.list(filter);
      ASSERT_EQ(listing.rc, DBE_OK);
      ASSERT_LE(listing.count, index.names().size());
      const std::vector<std::size_t> positions = index.positions(listing);
      ASSERT_TRUE(std::is_sorted(positions.begin(), positions.end()));
      ASSERT_EQ(std::adjacent_find(positions.begin(), positions.end()), positions.end()) << "none twice";
    }
  }
}

}  // namespace
}  // namespace zvrtest
