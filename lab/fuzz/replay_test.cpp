// Runs the committed inputs of the fuzz targets once each, without a fuzzer.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "lab/fuzz/target.h"

namespace {

namespace fs = std::filesystem;

/// The bytes of a line of a corpus. Escapes: "\n", "\r", "\t", "\\" and "\xHH", as in C++.
std::string bytes_of(const std::string& line) {
  std::string bytes;
  for (std::size_t at = 0; at < line.size(); ++at) {
    if (line[at] != '\\') {
      bytes += line[at];
      continue;
    }
    const char kind = line.at(++at);
    if (kind == 'x') {
      bytes += static_cast<char>(std::stoi(line.substr(at + 1, 2), nullptr, 16));
      at += 2;
    } else {
      bytes += kind == 'n' ? '\n' : kind == 'r' ? '\r' : kind == 't' ? '\t' : kind;
    }
  }
  return bytes;
}

/// One input per line. Lines that begin with "#" are comments.
std::vector<std::string> lines_of(const std::string& target) {
  // Without the sources the inputs are elsewhere.
  const char* const named = std::getenv("VU_FUZZ_CORPUS");
  std::ifstream in(fs::path(named != nullptr ? named : VU_FUZZ_CORPUS) / (target + ".txt"));
  EXPECT_TRUE(in.good()) << target;
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] != '#') lines.push_back(line);
  }
  return lines;
}

class FuzzCorpus : public testing::TestWithParam<fuzz::Target> {};

TEST_P(FuzzCorpus, HasNoFinding) {
  const fuzz::Target target = GetParam();
  const std::vector<std::string> lines = lines_of(target.name);
  ASSERT_FALSE(lines.empty());
  for (const std::string& each : lines) {
    SCOPED_TRACE(each);
    EXPECT_NO_THROW(target.function(bytes_of(each)));
  }
  // The smallest input.
  EXPECT_NO_THROW(target.function(""));
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzCorpus, testing::ValuesIn(fuzz::targets()),
                         [](const testing::TestParamInfo<fuzz::Target>& target) {
                           std::string name = target.param.name;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

TEST(FuzzCorpusLine, DecodesToBytes) {
  EXPECT_EQ(bytes_of(""), "");
  EXPECT_EQ(bytes_of("a\\n\\r\\t\\\\x\\x00\\xffb"), std::string("a\n\r\t\\x\0\xff"
                                                                "b",
                                                                9));
}

TEST(FuzzTarget, ReportsAFinding) {
  EXPECT_THROW(fuzz::require(false, "never"), fuzz::Finding);
  EXPECT_THROW(fuzz::require_equal("a", "b", "letters"), fuzz::Finding);
  EXPECT_NO_THROW(fuzz::require_equal("a", "a", "letters"));
}

}  // namespace
