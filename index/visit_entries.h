#pragma once

#include "index/loaded_index.h"
#include "stg_index.h"

template <class Visit>
void STGIndex::visitEntries(Visit visit) const {
  if (!m_hasMaps) {
    for (const IndexEntry& entry : m_loaded->entries) visit(entry.key, entry.stored);
    return;
  }
  for (const auto& [key, stored] : m_lp) visit(key, stored);
}
