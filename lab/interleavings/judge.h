#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "lab/interleavings/operations.h"
#include "lab/interleavings/tree.h"

/// @file
/// Decides whether a run may end as it did.
///
/// The final tree and all results must be those of the operations one after the other, in some
/// order. Otherwise each difference must belong to a story of docs/concurrency.md. No story excuses
/// a change of another entry's bytes, or an entry that no operation created. The same is true for
/// an index that is not whole, and for an operation that waits for itself.
namespace interleavings {

/// The end of a run.
struct Outcome {
  std::vector<std::string> answers;  ///< without numbers
  Facts facts;
  std::vector<bool> killed;

  bool operator==(const Outcome&) const = default;
};

/// One difference between the end of a run and the end of an order.
struct Difference {
  int answer_of = -1;  ///< the operation whose result differs; -1: a fact differs
  std::string what;    ///< the fact
  std::string wanted;  ///< the value in the order; kNothing if it has no such fact
  std::string found;

  static constexpr const char* kNothing = "(nothing)";
};
std::string in_words(const Difference& difference);

/// The facts from which the rules of races decide.
struct Evidence {
  const Combination& combination;
  const Facts& before;
  const Outcome& outcome;
  const std::vector<Difference>& all;
  const std::vector<Outcome>& orders;

  bool any_does(std::uint32_t effect) const;
  /// The number of operations with this effect.
  std::size_t count(std::uint32_t effect) const;
  bool does(int who, std::uint32_t effect) const;
  /// Whether operation @p who has this name.
  bool is(int who, const std::string& name) const;
  bool any_is(const std::string& name) const;
  bool has_kill() const;
  /// Whether a killed operation has this effect.
  bool killed_does(std::uint32_t effect) const;
  /// Whether some order has this result or fact.
  bool some_order_gives(const Difference& difference) const;
};

struct Race {
  std::string name;
  std::string story;  ///< its heading in docs/concurrency.md
  bool (*explains)(const Evidence& evidence, const Difference& difference) = nullptr;
  bool needs_a_kill = false;  ///< it occurs only if an operation is killed
};
const std::vector<Race>& accepted_races();

struct Verdict {
  std::string wrong;               ///< empty if the run may end like this
  std::vector<std::string> races;  ///< the races that explain it
};

class Judge {
 public:
  /// @param combination must outlive this object.
  Judge(const Combination& combination, Facts before, std::vector<Outcome> orders)
      : m_combination(combination), m_before(std::move(before)), m_orders(std::move(orders)) {}

  Verdict judge(const Outcome& outcome) const;

 private:
  std::vector<Outcome> orders_with_who_lived(const Outcome& outcome) const;
  std::string broken_promise(const Outcome& outcome) const;
  bool is_touched(const std::string& fact) const;
  bool may_be_adopted(const std::string& key) const;
  std::vector<Difference> differences(const Outcome& order, const Outcome& outcome) const;

  const Combination& m_combination;
  const Facts m_before;
  const std::vector<Outcome> m_orders;
};

}  // namespace interleavings
