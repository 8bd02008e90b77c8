#pragma once

#include <algorithm>
#include <string>
#include <vector>

/// @file
/// Which names a search pattern finds: what the Windows calls answered for a folder of these names,
/// observed and written down. "." and ".." are entries of every folder.

inline const std::vector<std::string>& pattern_names() {
  static const std::vector<std::string> names = {
      ".", "..", "a", "ab", "abc", "a.b", "a.bc", "noext", "x.y.z", ".hid", "dir.d", "00000001"};
  return names;
}

struct PatternCase {
  std::string pattern;
  std::vector<std::string> found;

  bool finds(const std::string& name) const {
    return std::find(found.begin(), found.end(), name) != found.end();
  }
};

inline const std::vector<PatternCase>& pattern_cases() {
  static const std::vector<PatternCase> cases = {
      {"*", pattern_names()},
      {"**", pattern_names()},
      {"*.*", pattern_names()},
      {"*.*.*", pattern_names()},
      {"*.", pattern_names()},
      {"*..", pattern_names()},
      {"?*", pattern_names()},
      {"?", {".", "a"}},
      {"?.", {".", "a"}},
      {"??", {"..", "ab"}},
      {"???", {"abc", "a.b"}},
      {"a*", {"a", "ab", "abc", "a.b", "a.bc"}},
      {"a*.", {"a", "ab", "abc", "a.b", "a.bc"}},
      {"a*.*", {"a", "ab", "abc", "a.b", "a.bc"}},
      {"a?", {"ab"}},
      {"a??", {"abc", "a.b"}},
      {"a.?", {"a.b"}},
      {"a.??", {"a.bc"}},
      {"a.*", {"a", "a.b", "a.bc"}},
      {"?.*", {".", "..", "a", "a.b", "a.bc", "x.y.z"}},
      {"?.b", {"a.b"}},
      {"*.b", {"a.b"}},
      {"*.b*", {"a.b", "a.bc"}},
      {"*.b?", {"a.bc"}},
      {"*.z", {"x.y.z"}},
      {"*.y.z", {"x.y.z"}},
      {"x.*", {"x.y.z"}},
      {"x.*.z", {"x.y.z"}},
      {"*y*", {"x.y.z"}},
      {"noext.*", {"noext"}},
      {"noext*", {"noext"}},
      {"noext?", {}},
      {"q*", {}},
      {".*", {".", "..", ".hid"}},
      {"*hid", {".hid"}},
      {"?hid", {".hid"}},
      {"dir.*", {"dir.d"}},
      {"*.d.", {"dir.d"}},
      {"*d", {".hid", "dir.d"}},
      {"0000000?", {"00000001"}},
      {"0000????", {"00000001"}},
      {"*1", {"00000001"}},
      {"a**c", {"abc", "a.bc"}},
      {"a*b*c", {"abc", "a.bc"}},
      {"*a?c", {"abc"}},
      {"abc?.", {}},
  };
  return cases;
}
