// The fuzzer's entry, built once for each target (VU_FUZZ_TARGET).

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lab/fuzz/target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Target target = [] {
    for (const fuzz::Target& each : fuzz::targets()) {
      if (std::strcmp(each.name, VU_FUZZ_TARGET) == 0) return each;
    }
    std::fprintf(stderr, "unknown target " VU_FUZZ_TARGET "\n");
    std::exit(2);
  }();
  try {
    target.function({reinterpret_cast<const char*>(data), size});
  } catch (const fuzz::Finding& finding) {
    std::fprintf(stderr, "finding: %s\n", finding.what());
    std::abort();
  }
  return 0;
}
