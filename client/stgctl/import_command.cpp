

#include "client/stgctl/command.h"
#include "client/stgctl/import_item.h"
#include "client/stgctl/manifest.h"
#include "client/stgctl/output.h"
#include "client/stgctl/report.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

struct Options {
  Arguments app;
  TextOption folder{app, "dir", "DIR", "The folder of an export", {kRequired}};
  Flag replace{app, "--replace", "Replace versions that exist with different content"};
};

/// The totals to import, known after the whole manifest was checked.
struct Plan {
  admin::Scope scope;
  ManifestSums sums;
  std::uint64_t missing = 0;  ///< files that the export could not read
};

Plan plan_of(Context& context, const std::string& folder) {
  Plan plan;
  ManifestReader reader(folder);
  plan.scope = common_scope(context.scope(), reader.head().scope);
  if (reader.head().layout != context.tree().layout) {
    const bool is_flat = reader.head().layout == admin::Layout::kFlat;
    throw Failure(
        Exit::kRefused,
        formatted("the export is of a tree {} owners, but this tree is {} owners (--layout)",
                  is_flat ? "without" : "with", is_flat ? "with" : "without"));
  }
  ManifestItem item;
  while (reader.next(item)) {
    Context::stop_if_interrupted();
    if (is_in_scope(item.what, plan.scope)) plan.sums.add(item);
  }
  plan.missing = reader.sums().failed;
  return plan;
}

class Importing {
 public:
  Importing(Context& context, const Options& options, ImportJournal& journal, ChangeReport& report)
      : m_context(context),
        m_options(options),
        m_importer(context, options.folder, options.replace ? Existing::kReplace : Existing::kKeep,
                   journal),
        m_report(report) {}

  void run(const Plan& plan) {
    Progress progress(m_context.out(), m_context.options().progress, "importing",
                      plan.sums.items());
    ManifestReader reader(m_options.folder);
    for (bool is_more = true; is_more && !Context::interrupted();) {
      std::vector<ManifestItem> batch;
      is_more = read_batch(reader, plan.scope, batch);
      m_importer.run(batch, [&](const ManifestItem& item, Imported result, const Failure* why) {
        tell(item, result, why);
        progress.advance(1, item.what.name);
      });
    }
  }

 private:
  /// @return whether there can be more items.
  static bool read_batch(ManifestReader& reader, const admin::Scope& scope,
                         std::vector<ManifestItem>& batch) {
    std::uint64_t bytes = 0;
    ManifestItem item;
    while (batch.size() < StoreBatch::kMostFiles && bytes < StoreBatch::kMostBytes) {
      if (!reader.next(item)) return false;
      if (!is_in_scope(item.what, scope)) continue;
      bytes += item.what.info.size;
      batch.push_back(item);
    }
    return true;
  }

  void tell(const ManifestItem& item, Imported result, const Failure* failure) {
    const Subject subject = subject_of(item.what);
    if (failure != nullptr) return m_report.failed(subject, failure->what());
    if (result == Imported::kThere) return m_report.skipped(subject, "it already exists");
    m_report.add_bytes(result == Imported::kTimeSet ? 0 : item.what.info.size);
    m_report.done_as(name_of(result), subject, fields_of(item), tail_of(item));
  }

  Context& m_context;
  const Options& m_options;
  Importer m_importer;
  ChangeReport& m_report;
};

Exit run_import(Context& context, const Options& options) {
  context.tree();
  check_outside_tree(context, options.folder);
  const Plan plan = plan_of(context, options.folder);
  if (plan.missing != 0) {
    context.out().warning(
        formatted("the export is incomplete: {} of its files could not be read when it was written",
                  plan.missing));
  }
  ChangeReport report(context, "stgctl.import/1", "imported");
  if (plan.sums.items() == 0) return report.finish({{"bytes", 0}});
  const bool dry = context.options().dry_run;
  if (!dry) {
    context.confirm(formatted("Import {} versions, {} sub-parts and {} files by path, {}?",
                              plan.sums.versions, plan.sums.parts, plan.sums.files,
                              format_bytes(plan.sums.bytes)));
    context.open_library();
  }
  ImportJournal journal(context, dry ? ImportJournal::Use::kLook : ImportJournal::Use::kWork);
  report.guarded([&] {
    Importing(context, options, journal, report).run(plan);
    return 0;
  });
  if (!dry) journal.close();
  return report.finish({{"bytes", report.bytes()}, {"seconds", report.seconds()}},
                       format_bytes(report.bytes()) + report.speed());
}

}  // namespace

Commands import_command() {
  return {{"import", Group::kChange, Effect::kChanges,
           "Store the content of an export, with its times", run_import,
           "Compares each file with the manifest before it stores the file, and each version\n"
           "afterwards. Skips what already exists. After a kill, run the same import again.\n"
           "--area and --owner limit it."}};
}

}  // namespace stgctl
