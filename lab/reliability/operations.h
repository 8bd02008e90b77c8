#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

/// @file
/// Every operation of the library's public classes that can meet a lock, each called once with
/// sensible arguments on a small tree.
namespace reliability {

/// Which holder of a lock an operation has to wait for, in the folder `Place::folder`, when no file
/// is there that the index does not name.
enum Waits : unsigned {
  kForNobody = 0,
  kForIndexWriter = 1,  ///< who holds "index.dat" exclusively
  kForIndexReader = 2,  ///< who reads it as well: the operation rewrites it
  kForCounter = 4,      ///< who holds the counter
  kForDocument = 8,     ///< who holds the document's file exclusively
};

/// The tree: an owner "anna" with two entries, plain files, an old mail folder, a corporate
/// document.
struct Place {
  std::string root;
  bool synchronize = false;

  std::string folder() const { return root + "\\storage\\user\\anna"; }
  std::string document() const { return folder() + "\\00000001.kdb"; }
  std::string plain(const std::string& name) const { return root + "\\plain\\" + name; }
};

/// What the folder holds besides its entries.
enum class Situation : std::uint8_t { kTidy, kStrays, kNoIndex };
const char* name_of(Situation situation);

/// Makes the tree anew.
void prepare(const Place& place, Situation situation);

/// What an operation gave back, as text: "true", "-1"; nothing for what says nothing about success.
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

/// Calls one operation, and keeps what it gives back.
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

/// Operations with a defect each: what the suites must find.
const std::vector<PublicOperation>&
operations_that_cut_first();  ///< a save that empties the index first
const std::vector<PublicOperation>&
operations_that_leak();  ///< a handle or memory, after a failure
const std::vector<PublicOperation>& operations_that_say_nothing();  ///< a failure without a trace
const std::vector<PublicOperation>&
operations_that_let_out();  ///< an exception that none may let out

}  // namespace reliability
