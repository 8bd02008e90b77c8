#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

/// @file
/// A list of every operation of the public classes that can wait for a lock. Each is called once on
/// a small tree, with typical arguments.
namespace reliability {

/// The locks that an operation waits for in `Place::folder`, if that folder has no orphans.
enum Waits : unsigned {
  kForNobody = 0,
  kForIndexWriter = 1,  ///< the exclusive lock of "index.dat"
  kForIndexReader = 2,  ///< also the shared lock of "index.dat", because the operation rewrites it
  kForCounter = 4,      ///< the lock of the counter
  kForDocument = 8,     ///< the exclusive lock of the document's file
};

/// The tree. The owner "anna" has two entries. There are also files outside of the storage, a mail
/// folder before its migration, and the document "page.kdc", version 5, of the docs area. It has
/// the sub-parts "part", with a newer preload copy, and "current".
struct Place {
  std::string root;
  bool synchronize = false;

  std::string folder() const { return root + "\\storage\\user\\anna"; }
  std::string document() const { return folder() + "\\00000001.kdb"; }
  std::string plain(const std::string& name) const { return root + "\\plain\\" + name; }
};

/// The state of the folder. kStrays: it contains orphans.
enum class Situation : std::uint8_t { kTidy, kStrays, kNoIndex };
const char* name_of(Situation situation);

/// Creates the tree again.
void prepare(const Place& place, Situation situation);

/// A result as text, for example "true" or "-1". Empty for a type that reports no failures.
template <class Result>
std::string in_text(const Result& result) {
  if constexpr (std::is_same_v<Result, bool>) {
    return result ? "true" : "false";
  } else if constexpr (std::is_integral_v<Result>) {
    return std::to_string(result);
  } else if constexpr (std::is_same_v<Result, std::string>) {
    return "'" + result + "'";
  } else {
    return {};
  }
}

/// Calls one operation and returns its result as text.
class OperationCall {
 public:
  template <class Function>
  OperationCall(Function function)  // NOLINT(google-explicit-constructor): a lambda in a table
      : m_call([function](const Place& place) -> std::string {
          if constexpr (std::is_void_v<decltype(function(place))>) {
            function(place);
            return {};
          } else {
            return in_text(function(place));
          }
        }) {}
  std::string operator()(const Place& place) const { return m_call(place); }

 private:
  std::function<std::string(const Place&)> m_call;
};

struct PublicOperation {
  std::string name;
  unsigned waits;
  OperationCall call;
};
const std::vector<PublicOperation>& public_operations();

// ------------------------------------------------------------------------------------------------

/// Operations with an injected defect, which the suites must detect.
const std::vector<PublicOperation>&
operations_that_cut_first();  ///< a save that truncates the index first
const std::vector<PublicOperation>&
operations_that_leak();  ///< a handle or memory leaks after a failure
const std::vector<PublicOperation>& operations_that_say_nothing();  ///< a failure without a trace
const std::vector<PublicOperation>&
operations_that_let_out();  ///< throws an exception that its header excludes
const std::vector<PublicOperation>&
operations_that_always_fail();  ///< throws, returns a failure, or traces an error without a fault

}  // namespace reliability
