#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "client/admin/check.h"
#include "client/stgctl/context.h"
#include "client/stgctl/output.h"

namespace stgctl {

/// Whether long lists are cut.
enum class Lists : std::uint8_t { kCut, kWhole };

/// What a check has found, told in order: the gravest first, then by folder. At the end stand the
/// sums and what to do next.
class CheckReport {
 public:
  CheckReport(Context& context, Lists lists) : m_context(context), m_lists(lists) {}

  /// Takes a finding; as JSON it is told at once.
  void add(admin::Finding finding);
  bool is_empty() const { return m_findings.empty(); }
  /// Tells everything. @param summary also gets what only saved names tell. @param full whether it
  /// was a full check.
  void finish(admin::CheckSummary& summary, bool full);

 private:
  bool is_owner_replaced(const admin::Finding& finding);
  void look_up_lost_documents();
  void show_findings();
  void show_sums() const;
  std::vector<std::string> next_steps();
  std::string next_step(const std::string& folder, const std::vector<admin::Code>& codes);
  std::string relative(const std::string& path) const;
  std::string where_of(const admin::Finding& finding) const;
  void show_json_summary(const admin::CheckSummary& summary, bool full,
                         const std::vector<std::string>& next);

  Context& m_context;
  Lists m_lists;
  std::vector<admin::Finding> m_findings;
  std::uint64_t m_replaced_owners = 0;
  std::uint64_t m_lost = 0;  ///< documents of folders that are gone as a whole
};

/// The style of a severity.
Style style_of(admin::Severity severity);

}  // namespace stgctl
