#include <array>
#include <tuple>

#include "client/admin/repair_text.h"
#include "client/stgctl/look.h"
#include "client/stgctl/names_file.h"

namespace stgctl {

namespace {

/// Whether to cut long lists.
enum class Lists : std::uint8_t { kCut, kWhole };

using admin::CheckSummary;
using admin::Code;
using admin::Finding;
using admin::FindingKind;
using admin::Severity;

/// Limits: listed findings of one kind in one folder, and lines of totals.
constexpr std::size_t kListed = 10;

bool is_about_names(Code code) {
  return code == Code::kEmptyIndex || code == Code::kMissingIndex ||
         code == Code::kFileWithoutLine || code == Code::kMalformedLine;
}

/// What 'repair' changes.
constexpr std::array<Code, 9> kRepaired = {
    Code::kLineWithoutFile,   Code::kDuplicateKey,         Code::kMalformedLine,
    Code::kDanglingKeyLine,   Code::kDanglingCategoryLine, Code::kCounterBehind,
    Code::kCounterUnreadable, Code::kPartsWithoutDocument, Code::kFileWithoutLine};
bool is_repaired(Code code) { return std::ranges::find(kRepaired, code) != kRepaired.end(); }

/// What prevents repairs in its folder.
bool is_obstacle(Code code) {
  return code == Code::kNotWritable || code == Code::kUnreadableIndex || code == Code::kUnknownLine;
}

/// Whether a repair would move something away that a plan cannot name.
bool has_odd_name(const Finding& finding) {
  const bool is_moved =
      finding.code == Code::kFileWithoutLine || finding.code == Code::kPartsWithoutDocument;
  return is_moved && admin::why_not_safe(finding.name) != nullptr;
}

bool is_problem(Code code) { return admin::kind_of(code).severity != Severity::kInfo; }

bool is_folder_gone(Code code) {
  return code == Code::kFolderReplaced || code == Code::kMissingArea;
}

bool has(const std::vector<Code>& codes, bool (*matches)(Code)) {
  return std::any_of(codes.begin(), codes.end(), matches);
}

std::string remedy_for(const std::string& folder, Code code) {
  const FindingKind& kind = admin::kind_of(code);
  return formatted("{}: {}: {}", folder, kind.name, kind.remedy);
}

Json fields_of(const Finding& finding) {
  const FindingKind& kind = admin::kind_of(finding.code);
  Json fields = {
      {"record", "finding"}, {"code", kind.name}, {"severity", admin::name_of(kind.severity)}};
  if (finding.area) fields["area"] = admin::name_of(*finding.area);
  fields["owner"] = finding.owner;
  fields["folder"] = finding.folder;
  fields["name"] = finding.name;
  if (!finding.key.empty()) fields["key"] = finding.key;
  if (finding.timestamp) fields["timestamp"] = *finding.timestamp;
  if (finding.line != 0) fields["line"] = finding.line;
  fields["detail"] = finding.detail;
  return fields;
}

/// Collects the findings of a check and prints them in order: by severity, then by folder. The
/// totals and the next commands come last.
class CheckReport {
 public:
  CheckReport(Context& context, Lists lists) : m_context(context), m_lists(lists) {}

  /// Takes a finding. As JSON it is printed at once.
  void add(Finding finding) {
    if (is_owner_replaced(finding)) {
      finding.code = Code::kFolderReplaced;
      finding.detail.clear();
      ++m_replaced_owners;
    }
    if (m_context.out().json()) m_context.out().json_line("stgctl.check/1", fields_of(finding));
    m_findings.push_back(finding);
  }

  bool is_empty() const { return m_findings.empty(); }

  /// Prints everything. @param summary gets the counts of findings whose code add() changed.
  /// @param full whether it was a full check.
  void finish(CheckSummary& summary, bool full) {
    summary.findings[static_cast<std::size_t>(Code::kStrayItem)] -= m_replaced_owners;
    summary.findings[static_cast<std::size_t>(Code::kFolderReplaced)] += m_replaced_owners;
    Output& out = m_context.out();
    look_up_lost_documents();
    const std::vector<std::string> next = next_steps();
    if (out.json()) return show_json_summary(summary, full, next);
    show_findings();
    std::string text =
        formatted("{} errors, {} warnings, {} infos", summary.count(Severity::kError),
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

 private:
  /// Only saved names distinguish a file in the place of an owner's folder from any other file.
  bool is_owner_replaced(const Finding& finding) {
    if (finding.code != Code::kStrayItem || !finding.area ||
        finding.folder != m_context.tree().folder_of(*finding.area) ||
        sys::describe(place_of(finding)).kind != sys::Kind::kFile)
      return false;
    std::uint64_t snapshot = 0;
    return SavedNames(m_context).entries_below(place_of(finding), snapshot) != 0;
  }

  /// Only saved names know the content of a missing folder.
  void look_up_lost_documents() {
    const bool any = std::any_of(m_findings.begin(), m_findings.end(),
                                 [](const Finding& each) { return is_folder_gone(each.code); });
    if (!any) return;
    SavedNames saved(m_context);
    for (Finding& finding : m_findings) {
      if (!is_folder_gone(finding.code)) continue;
      std::uint64_t snapshot = 0;
      const std::uint64_t count = saved.entries_below(place_of(finding), snapshot);
      m_lost += count;
      finding.detail =
          snapshot == 0 ? "no snapshot says how many documents it had"
                        : formatted("{} documents are not served (snapshot {})", count, snapshot);
    }
  }

  std::string relative(const std::string& path) const {
    return shown(admin::saved_name_of(m_context.tree(), path));
  }

  /// The place of a finding: a version in its printed form with its folder, or a path.
  std::string where_of(const Finding& finding) const {
    if (!finding.timestamp || !finding.area) return shown(place_of(finding));
    const Subject version =
        subject_in(*finding.area, finding.owner, finding.name, finding.timestamp);
    return formatted("{} in {}", shown(version), relative(finding.folder));
  }

  void show_findings() {
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
      const std::string_view severity = admin::name_of(kind.severity);
      if (alike <= kListed || m_lists == Lists::kWhole) {
        std::string where = where_of(finding);
        if (finding.line != 0) where += formatted(" (line {})", finding.line);
        print_finding(out, severity, kind.name, where, finding.detail);
        continue;
      }
      const bool is_last = i + 1 == m_findings.size() || !is_like(m_findings[i + 1]);
      if (is_last)
        print_finding(out, severity, kind.name, shown(finding.folder),
                      formatted("and {} more (--all)", alike - kListed));
    }
  }

  void show_sums() const {
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
        m_context.out().print("  and {} more totals (--all)\n", sorted.size() - kListed);
        return;
      }
      m_context.out().print("{:>6}  {}  {}\n", count, admin::kind_of(what.second).name,
                            relative(what.first));
    }
  }

  /// The next command for one folder. A command that restores names comes before all others.
  std::string next_step(const std::string& folder, const std::vector<Code>& codes) {
    const std::string name = relative(folder);
    if (has(codes, is_about_names)) {
      admin::FolderView view;
      admin::DocumentFolder place;
      place.path = folder;
      view.load(place, m_context.locking());
      SavedNames saved(m_context);
      if (const SavedNames::Known known = saved.best_for(view); known.restorable != 0) {
        // If the index has a text, its dangling entries are counted already.
        if (view.index_state() != admin::IndexState::kRead) m_lost += known.restorable;
        return formatted(
            "{}: {} names lost, snapshot {} has them: stgctl index restore --at {} "
            "--folder {}",
            name, known.restorable, known.snapshot, known.snapshot, name);
      }
      if (const std::size_t count = admin::salvaged_lines(view).size(); count != 0)
        return formatted(
            "{}: {} names can be read from the damaged index: stgctl repair --plan plan.json", name,
            count);
      if (view.index_state() != admin::IndexState::kRead) {
        m_lost += static_cast<std::uint64_t>(
            std::count(codes.begin(), codes.end(), Code::kFileWithoutLine));
        return formatted(
            "{}: no names are saved: restore its index.dat from a backup, or try stgctl sync "
            "--dry-run",
            name);
      }
    }
    if (has(codes, is_folder_gone)) return formatted("{}: restore it from a backup", name);
    if (const auto first = std::ranges::find_if(codes, is_obstacle); first != codes.end())
      return remedy_for(name, *first);
    const auto is_gone = [](Code code) { return code == Code::kLineWithoutFile; };
    if (has(codes, is_gone))
      return formatted(
          "{}: restore the files from a backup, or remove their entries: stgctl repair --plan "
          "plan.json",
          name);
    if (has(codes, is_repaired)) return "stgctl repair --plan plan.json";
    const auto next = std::ranges::find_if(codes, is_problem);
    return next == codes.end() ? std::string() : remedy_for(name, *next);
  }

  std::vector<std::string> next_steps() {
    std::map<std::string, std::vector<Code>> by_folder;
    std::vector<std::string> steps;
    for (const Finding& finding : m_findings) {
      if (!has_odd_name(finding)) {
        by_folder[is_folder_gone(finding.code) ? place_of(finding) : finding.folder].push_back(
            finding.code);
      } else if (m_lists == Lists::kWhole || steps.size() < kListed) {
        steps.push_back(formatted("{}: rename it, or move it away: {}", shown(place_of(finding)),
                                  admin::why_not_safe(finding.name)));
      }
    }
    for (const auto& [folder, codes] : by_folder) {
      if (m_lists == Lists::kCut && steps.size() == kListed) break;
      std::string step = next_step(folder, codes);
      const bool is_told = std::find(steps.begin(), steps.end(), step) != steps.end();
      if (!step.empty() && !is_told) steps.push_back(std::move(step));
    }
    // Steps that remove something come last.
    std::stable_partition(steps.begin(), steps.end(), [](const std::string& step) {
      return !step.starts_with("stgctl repair");
    });
    return steps;
  }

  void show_json_summary(const CheckSummary& summary, bool full,
                         const std::vector<std::string>& next) {
    Json fields = {{"record", "summary"},
                   {"depth", full ? "full" : "quick"},
                   {"folders", summary.folders},
                   {"entries", summary.entries},
                   {"files", summary.files},
                   {"errors", summary.count(Severity::kError)},
                   {"warnings", summary.count(Severity::kWarning)},
                   {"infos", summary.count(Severity::kInfo)},
                   {"interrupted", summary.was_stopped},
                   {"unserved", summary.unserved + m_lost},
                   {"codes", Json::object()}};
    for (const FindingKind& kind : admin::finding_kinds()) {
      const std::uint64_t found = summary.findings[static_cast<std::size_t>(kind.code)];
      if (found != 0) fields["codes"][std::string(kind.name)] = found;
    }
    fields["next"] = next;
    m_context.out().json_line("stgctl.check/1", fields);
  }

  Context& m_context;
  Lists m_lists;
  std::vector<Finding> m_findings;
  std::uint64_t m_replaced_owners = 0;
  std::uint64_t m_lost = 0;  ///< documents of folders that are missing as a whole
};

struct Options : Arguments {
  Flag quick{*this, "--quick", "Check only names and indexes, not files"};
  Flag full{*this, "--full", "Also check sizes, times, key files and sub-parts (the default)",
            excludes("--quick")};
  Flag strict{*this, "--strict", "Treat findings of the severity info as problems"};
  NumberOption path_limit{*this, "--path-limit", "BYTES", "The longest path that programs can use",
                          sys::kPathLimit};
  Flag all{*this, "--all", "Print every finding, not only ten of a kind in a folder"};
  Flag codes{*this, "--codes", "List the findings that exist, with meanings and remedies"};
  NoLock no_lock{*this};
};

Exit show_codes(Context& context) {
  for (const FindingKind& kind : admin::finding_kinds()) {
    const std::string_view severity = admin::name_of(kind.severity);
    context.out().result("stgctl.check-codes/1",
                         {{"code", kind.name},
                          {"severity", severity},
                          {"meaning", kind.meaning},
                          {"remedy", kind.remedy}},
                         "{}  {}\n    {}\n    {}\n", context.out().styled(Style::kBold, kind.name),
                         context.out().styled(style_of(severity), severity), kind.meaning,
                         kind.remedy);
  }
  return Exit::kDone;
}

Exit run_check(Context& context, const Options& options) {
  if (options.codes) return show_codes(context);
  auto asked = context.walk<admin::CheckOptions>();
  asked.depth = options.quick ? admin::Depth::kQuick : admin::Depth::kFull;
  asked.path_limit = options.path_limit;
  const admin::Tree& tree = context.tree();
  CheckSummary summary;
  CheckReport report(context, options.all ? Lists::kWhole : Lists::kCut);
  {
    Progress progress(context.out(), "checking", asked);
    summary = admin::check(tree, asked, [&](const Finding& finding) { report.add(finding); });
  }
  // A mistyped name must not look like a tree without problems.
  if (asked.scope.owner && summary.folders == 0 && report.is_empty() && !summary.was_stopped)
    return Exit::kNothingMatched;
  report.finish(summary, asked.depth == admin::Depth::kFull);
  if (summary.was_stopped) return Exit::kInterrupted;
  const std::uint64_t problems = summary.count(Severity::kError) +
                                 summary.count(Severity::kWarning) +
                                 (options.strict ? summary.count(Severity::kInfo) : 0);
  return problems == 0 ? Exit::kDone : Exit::kProblemsFound;
}

}  // namespace

Commands check_command() {
  return {{"check", Group::kCheck, Effect::kLooks, "Find problems in a tree, without changing it",
           run_check,
           "Each finding has a stable code and a severity. The exit code is 4 if there is an\n"
           "error or a warning, with --strict also for an info. The last lines show the totals,\n"
           "how many documents cannot be read, and the next command to run. The check tests\n"
           "whether indexes, counters and folders are writable, so run it as the user of the\n"
           "programs. --area and --owner limit it."}};
}

}  // namespace stgctl
