#include "lab/fuzz/target.h"

namespace fuzz {

std::vector<Target>& targets() {
  static std::vector<Target> all;
  return all;
}

}  // namespace fuzz
