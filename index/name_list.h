#pragma once

#include <functional>
#include <string_view>

#include "index/index_state.h"

/// Calls @p visit for the entries, in the order of the physical file names. Of several entries with
/// one physical file name, only the first one is visited. The views are valid during the call.
void visit_physical_names(
    const IndexState& state,
    const std::function<void(std::string_view file, std::string_view logical)>& visit);

/// Adds physical file name -> logical name of the entries to a map. Of several entries with one
/// physical file name, the first one is added; a name that the map contains already stays as it is.
///
/// The index and the map have different orders. So the names are sorted first, in one piece of
/// memory. Then the map appends each node at its end, without a search.
/// @param is_wanted which logical names; null for all.
void add_physical_names(const IndexState& state, IndexState::NameMap& out,
                        bool (*is_wanted)(std::string_view logical) = nullptr);
