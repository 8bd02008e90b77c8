#include "lab/interleavings/judge.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace interleavings {
namespace {

constexpr std::size_t kStamp = 11;

/// "storage/user/anna: report.kdb_0000000000" -> "storage/user/anna"; empty for other facts.
std::string folder_of_entry(const std::string& fact) {
  const std::size_t colon = fact.find(": ");
  if (colon == std::string::npos || fact.size() < colon + 2 + kStamp) return "";
  if (fact[fact.size() - kStamp] != '_') return "";
  const std::string digits = fact.substr(fact.size() - kStamp + 1);
  const bool is_stamp = digits.find_first_not_of("0123456789") == std::string::npos;
  return is_stamp && fact.find(": below ") == std::string::npos ? fact.substr(0, colon) : "";
}

std::string key_of_entry(const std::string& fact) { return fact.substr(fact.find(": ") + 2); }

std::string key_of(const std::string& entry) { return entry + "_0000000000"; }

/// The keys that an operation names.
std::set<std::string> keys_touched(const Operation& operation, const Target& target) {
  std::set<std::string> keys;
  if (operation.does(kMakes | kRemoves | kRenames | kWrites)) keys.insert(key_of(target.entry));
  if (operation.does(kRenames)) keys.insert(key_of(target.to));
  if (operation.does(kRenames) && operation.does(kRemoves)) {
    keys.insert(key_of(kOld));
    keys.insert(key_of(kYoung));
  }
  if (operation.does(kCuts)) keys.insert(key_of(kList));
  if (operation.does(kCleans)) keys.insert(key_of(kOld));
  return keys;
}

}  // namespace

std::string in_words(const Difference& difference) {
  const std::string what =
      difference.answer_of >= 0
          ? std::string("the answer of ") + static_cast<char>('A' + difference.answer_of)
          : difference.what;
  return what + " is '" + shown(difference.found) + "' instead of '" + shown(difference.wanted) +
         "'";
}

// ---- the evidence -------------------------------------------------------------------------------

bool Evidence::any_does(std::uint32_t effect) const { return count(effect) != 0; }

std::size_t Evidence::count(std::uint32_t effect) const {
  return static_cast<std::size_t>(
      std::count_if(combination.operations.begin(), combination.operations.end(),
                    [&](const Operation* each) { return each->does(effect); }));
}

bool Evidence::does(int who, std::uint32_t effect) const {
  return who >= 0 && combination.operations.at(static_cast<std::size_t>(who))->does(effect);
}

bool Evidence::is(int who, const std::string& name) const {
  return who >= 0 && combination.operations.at(static_cast<std::size_t>(who))->name == name;
}

bool Evidence::any_is(const std::string& name) const {
  return std::any_of(combination.operations.begin(), combination.operations.end(),
                     [&](const Operation* each) { return each->name == name; });
}

bool Evidence::has_kill() const {
  return std::find(outcome.killed.begin(), outcome.killed.end(), true) != outcome.killed.end();
}

bool Evidence::killed_does(std::uint32_t effect) const {
  for (std::size_t i = 0; i < outcome.killed.size(); ++i) {
    if (outcome.killed[i] && combination.operations[i]->does(effect)) return true;
  }
  return false;
}

bool Evidence::some_order_gives(const Difference& difference) const {
  return std::any_of(orders.begin(), orders.end(), [&](const Outcome& order) {
    if (difference.answer_of >= 0)
      return order.answers[static_cast<std::size_t>(difference.answer_of)] == difference.found;
    const auto fact = order.facts.find(difference.what);
    return (fact == order.facts.end() ? Difference::kNothing : fact->second) == difference.found;
  });
}

// ---- the judge ----------------------------------------------------------------------------------

Verdict Judge::judge(const Outcome& outcome) const {
  Verdict verdict{broken_promise(outcome), {}};
  if (!verdict.wrong.empty()) return verdict;
  const std::vector<Outcome> orders = orders_with_who_lived(outcome);
  std::vector<Difference> fewest;
  for (std::size_t i = 0; i < orders.size(); ++i) {
    std::vector<Difference> all = differences(orders[i], outcome);
    if (all.empty()) return {};
    const Evidence evidence{m_combination, m_before, outcome, all, orders};
    std::set<std::string> races;
    std::vector<Difference> rest;
    for (const Difference& each : all) {
      const auto& known = accepted_races();
      const auto race = std::find_if(known.begin(), known.end(),
                                     [&](const Race& one) { return one.explains(evidence, each); });
      race == known.end() ? rest.push_back(each) : void(races.insert(race->name));
    }
    if (rest.empty()) return {"", {races.begin(), races.end()}};
    if (i == 0 || rest.size() < fewest.size()) fewest = std::move(rest);
  }
  verdict.wrong = "no order of the operations has this end, and no story explains it:";
  for (const Difference& each : fewest) verdict.wrong += "\n    " + in_words(each);
  return verdict;
}

/// An operation that was not killed is complete, so orders without it are ignored.
std::vector<Outcome> Judge::orders_with_who_lived(const Outcome& outcome) const {
  std::vector<Outcome> orders;
  std::copy_if(m_orders.begin(), m_orders.end(), std::back_inserter(orders),
               [&](const Outcome& order) {
                 return std::equal(order.killed.begin(), order.killed.end(), outcome.killed.begin(),
                                   [](bool left_out, bool died) { return died || !left_out; });
               });
  return orders;
}

/// Defects that no story excuses.
std::string Judge::broken_promise(const Outcome& outcome) const {
  const bool owner_moves =
      std::any_of(m_combination.operations.begin(), m_combination.operations.end(),
                  [](const Operation* each) { return each->does(kMovesOwner); });
  for (const auto& [fact, bytes] : m_before) {
    if (folder_of_entry(fact).empty() || is_touched(fact)) continue;
    const auto found = outcome.facts.find(fact);
    if (found == outcome.facts.end()) return "an entry that no operation names is lost: " + fact;
    if (found->second != bytes)
      return "an entry that no operation names has other bytes: " + fact + ": " +
             shown(found->second);
  }
  for (const auto& [fact, bytes] : outcome.facts) {
    if (fact.ends_with(": index") && bytes != "whole" && bytes != "none" && !owner_moves &&
        std::find(outcome.killed.begin(), outcome.killed.end(), true) == outcome.killed.end())
      return fact + " is " + bytes;
    if (fact.ends_with(": the counter is too low") && !owner_moves) return fact + " at " + bytes;
    if (fact.ends_with(": two entries, one file") && !m_combination.synchronize &&
        !m_before.contains(fact))
      return fact + ": " + bytes;
    if (folder_of_entry(fact).empty() || m_before.contains(fact) || is_touched(fact)) continue;
    if (!may_be_adopted(key_of_entry(fact))) return "an entry that no operation created: " + fact;
  }
  return "";
}

bool Judge::is_touched(const std::string& fact) const {
  const std::string folder = folder_of_entry(fact);
  for (std::size_t i = 0; i < m_combination.operations.size(); ++i) {
    const Operation& operation = *m_combination.operations[i];
    const Target target = m_combination.target_of(i, "");
    if (operation.does(kMovesOwner)) {
      if (folder.ends_with("/" + target.owner) || folder.ends_with("/carl")) return true;
      continue;
    }
    const std::string own = std::string("storage/") + operation.area + "/" + target.owner;
    if (!folder.starts_with(own)) continue;
    // In mail folders and docs folders, the operation concerns the whole folder.
    if (operation.area != std::string("user") || operation.does(kCleansAll)) return true;
    if (keys_touched(operation, target).contains(key_of_entry(fact))) return true;
  }
  return false;
}

/// With synchronisation on, an orphan may become an entry, with its extension in lower case.
bool Judge::may_be_adopted(const std::string& key) const {
  if (!m_combination.synchronize || !key.ends_with("_0000000000")) return false;
  const std::string name = key.substr(0, key.size() - kStamp);
  const bool is_generated =
      name.size() >= 8 && name.substr(0, 8).find_first_not_of("0123456789") == std::string::npos;
  return is_generated || name == kStray || name == kOld || name == kBystander;
}

std::vector<Difference> Judge::differences(const Outcome& order, const Outcome& outcome) const {
  std::vector<Difference> all;
  for (std::size_t i = 0; i < outcome.answers.size(); ++i) {
    if (outcome.killed[i] || outcome.answers[i] == order.answers[i]) continue;
    all.push_back({static_cast<int>(i), "", order.answers[i], outcome.answers[i]});
  }
  for (const auto& [fact, value] : order.facts) {
    const auto found = outcome.facts.find(fact);
    if (found == outcome.facts.end()) {
      all.push_back({-1, fact, value, Difference::kNothing});
    } else if (found->second != value) {
      all.push_back({-1, fact, value, found->second});
    }
  }
  for (const auto& [fact, value] : outcome.facts) {
    if (!order.facts.contains(fact)) all.push_back({-1, fact, Difference::kNothing, value});
  }
  return all;
}

}  // namespace interleavings
