#pragma once

#include <functional>
#include <string>
#include <vector>

#include "api/store.h"
#include "index/index_gate.h"

namespace api {

/// The owners with a folder in an area, in the narrow encoding; only "_" if they share it.
std::vector<std::string> owners_in(const Store& store, STG::RepositoryType type);
/// The folders of documents of an owner in an area: one, or the hash buckets.
std::vector<std::string> folders_of(const Store& store, STG::RepositoryType type,
                                    const std::string& owner);
/// Calls @p visit for each entry of a folder, as IndexGate::visit().
/// @return VU_PARTLY_DONE if the folder cannot be listed and so orphans are not adopted; the call
/// then has heard a refusal.
vu_status visit_entries(const std::string& folder, const IndexGate::Visit& visit);
/// An owner for the caller, UTF-8: empty where owners share folders.
std::string told_owner(const Store& store, const std::string& owner);

/// Calls a callback. @throws Refusal VU_INTERRUPTED unless it returns 0.
template <class Callback>
void go_on(const Callback& callback) {
  std::int32_t answer = 0;
  {
    const Pause pause;
    answer = callback();
  }
  if (answer != 0) throw Refusal{VU_INTERRUPTED, "the callback ended the call", {}};
}

}  // namespace api
