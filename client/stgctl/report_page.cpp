#include "client/stgctl/report_page.h"

#include <array>
#include <iterator>

#include "client/admin/text.h"
#include "client/stgctl/report_parts.h"
#include "client/stgctl/text.h"
#include "client/stgctl/what_if.h"

namespace stgctl {

namespace {

using admin::Curve;
using admin::Finding;
using admin::FindingKind;
using admin::GroupedSpace;
using admin::Loss;
using admin::Severity;
using admin::StatsGroup;
using admin::Sum;

constexpr std::size_t kOwnersShown = 20;

class Page {
 public:
  explicit Page(const ReportData& data) : m_data(data) {}

  std::string write() && {
    head();
    totals();
    print("</header>\n<main id=\"content\">\n");
    space();
    ages();
    cleaning();
    findings();
    print("</main>\n");
    foot();
    return std::move(m_text);
  }

 private:
  template <class... Args>
  void print(admin::FormatPattern<sizeof...(Args)> pattern, const Args&... args) {
    append_formatted(m_text, pattern, args...);
  }

  void head() {
    const std::string tree = html(m_data.tree);
    print(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
        "<meta http-equiv=\"Content-Security-Policy\" "
        "content=\"default-src 'none'; style-src 'unsafe-inline'\"/>\n"
        "<title>Storage report: {}</title>\n<style>{}</style>\n</head>\n<body>\n",
        tree, report_style());
    print(
        "<a class=\"skip\" href=\"#content\">Skip to the figures</a>\n<header>\n"
        "<h1>Storage report</h1>\n<p class=\"path\">{}</p>\n"
        "<p class=\"soft\">{} UTC, {}{}{}</p>\n",
        tree, format_time(m_data.now),
        m_data.layout == admin::Layout::kFlat ? "a tree without owners"
                                              : "a tree with a folder per owner",
        m_data.narrowed.empty() ? "" : ", narrowed down to ", html(m_data.narrowed));
    print(
        "<nav aria-label=\"Sections\"><ul><li><a href=\"#space\">Space</a></li>"
        "<li><a href=\"#age\">Age</a></li><li><a href=\"#cleaning\">What a cleaning would free</a>"
        "</li><li><a href=\"#findings\">Findings of the check</a></li></ul></nav>\n");
  }

  void total(const char* name, const char* label, const Sum& sum) {
    print(
        "<div data-total=\"{}\" data-files=\"{}\" data-bytes=\"{}\"><dt>{}</dt><dd>{} "
        "<span>{} files</span></dd></div>\n",
        name, sum.files, sum.bytes, label, format_bytes(sum.bytes), sum.files);
  }

  void totals() {
    const admin::Stats& stats = m_data.space.stats;
    print("<dl>\n");
    total("all", "Everything", stats.all);
    total("documents", "Documents", stats.documents);
    total("parts", "Parts", stats.parts);
    total("indexes", "Indexes", stats.indexes);
    if (stats.strays.files != 0) total("strays", "Strays", stats.strays);
    print("<div data-folders=\"{0}\"><dt>Document folders</dt><dd>{0}</dd></div>\n</dl>\n",
          stats.folders);
    if (stats.failures != 0)
      print("<p class=\"error\">{} folders could not be listed: these figures are too low.</p>\n",
            stats.failures);
  }

  // ---- space -----------------------------------------------------------------------------------

  void row(const char* table, const std::string& name, const std::string& label, const Sum& sum,
           std::uint64_t whole) {
    const double percent =
        whole == 0 ? 0 : 100.0 * static_cast<double>(sum.bytes) / static_cast<double>(whole);
    print(
        "<tr data-table=\"{}\" data-name=\"{}\" data-files=\"{}\" data-bytes=\"{}\">"
        "<th scope=\"row\">{}</th><td class=\"n\">{}</td><td class=\"n\">{:.1f} %</td>"
        "<td class=\"n\">{}</td></tr>\n",
        table, html(name), sum.files, sum.bytes, label, format_bytes(sum.bytes), percent,
        sum.files);
  }

  void table_head(const std::string& caption, const char* first) {
    print(
        "<div class=\"scroll\" tabindex=\"0\" role=\"region\" aria-label=\"{0}\">"
        "<table><caption>{0}</caption><thead><tr><th scope=\"col\">{1}</th>",
        caption, first);
  }

  void space_head(const std::string& caption, const char* first) {
    table_head(caption, first);
    print(
        "<th scope=\"col\" class=\"n\">Space</th><th scope=\"col\" class=\"n\">Share</th>"
        "<th scope=\"col\" class=\"n\">Files</th></tr></thead><tbody>\n");
  }

  void table_end() { print("</tbody></table></div>\n"); }

  void groups(const char* table, const std::string& caption, const char* first,
              const GroupedSpace& groups, std::string (*label)(const std::string&)) {
    space_head(caption, first);
    const std::uint64_t whole = m_data.space.stats.all.bytes;
    for (const StatsGroup& group : groups.groups) {
      const bool is_area = std::string_view(table) == "area";
      const std::string key =
          is_area ? formatted("<span class=\"key area-{}\"></span>", html(group.name)) : "";
      row(table, group.name, key + html(label(group.name)), group.sum, whole);
    }
    if (groups.other_groups != 0) {
      row(formatted("{}-others", table).c_str(), std::to_string(groups.other_groups),
          formatted("{} more", groups.other_groups), groups.others, whole);
    }
    table_end();
  }

  void space() {
    print(
        "<section id=\"space\" aria-labelledby=\"space-heading\">\n"
        "<h2 id=\"space-heading\">Space by area, owner and extension</h2>\n"
        "<p class=\"soft\">Each rectangle is as large as what it stands for: colours are areas, "
        "frames owners, shades extensions. Small ones are counted together.</p>\n{}\n",
        treemap_svg(m_data.space.all));
    print("<div class=\"columns\">\n");
    groups("area", "By area", "Area", m_data.space.areas,
           [](const std::string& name) { return name; });
    groups("owner", "By owner", "Owner", m_data.space.owners, name_of_owner);
    groups("ext", "By extension", "Extension", m_data.space.extensions, name_of_extension);
    print("</div>\n</section>\n");
  }

  void ages() {
    print(
        "<section id=\"age\" aria-labelledby=\"age-heading\">\n"
        "<h2 id=\"age-heading\">Age of the last change</h2>\n<div class=\"beside\">\n{}\n",
        ages_svg(m_data.space.stats.groups));
    space_head("By age", "Changed");
    for (const StatsGroup& group : m_data.space.stats.groups)
      row("age", group.name, html(group.name), group.sum, m_data.space.stats.all.bytes);
    table_end();
    print("</div>\n</section>\n");
  }

  // ---- cleaning --------------------------------------------------------------------------------

  void cleaning() {
    print(
        "<section id=\"cleaning\" aria-labelledby=\"cleaning-heading\">\n"
        "<h2 id=\"cleaning-heading\">What a cleaning would free</h2>\n");
    if (!m_data.forecast) {
      print("<p>{}</p>\n</section>\n", html(m_data.no_forecast));
      return;
    }
    const Curve& all = m_data.forecast->all();
    print(
        "<p class=\"soft\">If every version in the area <code>{}</code> went that has not been "
        "changed for longer than a limit. A document is lost when no version of it is left. There "
        "are {} in {} versions of {} documents.</p>\n",
        html(m_data.forecast_area), format_bytes(all.there.bytes), all.there.versions,
        all.there.documents);
    if (m_data.target) {
      print("<p class=\"say\">{}.</p>\n",
            html(sentence_for(*m_data.target, m_data.forecast->limit_for(*m_data.target))));
    }
    print(
        "<div class=\"beside\">\n<div>{}<p class=\"legend soft\"><span class=\"freed\">bytes "
        "freed</span> <span class=\"lost\">documents lost</span> (parts of the whole)</p></div>\n",
        curve_svg(all));
    table_head("By age limit", "Older than");
    print(
        "<th scope=\"col\" class=\"n\">Freed</th><th scope=\"col\" class=\"n\">Versions</th>"
        "<th scope=\"col\" class=\"n\">Documents lost</th></tr></thead><tbody>\n");
    for (std::size_t i = 0; i < all.losses.size(); ++i) {
      const Loss& loss = all.losses[i];
      print(
          "<tr data-table=\"limit\" data-name=\"{0}\" data-versions=\"{1}\" data-documents=\"{2}\" "
          "data-bytes=\"{3}\"><th scope=\"row\">{0}</th><td class=\"n\">{4}</td>"
          "<td class=\"n\">{1}</td><td class=\"n\">{2}</td></tr>\n",
          admin::age_limits()[i].name, loss.versions, loss.documents, loss.bytes,
          format_bytes(loss.bytes));
    }
    table_end();
    print("</div>\n");
    owners();
    print("</section>\n");
  }

  void owners() {
    const std::vector<Curve>& curves = m_data.forecast->owners();
    if (curves.size() < 2) return;
    constexpr std::array<std::string_view, 4> kShown = {"30d", "90d", "1y", "3y"};
    table_head("Freed per owner", "Owner");
    print("<th scope=\"col\" class=\"n\">There</th><th scope=\"col\">1d to 10y</th>");
    for (const std::string_view limit : kShown)
      print("<th scope=\"col\" class=\"n\">older than {}</th>", limit);
    print("</tr></thead><tbody>\n");
    for (std::size_t i = 0; i < curves.size() && i < kOwnersShown; ++i) {
      const Curve& curve = curves[i];
      print(
          "<tr data-table=\"owner-limits\" data-name=\"{}\" data-bytes=\"{}\"><th "
          "scope=\"row\">{}</th><td class=\"n\">{}</td><td>{}</td>",
          html(curve.owner), curve.there.bytes, html(name_of_owner(curve.owner)),
          format_bytes(curve.there.bytes), spark_svg(curve));
      for (std::size_t j = 0; j < curve.losses.size(); ++j) {
        for (const std::string_view limit : kShown) {
          if (admin::age_limits()[j].name == limit)
            print("<td class=\"n\">{}</td>", format_bytes(curve.losses[j].bytes));
        }
      }
      print("</tr>\n");
    }
    table_end();
    if (curves.size() > kOwnersShown)
      print("<p class=\"soft\">and {} owners more</p>\n", curves.size() - kOwnersShown);
  }

  // ---- findings --------------------------------------------------------------------------------

  void findings() {
    const admin::CheckSummary& check = m_data.check;
    const auto count = [&](Severity severity) { return check.count(severity); };
    print(
        "<section id=\"findings\" aria-labelledby=\"findings-heading\" data-errors=\"{0}\" "
        "data-warnings=\"{1}\" data-infos=\"{2}\">\n<h2 id=\"findings-heading\">Findings of the "
        "check</h2>\n<p>{3} folders and {4} entries: {0} errors, {1} warnings, {2} of mere "
        "information.</p>\n",
        count(Severity::kError), count(Severity::kWarning), count(Severity::kInfo), check.folders,
        check.entries);
    if (count(Severity::kError) + count(Severity::kWarning) + count(Severity::kInfo) == 0) {
      print("<p class=\"say\">Nothing was found.</p>\n</section>\n");
      return;
    }
    table_head("By kind", "Finding");
    print(
        "<th scope=\"col\">Severity</th><th scope=\"col\" class=\"n\">Count</th>"
        "<th scope=\"col\">What it means, what to do</th></tr></thead><tbody>\n");
    for (const FindingKind& kind : admin::finding_kinds()) {
      const std::uint64_t found = check.findings[static_cast<std::size_t>(kind.code)];
      if (found == 0) continue;
      print(
          "<tr data-table=\"finding\" data-name=\"{0}\" data-count=\"{1}\"><th "
          "scope=\"row\"><code>{0}</code></th><td class=\"{2}\">{2}</td><td class=\"n\">{1}</td>"
          "<td>{3}. <span class=\"soft\">{4}.</span></td></tr>\n",
          html(kind.name), found, admin::name_of(kind.severity), html(kind.meaning),
          html(kind.remedy));
    }
    table_end();
    samples();
    print("</section>\n");
  }

  void samples() {
    if (m_data.samples.empty()) return;
    table_head("Some of each kind", "Finding");
    print("<th scope=\"col\">Where</th><th scope=\"col\">Detail</th></tr></thead><tbody>\n");
    for (const Finding& finding : m_data.samples) {
      const FindingKind& kind = admin::kind_of(finding.code);
      std::string where = finding.folder;
      if (!finding.name.empty()) where = admin::sys::join(where, finding.name);
      if (finding.line != 0) where += formatted(" (line {})", finding.line);
      print(
          "<tr><th scope=\"row\" class=\"{}\">{}</th><td class=\"path\">{}</td><td>{}</td></tr>\n",
          admin::name_of(kind.severity), html(kind.name), html(where), html(finding.detail));
    }
    table_end();
  }

  void foot() {
    print(
        "<footer class=\"soft\"><p>Made by stgctl {}. Nothing in the tree was changed. "
        "<code>stgctl stats</code>, <code>stgctl clean --what-if</code> and <code>stgctl "
        "check</code> have all the figures.</p></footer>\n</body>\n</html>\n",
        VU_STGCTL_VERSION);
  }

  const ReportData& m_data;
  std::string m_text;
};

}  // namespace

std::string html(std::string_view bytes) {
  std::string text;
  for (const char c : admin::printable(bytes)) {
    switch (c) {
      case '<':
        text += "&lt;";
        break;
      case '>':
        text += "&gt;";
        break;
      case '&':
        text += "&amp;";
        break;
      case '"':
        text += "&quot;";
        break;
      default:
        text += c;
    }
  }
  return text;
}

std::string name_of_owner(const std::string& owner) { return owner.empty() ? "(no owner)" : owner; }
std::string name_of_extension(const std::string& extension) {
  return extension.empty() ? "(none)" : extension;
}

std::string report_page(const ReportData& data) { return Page(data).write(); }

}  // namespace stgctl
