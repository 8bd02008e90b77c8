#pragma once

#include <string>
#include <utility>
#include <vector>

#include "stg_types.h"

/// Lines of key files, for comparisons.
using Pairs = std::vector<std::pair<std::string, std::string>>;

inline Pairs pairs_of(const STG::NameValueSeq& seq) {
  Pairs pairs;
  for (const STG::NameValue& line : seq) pairs.emplace_back(line.name, line.value);
  return pairs;
}

inline STG::NameValueSeq sequence_of(const Pairs& pairs) {
  STG::NameValueSeq seq;
  for (const auto& [name, value] : pairs) seq.push_back({name, value});
  return seq;
}
