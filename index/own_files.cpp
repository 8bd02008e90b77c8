#include "index/own_files.h"

#include <utility>

namespace {

constinit thread_local OwnFiles* t_rule = nullptr;

}  // namespace

OwnFiles::OwnFiles(IfEntered if_entered) noexcept
    : m_if_entered(if_entered), m_before(std::exchange(t_rule, this)) {}

OwnFiles::~OwnFiles() { t_rule = m_before; }

std::optional<IfEntered> OwnFiles::if_entered() noexcept {
  return t_rule != nullptr ? std::optional(t_rule->m_if_entered) : std::nullopt;
}

void OwnFiles::note_yield() noexcept {
  if (t_rule != nullptr) t_rule->m_has_yielded = true;
}

void OwnFiles::note(std::string path) noexcept {
  if (t_rule != nullptr) t_rule->m_last = std::move(path);
}

void OwnFiles::forget(std::string_view path) noexcept {
  if (t_rule != nullptr && t_rule->m_last == path) t_rule->m_last.clear();
}
