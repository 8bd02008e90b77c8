// The committed inputs of the fuzz targets, run once each without a fuzzer.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/fuzz/target.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputs_of(const std::string& target) {
  std::vector<fs::path> inputs;
  for (const auto& entry : fs::directory_iterator(fs::path(VU_FUZZ_CORPUS) / target))
    inputs.push_back(entry.path());
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

std::string bytes_of(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.good()) << path;
  return {std::istreambuf_iterator<char>(in), {}};
}

class FuzzCorpus : public testing::TestWithParam<fuzz::Target> {};

TEST_P(FuzzCorpus, HoldsNoFinding) {
  const fuzz::Target target = GetParam();
  const std::vector<fs::path> inputs = inputs_of(target.name);
  ASSERT_FALSE(inputs.empty());
  for (const fs::path& each : inputs) {
    SCOPED_TRACE(each.filename().string());
    EXPECT_NO_THROW(target.function(bytes_of(each)));
  }
  // The least that there is.
  EXPECT_NO_THROW(target.function(""));
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzCorpus, testing::ValuesIn(fuzz::targets()),
                         [](const testing::TestParamInfo<fuzz::Target>& target) {
                           std::string name = target.param.name;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

TEST(FuzzTarget, ThatFindsSomethingSaysSo) {
  EXPECT_THROW(fuzz::require(false, "never"), fuzz::Finding);
  EXPECT_THROW(fuzz::require_equal("a", "b", "letters"), fuzz::Finding);
  EXPECT_NO_THROW(fuzz::require_equal("a", "a", "letters"));
}

}  // namespace
