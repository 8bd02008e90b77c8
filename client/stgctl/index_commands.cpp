// index dump and index lint: the unchanged lines of index.dat.

#include "client/stgctl/look.h"

namespace stgctl {

namespace {

using admin::IndexState;
using admin::LintedLine;
using admin::Verdict;

enum class Wanted { kAllLines, kBadLines };

struct LineOptions : Arguments {
  TextOption folder{*this, "folder", "DIR",
                    "One document folder, instead of all that --area and --owner select"};
  NoLock no_lock{*this};
};

std::string_view name_of(IndexState state) {
  return admin::word_of(state, {"missing", "read", "no-bytes", "locked", "failed"});
}

/// What is wrong with a line, or empty.
std::string remark_on(const LintedLine& line) {
  if (line.has_zeros) return "damaged: it contains zeros, which may have replaced other lines";
  switch (line.verdict) {
    case Verdict::kNoSeparator: return "skipped: no \"/\"";
    case Verdict::kShortKey: return "skipped: the key is too short for a timestamp";
    case Verdict::kNoFile: return "skipped, dangling: its file is missing";
    case Verdict::kUnknown:
      return "skipped and kept: the system could not check whether its file exists";
    case Verdict::kDuplicateKey:
      return formatted("skipped: line {} has the same key", line.same_key_as);
    case Verdict::kEntry: break;
  }
  if (!line.has_file) return formatted("valid, but {} does not exist", shown(line.file));
  if (line.same_stored_as != 0)
    return formatted("line {} has the same physical name", line.same_stored_as);
  return line.has_odd_stamp ? "the key does not end in \"_\" and ten digits" : "";
}

class IndexVisitor final : public admin::Visitor {
 public:
  IndexVisitor(Context& context, Wanted wanted) : m_context(context), m_wanted(wanted) {}

  bool folder(const admin::DocumentFolder& folder) override {
    if (Context::interrupted()) return false;
    m_view.load(folder, m_context.locking());
    if (!m_view.status().ok()) {
      if (m_view.status().failure() != os::Failure::kNotFound) failed(folder.path, m_view.status());
      return true;
    }
    const IndexState state = m_view.index_state();
    if (state == IndexState::kMissing) return true;
    ++m_folders;
    if (state == IndexState::kLocked) m_failures.lock_missed = true;
    if (state == IndexState::kFailed) ++m_failures.folders;
    if (state != IndexState::kRead) ++m_problems;
    show_folder(state);
    for (const LintedLine& line : admin::IndexLint(m_view)) {
      const std::string remark = remark_on(line);
      if (!remark.empty()) ++m_problems;
      if (m_wanted == Wanted::kAllLines || !remark.empty()) show_line(line, remark);
    }
    return true;
  }

  void failed(const std::string& path, const os::Status& status) override {
    ++m_failures.folders;
    m_context.out().warning(shown(path) + ": " + sys::text_of(status));
  }

  Exit result() const {
    const Exit code = exit_of(m_context, m_failures, m_folders != 0);
    const bool is_bad = m_wanted == Wanted::kBadLines && m_problems != 0;
    return code == Exit::kDone && is_bad ? Exit::kProblemsFound : code;
  }

 private:
  void show_folder(IndexState state) {
    Output& out = m_context.out();
    if (!out.json() && m_wanted == Wanted::kBadLines && state == IndexState::kRead) return;
    out.result(schema(),
               {{"record", "index"},
                {"area", admin::name_of(m_view.folder().area)},
                {"owner", m_view.folder().owner},
                {"folder", m_view.folder().path},
                {"state", name_of(state)},
                {"bytes", m_view.index_text().size()}},
               "{}{}\n", out.styled(Style::kBold, shown(m_view.path_of(index_format::kIndexFile))),
               state == IndexState::kRead ? "" : formatted("  {}", name_of(state)));
  }

  void show_line(const LintedLine& line, const std::string& remark) {
    Json fields = {{"record", "line"},
                   {"folder", m_view.folder().path},
                   {"line", line.number},
                   {"verdict", admin::name_of(line.verdict)},
                   {"text", line.raw.substr(0, kMostShown)}};
    if (!line.logical.empty()) {
      fields["name"] = line.logical;
      fields["timestamp"] = line.timestamp;
    }
    if (line.verdict != Verdict::kNoSeparator) fields["physical"] = line.stored;
    if (line.verdict == Verdict::kEntry) fields["file"] = line.file;
    fields["remark"] = remark;
    const std::string where =
        m_wanted == Wanted::kAllLines
            ? formatted("{:>6}  ", line.number)
            : formatted("{}:{}: ", shown(m_view.path_of(index_format::kIndexFile)), line.number);
    m_context.out().result(
        schema(), fields, "{}{}{}\n", where, shown(line.raw.substr(0, kMostShown)),
        remark.empty() ? "" : m_context.out().styled(Style::kYellow, "  # " + remark));
  }

  const char* schema() const {
    return m_wanted == Wanted::kAllLines ? "stgctl.index-dump/1" : "stgctl.index-lint/1";
  }

  static constexpr std::size_t kMostShown = 4096;

  Context& m_context;
  Wanted m_wanted;
  admin::FolderView m_view;
  std::uint64_t m_folders = 0;
  admin::EntryFailures m_failures;
  std::uint64_t m_problems = 0;
};

template <Wanted kWanted>
Exit run_lines(Context& context, const LineOptions& options) {
  IndexVisitor visitor(context, kWanted);
  const admin::Tree& tree = context.tree();
  if (options.folder.empty()) {
    admin::walk(tree, {context.scope()}, visitor);
    return visitor.result();
  }
  const auto located = admin::locate_in(tree, options.folder);
  if (!located || !located->rest.empty())
    not_found("{} is not a document folder of this tree", shown(options.folder));
  visitor.folder(located->folder);
  return visitor.result();
}

}  // namespace

Commands index_commands() {
  return {{"index dump", Group::kLook, Effect::kLooks, "Show the lines of index.dat unchanged",
           run_lines<Wanted::kAllLines>,
           "Marks the lines that the library's readers skip, with the reason."},
          {"index lint", Group::kLook, Effect::kLooks, "Show the faulty lines of index.dat",
           run_lines<Wanted::kBadLines>, "The exit code is 4 if there is one."}};
}

}  // namespace stgctl
