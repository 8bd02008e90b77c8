#include <array>
#include <set>
#include <tuple>

#include "client/stgctl/look.h"
#include "client/stgctl/manifest.h"

namespace stgctl {

namespace {

using admin::Holding;

struct Options : Arguments {
  TextOption folder{*this, "dir", "DIR", "The folder of an export", kRequired};
  Flag quick{*this, "--quick", "Compare only sizes and times; read no file"};
  NoLock no_lock{*this};
};

enum class Code {
  kNotInTree,
  kNotInExport,
  kBytesDiffer,
  kTimeDiffers,
  kExportDamaged,
  kUnreadable
};

/// The names are stable: scripts compare them.
struct Kind {
  std::string_view name;
  std::string_view severity;
};
constexpr std::array<Kind, 6> kKinds = {{{"not-in-tree", "error"},
                                         {"not-in-export", "warning"},
                                         {"bytes-differ", "error"},
                                         {"time-differs", "warning"},
                                         {"export-damaged", "error"},
                                         {"unreadable", "error"}}};

/// Walks the tree and the manifest in parallel: both have the same order.
class Comparing final : public admin::InventorySink {
 public:
  Comparing(Context& context, const Options& options)
      : m_context(context),
        m_options(options),
        m_reader(options.folder),
        m_scope(common_scope(context.scope(), m_reader.head().scope)),
        m_progress(context.out(), "comparing") {}

  void run() {
    if (m_reader.head().layout != m_context.tree().layout)
      refuse("the export and the tree have different layouts: only one has owners (--layout)");
    auto asked = m_context.walk();
    asked.scope = m_scope;
    asked.on_folder = [this](const admin::DocumentFolder& folder) { m_folder = folder; };
    step();
    admin::take_inventory(m_context.tree(), asked, *this);
    while (m_has_item && !Context::interrupted()) {
      missing();
      step();
    }
  }

  bool holding(const Holding& holding) override {
    if (Context::interrupted()) return false;
    if (holding.out_of_reach != nullptr) {
      ++m_left_out;
      return true;
    }
    for (; m_has_item && m_item.what < holding; step()) missing();
    m_progress.advance(1, holding.name);
    if (!m_has_item || m_item.what != holding) {
      tell(Code::kNotInExport, holding, "");
      return true;
    }
    if (compare(holding)) ++m_equal;
    step();
    return true;
  }

  void left_out(const std::string&, const char*) override { ++m_left_out; }
  void failed(const std::string& location, const std::string& why) override {
    m_unread.emplace(m_folder.area, m_folder.owner, m_folder.bucket);
    Holding folder;
    folder.area = m_folder.area;
    folder.owner = m_folder.owner;
    folder.kind = admin::HoldingKind::kFile;
    folder.path = location;
    tell(Code::kUnreadable, folder, why);
  }

  Exit finish() {
    show_summary();
    if (Context::interrupted()) return Exit::kInterrupted;
    for (const std::uint64_t found : m_found) {
      if (found != 0) return Exit::kProblemsFound;
    }
    return m_sums.items() == 0 ? Exit::kNothingMatched : Exit::kDone;
  }

 private:
  /// Goes to the next selected item of the manifest.
  void step() {
    do {
      m_has_item = m_reader.next(m_item);
    } while (m_has_item && !is_in_scope(m_item.what, m_scope));
    if (m_has_item) m_sums.add(m_item);
  }

  void missing() {
    // Items of a folder that could not be read may exist: they are not reported as missing.
    const Holding& what = m_item.what;
    if (!m_unread.contains({what.area, what.owner, what.bucket})) tell(Code::kNotInTree, what, "");
  }

  bool compare(const Holding& holding) {
    const sys::Info& wanted = m_item.what.info;
    const bool export_is_good = check_export();
    bool same = holding.info.size == wanted.size;
    std::string detail =
        formatted("{} bytes in the tree, {} in the export", holding.info.size, wanted.size);
    if (same && !m_options.quick) {
      try {
        same = read_content(holding.location, m_context.locking()).checksum == m_item.checksum;
        detail = "the same size, but different bytes";
      } catch (const Failure& failure) {
        if (failure.code() == Exit::kInterrupted) throw;
        tell(Code::kUnreadable, holding, failure.what());
        return false;
      }
    }
    if (!same) {
      tell(Code::kBytesDiffer, holding, detail);
    } else if (holding.info.modify_time != wanted.modify_time) {
      same = false;
      tell(Code::kTimeDiffers, holding,
           formatted("{} in the tree, {} in the export", format_time(holding.info.modify_time),
                     format_time(wanted.modify_time)));
    }
    return same && export_is_good;
  }

  bool check_export() {
    const std::string file = location_in(m_options.folder, m_item.file);
    const sys::Info info = sys::describe(file);
    bool is_good = info.kind == sys::Kind::kFile && info.size == m_item.what.info.size;
    if (is_good && !m_options.quick) {
      is_good = read_content(file, sys::Locking::none()).checksum == m_item.checksum;
    }
    if (!is_good) {
      tell(Code::kExportDamaged, m_item.what,
           info.kind == sys::Kind::kMissing ? "its file is missing" : "differs from the manifest");
    }
    return is_good;
  }

  void tell(Code code, const Holding& what, const std::string& detail) {
    const Kind& kind = kKinds[static_cast<std::size_t>(code)];
    ++m_found[static_cast<std::size_t>(code)];
    Output& out = m_context.out();
    if (out.json()) {
      Json fields = {{"record", "finding"}, {"code", kind.name}, {"severity", kind.severity}};
      put_subject(fields, subject_of(what));
      fields["kind"] = admin::name_of(what.kind);
      if (what.kind == admin::HoldingKind::kPart) fields["path"] = what.path;
      fields["detail"] = detail;
      out.json_line("stgctl.compare/1", fields);
      return;
    }
    std::string where = shown(subject_of(what));
    if (what.kind == admin::HoldingKind::kPart) where += ' ' + shown(std::string_view(what.path));
    print_finding(out, kind.severity, kind.name, where, detail);
  }

  void show_summary() {
    Output& out = m_context.out();
    std::uint64_t findings = 0;
    Json codes = Json::object();
    for (std::size_t i = 0; i < kKinds.size(); ++i) {
      findings += m_found[i];
      if (m_found[i] != 0) codes[std::string(kKinds[i].name)] = m_found[i];
    }
    if (!out.json() && findings == 0 && m_sums.items() == 0)
      return out.error("there is nothing to compare");
    Json fields = {{"record", "summary"}, {"depth", m_options.quick ? "quick" : "full"}};
    fields.update(m_sums.fields());
    fields.update({{"equal", m_equal},
                   {"left_out", m_left_out},
                   {"findings", findings},
                   {"codes", codes},
                   {"interrupted", Context::interrupted()}});
    out.result("stgctl.compare/1", fields, "{}, {}: {}\n", m_sums.in_words(),
               format_bytes(m_sums.bytes),
               out.styled(findings == 0 ? Style::kGreen : Style::kBold,
                          findings == 0 ? "all equal"
                                        : formatted("{} equal, {} findings", m_equal, findings)));
  }

  Context& m_context;
  const Options& m_options;
  ManifestReader m_reader;
  admin::Scope m_scope;
  Progress m_progress;
  admin::DocumentFolder m_folder;
  std::set<std::tuple<admin::Area, std::string, std::string>> m_unread;
  ManifestItem m_item;
  bool m_has_item = false;
  ManifestSums m_sums;  ///< selected items of the manifest
  std::uint64_t m_equal = 0;
  std::uint64_t m_left_out = 0;
  std::array<std::uint64_t, kKinds.size()> m_found{};
};

Exit run_compare(Context& context, const Options& options) {
  context.tree();
  Comparing comparing(context, options);
  comparing.run();
  return comparing.finish();
}

}  // namespace

Commands compare_command() {
  return {{"compare", Group::kCheck, Effect::kLooks, "Compare a tree with an export", run_compare,
           "Compares size, bytes and time of what both contain, and the files of the export with\n"
           "its manifest. The exit code is 4 if something differs, 3 if there is nothing to\n"
           "compare. --area and --owner limit it."}};
}

}  // namespace stgctl
