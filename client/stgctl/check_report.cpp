#include "client/stgctl/check_report.h"

#include <algorithm>
#include <tuple>

#include "client/admin/name_snapshot.h"
#include "client/admin/repair_text.h"
#include "client/stgctl/report.h"
#include "client/stgctl/saved_names.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

using admin::CheckSummary;
using admin::Code;
using admin::Finding;
using admin::FindingKind;
using admin::Severity;

/// So many findings of one kind in one folder are listed, and so many lines of sums.
constexpr std::size_t kListed = 10;

bool is_about_names(Code code) {
  return code == Code::kEmptyIndex || code == Code::kMissingIndex ||
         code == Code::kFileWithoutLine || code == Code::kMalformedLine;
}

bool is_repaired(Code code) {
  switch (code) {
    case Code::kLineWithoutFile:
    case Code::kDuplicateKey:
    case Code::kMalformedLine:
    case Code::kDanglingKeyLine:
    case Code::kDanglingCategoryLine:
    case Code::kCounterBehind:
    case Code::kCounterUnreadable:
    case Code::kPartsWithoutDocument:
    case Code::kFileWithoutLine:
      return true;
    default:
      return false;
  }
}

bool is_folder_gone(Code code) {
  return code == Code::kFolderReplaced || code == Code::kMissingArea;
}

bool has(const std::vector<Code>& codes, bool (*matches)(Code)) {
  return std::any_of(codes.begin(), codes.end(), matches);
}

std::string place_of(const Finding& finding) {
  return finding.name.empty() ? finding.folder : admin::sys::join(finding.folder, finding.name);
}

Json fields_of(const Finding& finding) {
  const FindingKind& kind = admin::kind_of(finding.code);
  Json fields;
  fields["record"] = "finding";
  fields["code"] = kind.name;
  fields["severity"] = admin::name_of(kind.severity);
  if (finding.area) fields["area"] = admin::name_of(*finding.area);
  put_name(fields, "owner", finding.owner);
  put_name(fields, "folder", finding.folder);
  put_name(fields, "name", finding.name);
  if (finding.timestamp) fields["timestamp"] = *finding.timestamp;
  if (finding.line != 0) fields["line"] = finding.line;
  put_name(fields, "detail", finding.detail);
  return fields;
}

}  // namespace

Style style_of(Severity severity) {
  if (severity == Severity::kError) return Style::kRed;
  return severity == Severity::kWarning ? Style::kYellow : Style::kBlue;
}

/// A file where an owner's folder was is told from any other file by saved names alone.
bool CheckReport::is_owner_replaced(const Finding& finding) {
  if (finding.code != Code::kStrayItem || !finding.area ||
      finding.folder != m_context.tree().folder_of(*finding.area) ||
      admin::sys::describe(place_of(finding)).kind != admin::sys::Kind::kFile)
    return false;
  std::uint64_t snapshot = 0;
  return SavedNames(m_context).entries_below(place_of(finding), snapshot) != 0;
}

void CheckReport::add(Finding finding) {
  if (is_owner_replaced(finding)) {
    finding.code = Code::kFolderReplaced;
    finding.detail.clear();
    ++m_replaced_owners;
  }
  if (m_context.out().json()) m_context.out().json_line("stgctl.check/1", fields_of(finding));
  m_findings.push_back(finding);
}

std::string CheckReport::relative(const std::string& path) const {
  return shown(admin::saved_name_of(m_context.tree(), path));
}

/// Of a folder that is gone only saved names know how much was in it.
void CheckReport::look_up_lost_documents() {
  const bool any = std::any_of(m_findings.begin(), m_findings.end(),
                               [](const Finding& each) { return is_folder_gone(each.code); });
  if (!any) return;
  SavedNames saved(m_context);
  for (Finding& finding : m_findings) {
    if (!is_folder_gone(finding.code)) continue;
    std::uint64_t snapshot = 0;
    const std::uint64_t count = saved.entries_below(place_of(finding), snapshot);
    m_lost += count;
    finding.detail = snapshot == 0
                         ? "how many documents were in it no snapshot knows"
                         : formatted("{} documents are not served (snapshot {})", count, snapshot);
  }
}

/// A version as every line prints it, and its folder; else the path.
std::string CheckReport::where_of(const Finding& finding) const {
  if (!finding.timestamp || !finding.area) return shown(place_of(finding));
  const Subject version = {std::string(admin::name_of(*finding.area)), finding.owner, finding.name,
                           *finding.timestamp};
  return formatted("{} in {}", shown(version), relative(finding.folder));
}

void CheckReport::show_findings() {
  const auto order = [](const Finding& finding) {
    return std::tuple(-static_cast<int>(admin::kind_of(finding.code).severity),
                      std::string_view(finding.folder), finding.code, finding.line,
                      std::string_view(finding.name));
  };
  std::stable_sort(m_findings.begin(), m_findings.end(),
                   [&](const Finding& a, const Finding& b) { return order(a) < order(b); });
  Output& out = m_context.out();
  std::size_t alike = 0;
  for (std::size_t i = 0; i < m_findings.size(); ++i) {
    const Finding& finding = m_findings[i];
    const auto is_like = [&](const Finding& other) {
      return other.code == finding.code && other.folder == finding.folder;
    };
    alike = i != 0 && is_like(m_findings[i - 1]) ? alike + 1 : 1;
    const FindingKind& kind = admin::kind_of(finding.code);
    const std::string head = formatted(
        "{} {}",
        out.styled(style_of(kind.severity), formatted("{:<7}", admin::name_of(kind.severity))),
        out.styled(Style::kBold, kind.name));
    if (alike <= kListed || m_lists == Lists::kWhole) {
      std::string where = where_of(finding);
      if (finding.line != 0) where += formatted(" (line {})", finding.line);
      out.print("{}  {}{}{}\n", head, where, finding.detail.empty() ? "" : ": ",
                shown(finding.detail));
      continue;
    }
    const bool is_last = i + 1 == m_findings.size() || !is_like(m_findings[i + 1]);
    if (is_last)
      out.print("{}  {}: and {} more (--all)\n", head, shown(finding.folder), alike - kListed);
  }
}

void CheckReport::show_sums() const {
  if (m_findings.size() < 2) return;
  std::map<std::pair<std::string, Code>, std::uint64_t> sums;
  for (const Finding& finding : m_findings)
    ++sums[{is_folder_gone(finding.code) ? place_of(finding) : finding.folder, finding.code}];
  std::vector<std::pair<std::uint64_t, std::pair<std::string, Code>>> sorted;
  for (const auto& [what, count] : sums) sorted.emplace_back(count, what);
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  std::size_t told = 0;
  for (const auto& [count, what] : sorted) {
    if (m_lists == Lists::kCut && told++ == kListed) {
      m_context.out().print("  and {} more sums (--all)\n", sorted.size() - kListed);
      return;
    }
    m_context.out().print("{:>6}  {}  {}\n", count, admin::kind_of(what.second).name,
                          relative(what.first));
  }
}

/// What to do about one folder, names before everything else.
std::string CheckReport::next_step(const std::string& folder, const std::vector<Code>& codes) {
  const std::string name = relative(folder);
  if (has(codes, is_about_names)) {
    admin::FolderView view;
    admin::DocumentFolder place;
    place.path = folder;
    view.load(place, m_context.locking());
    SavedNames saved(m_context);
    if (const SavedNames::Known known = saved.best_for(view); known.restorable != 0) {
      // Of an index with a text the lines that lead nowhere are counted already.
      if (view.index_state() != admin::IndexState::kRead) m_lost += known.restorable;
      return formatted(
          "{}: {} names lost, snapshot {} has them: stgctl index restore --at {} "
          "--folder {}",
          name, known.restorable, known.snapshot, known.snapshot, name);
    }
    if (const std::size_t count = admin::salvaged_lines(view).size(); count != 0)
      return formatted("{}: {} names are told by the damaged index: stgctl repair --plan plan.json",
                       name, count);
    if (view.index_state() != admin::IndexState::kRead) {
      m_lost += static_cast<std::uint64_t>(
          std::count(codes.begin(), codes.end(), Code::kFileWithoutLine));
      return formatted(
          "{}: no names are saved: put back its index.dat from a backup, else stgctl "
          "sync --dry-run",
          name);
    }
  }
  if (has(codes, is_folder_gone)) return formatted("{}: bring it back from a backup", name);
  const auto is_gone = [](Code code) { return code == Code::kLineWithoutFile; };
  if (has(codes, is_gone))
    return formatted(
        "{}: bring the files back from a backup, or let their names go: stgctl repair "
        "--plan plan.json",
        name);
  if (has(codes, is_repaired)) return "stgctl repair --plan plan.json";
  for (const Code code : codes) {
    const FindingKind& kind = admin::kind_of(code);
    if (kind.severity != Severity::kInfo)
      return formatted("{}: {}: {}", name, kind.name, kind.remedy);
  }
  return {};
}

std::vector<std::string> CheckReport::next_steps() {
  std::map<std::string, std::vector<Code>> by_folder;
  for (const Finding& finding : m_findings)
    by_folder[is_folder_gone(finding.code) ? place_of(finding) : finding.folder].push_back(
        finding.code);
  std::vector<std::string> steps;
  for (const auto& [folder, codes] : by_folder) {
    if (m_lists == Lists::kCut && steps.size() == kListed) break;
    std::string step = next_step(folder, codes);
    const bool is_told = std::find(steps.begin(), steps.end(), step) != steps.end();
    if (!step.empty() && !is_told) steps.push_back(std::move(step));
  }
  // What takes things away comes last.
  std::stable_partition(steps.begin(), steps.end(),
                        [](const std::string& step) { return !step.starts_with("stgctl repair"); });
  return steps;
}

void CheckReport::finish(CheckSummary& summary, bool full) {
  summary.findings[static_cast<std::size_t>(Code::kStrayItem)] -= m_replaced_owners;
  summary.findings[static_cast<std::size_t>(Code::kFolderReplaced)] += m_replaced_owners;
  Output& out = m_context.out();
  look_up_lost_documents();
  const std::vector<std::string> next = next_steps();
  if (out.json()) return show_json_summary(summary, full, next);
  show_findings();
  std::string text = formatted("{} errors, {} warnings, {} infos", summary.count(Severity::kError),
                               summary.count(Severity::kWarning), summary.count(Severity::kInfo));
  if (summary.unserved + m_lost != 0)
    text += formatted("; {} documents are not served", summary.unserved + m_lost);
  const bool clean = m_findings.empty();
  out.print("{} folders, {} entries, {} files: {}\n", summary.folders, summary.entries,
            summary.files,
            out.styled(clean ? Style::kGreen : Style::kBold, clean ? "nothing found" : text));
  show_sums();
  for (const std::string& step : next) out.print("next: {}\n", step);
}

void CheckReport::show_json_summary(const CheckSummary& summary, bool full,
                                    const std::vector<std::string>& next) {
  Json fields;
  fields["record"] = "summary";
  fields["depth"] = full ? "full" : "quick";
  fields["folders"] = summary.folders;
  fields["entries"] = summary.entries;
  fields["files"] = summary.files;
  fields["errors"] = summary.count(Severity::kError);
  fields["warnings"] = summary.count(Severity::kWarning);
  fields["infos"] = summary.count(Severity::kInfo);
  fields["interrupted"] = summary.was_stopped;
  fields["unserved"] = summary.unserved + m_lost;
  fields["codes"] = Json::object();
  for (const FindingKind& kind : admin::finding_kinds()) {
    const std::uint64_t found = summary.findings[static_cast<std::size_t>(kind.code)];
    if (found != 0) fields["codes"][std::string(kind.name)] = found;
  }
  fields["next"] = Json::array();
  for (const std::string& step : next) fields["next"].push_back(step);
  m_context.out().json_line("stgctl.check/1", fields);
}

}  // namespace stgctl
