#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "lab/interleavings/combinations.h"
#include "lab/interleavings/tree.h"

/// @file
/// Whether a run may end so.
///
/// Its end and all its answers are those of the operations one after the other, in some order. Or
/// else each difference from such an order belongs to a race that docs/concurrency.md tells.
/// Whatever anybody tells, an entry that nobody was about has its bytes, there is no entry that
/// nobody made, every index is whole, and nobody waits for himself.
namespace interleavings {

/// What came of a run.
struct Outcome {
  std::vector<std::string> answers;  ///< without numbers
  Facts facts;
  std::vector<bool> killed;

  bool operator==(const Outcome&) const = default;
};

/// Something in which an end differs from that of an order.
struct Difference {
  int answer_of = -1;  ///< whose answer; -1: a fact
  std::string what;    ///< the fact
  std::string wanted;  ///< what the order gives; kNothing where it has no such fact
  std::string found;

  static constexpr const char* kNothing = "(nothing)";
};
std::string in_words(const Difference& difference);

/// What a race is judged by.
struct Evidence {
  const Combination& combination;
  const Facts& before;
  const Outcome& outcome;
  const std::vector<Difference>& all;
  const std::vector<Outcome>& orders;

  bool any_does(std::uint32_t effect) const;
  /// How many do.
  std::size_t count(std::uint32_t effect) const;
  bool does(int who, std::uint32_t effect) const;
  /// Whether it is the operation of this name.
  bool is(int who, const std::string& name) const;
  bool any_is(const std::string& name) const;
  bool has_kill() const;
  /// Whether somebody who was killed does.
  bool killed_does(std::uint32_t effect) const;
  /// Whether some order gives this answer, or this fact.
  bool some_order_gives(const Difference& difference) const;
};

struct Race {
  std::string name;
  std::string story;  ///< its heading in docs/concurrency.md
  bool (*explains)(const Evidence& evidence, const Difference& difference) = nullptr;
  bool needs_a_kill = false;  ///< it occurs only where somebody ends on the way
};
const std::vector<Race>& accepted_races();

struct Verdict {
  std::string wrong;               ///< empty when the run may end so
  std::vector<std::string> races;  ///< the names of those that explain it
};

class Judge {
 public:
  Judge(const Combination& combination, const Facts& before, std::vector<Outcome> orders)
      : m_combination(combination), m_before(before), m_orders(std::move(orders)) {}

  Verdict judge(const Outcome& outcome) const;

 private:
  std::vector<Outcome> orders_with_who_lived(const Outcome& outcome) const;
  std::string broken_promise(const Outcome& outcome) const;
  bool is_touched(const std::string& fact) const;
  bool may_be_adopted(const std::string& key) const;
  std::vector<Difference> differences(const Outcome& order, const Outcome& outcome) const;

  const Combination& m_combination;
  const Facts& m_before;
  const std::vector<Outcome> m_orders;
};

}  // namespace interleavings
