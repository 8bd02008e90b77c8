#pragma once

#include <functional>
#include <string>

#include "api/store.h"

namespace api {

/// The owners with a folder in an area, as the library names them; one, "_", where they share it.
std::vector<std::string> owners_in(const Store& store, STG::RepositoryType type);
/// The folders with indexes of an owner in an area.
std::vector<std::string> folders_of(const Store& store, STG::RepositoryType type,
                                    const std::string& owner);
/// An owner for the caller: empty where owners share folders.
std::string told_owner(const Store& store, const std::string& owner);

/// Throws Refusal VU_INTERRUPTED unless a callback goes on.
inline void go_on(std::int32_t answer) {
  if (answer != 0) throw Refusal{VU_INTERRUPTED, "the callback ended it", {}};
}

}  // namespace api
