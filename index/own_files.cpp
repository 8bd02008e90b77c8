#include "index/own_files.h"

#include <utility>

namespace {

constinit thread_local OwnFiles* t_rule = nullptr;

}  // namespace

OwnFiles::OwnFiles(Rule rule) noexcept : m_rule(rule), m_before(std::exchange(t_rule, this)) {}

OwnFiles::~OwnFiles() { t_rule = m_before; }

bool OwnFiles::are_required() noexcept { return t_rule != nullptr && t_rule->m_rule == Rule::kOn; }

bool OwnFiles::has_made(const std::string& path) noexcept {
  return are_required() && t_rule->m_last == path;
}

void OwnFiles::note(std::string path) noexcept {
  if (are_required()) t_rule->m_last = std::move(path);
}
