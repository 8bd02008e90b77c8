#include <set>

#include "client/stgctl/command.h"
#include "client/stgctl/operations.h"

namespace stgctl {

namespace {

/// A version, and the version that it becomes.
struct Move : StoreItem {
  FoundEntry from;
  std::optional<Removal> removal = {};
};

/// Reports a moved version; in a dry run the expected move.
void tell_moved(ChangeReport& report, const Move& move) {
  Json fields;
  fields["new_area"] = admin::name_of(move.target.area);
  if (!move.target.owner.empty()) fields["new_owner"] = move.target.owner;
  fields["new_name"] = move.name;
  fields["new_timestamp"] = move.timestamp;
  fields["replaced"] = move.old.has_value();
  report.done(subject_of(move.from), fields, "to " + shown(subject_of(move)));
}

/// Old and new names can be in different folders, so a batch of moves loads and saves more indexes
/// than one of put. That is why it is larger.
constexpr std::size_t kMostMoves = 1000;

/// Waits until no process has a document open: a half-written document must not be copied.
bool wait_for(Context& context, const std::string& path) {
  admin::LockedFile file;
  const os::Status status = file.open(path, admin::LockedFile::For::kChanging, context.locking());
  Context::stop_if_interrupted();
  if (status.failure() == os::Failure::kLocked) throw lock_missed(context, path);
  return true;
}

/// Stores a batch of versions under their new names, then removes the old ones, and reports each. A
/// kill in between leaves both. An old version also stays if another process changed it after the
/// copy, or has it open.
/// @return how many of the moves it took.
std::size_t move_batch(Context& context, std::span<Move> moves, ChangeReport& report) {
  StoreBatch batch(context, kMostMoves);
  std::size_t taken = 0;
  const auto take = [&](Move& move) {
    return batch.take(move, [&] { return wait_for(context, move.from.path()); });
  };
  while (taken < moves.size() && take(moves[taken++])) {
  }
  batch.run();
  std::vector<Removal*> removals;
  for (Move& move : moves.first(taken)) {
    if (move.failure) continue;
    // Compares bytes: times do not show a change within the same second.
    const auto is_same = [&move](admin::LockedFile& file) { return file.is_equal_to(move.path); };
    removals.push_back(&move.removal.emplace(move.from, is_same));
  }
  if (!batch.end()) batch.end() = remove_together(context, removals);
  for (Move& move : moves.first(taken)) {
    const Subject subject = subject_of(move.from);
    if (move.failure) {
      report.failed(subject, *move.failure);
    } else if (move.removal->is_removed()) {
      tell_moved(report, move);
      report.add_bytes(move.from.info.size);
    } else {
      report.failed(subject, formatted("it is stored as {}, but the old version also remains: {}",
                                       shown(subject_of(move)), move.removal->why_not_removed()));
    }
  }
  batch.throw_end();
  return taken;
}

struct Options : Arguments {
  TextOption from{*this, "name", "NAME", "The logical name"};
  TextOption to{*this, "new-name", "NEW-NAME", "The new name"};
  TextOption match{*this, "--match", "PATTERN",
                   "All documents that match this pattern; * and ? as in a shell"};
  TextOption match_to{
      *this, "--to", "PATTERN",
      "Their new name: each \"*\" takes the text that the same \"*\" of --match matched"};
  TextOption timestamp{*this, "--timestamp", kStamp, "The version, if there are several"};
  TextOption new_timestamp{*this, "--new-timestamp", kStamp, "The new version (unchanged)"};
  Flag replace{*this, "--replace", "Replace a version that exists"};
};

/// The pattern @p to, with the texts that the stars of @p from match in the name.
/// @param name matches @p from.
std::string renamed(const std::string& from, const std::string& to, const std::string& name) {
  std::vector<std::string_view> stars;
  admin::matches(from, name, &stars);
  std::string result;
  std::size_t next = 0;
  for (const char c : to) result += c == '*' ? stars[next++] : std::string_view(&c, 1);
  return result;
}

/// Plans all moves, and refuses any that would lose a version.
class Planner {
 public:
  Planner(Context& context, const Options& options) : m_context(context), m_options(options) {}

  std::vector<Move> run() {
    const bool is_pattern = !m_options.match.empty();
    const NamedVersion from = named_version(
        m_context, is_pattern ? m_options.match : m_options.from, m_options.timestamp);
    const NamedVersion to = named_to(is_pattern ? m_options.match_to : m_options.to, from.target);
    if (is_pattern) {
      check_pattern(from.name, to.name);
    } else {
      check_name("the name", from.name);
      check_name("the new name", to.name);
    }
    for (const FoundEntry& entry : is_pattern ? matching(from) : only_one(from))
      add(entry, to, is_pattern ? renamed(from.name, to.name, entry.name) : to.name);
    for (const Move& move : m_moves) {
      if (m_sources.contains(version_of(move.target, move.name, move.timestamp)))
        refuse("{} is also in the list of documents to move; move it first",
               shown(subject_of(move)));
    }
    return std::move(m_moves);
  }

 private:
  /// The new name keeps area and owner, unless it contains others.
  NamedVersion named_to(const std::string& text, const Target& from) {
    const std::optional<std::int32_t> said = parse_stamp(m_options.new_timestamp);
    NamedVersion to = {from, text, said};
    if (const auto version = parse_version_name(text, m_context.tree().layout)) {
      to = named_version_at(m_context, *version);
      if (said && to.timestamp && *said != *to.timestamp)
        misused("{} names another timestamp than the options", shown(text));
      if (said) to.timestamp = said;
    }
    if (to.timestamp && *to.timestamp < 0) misused("{}", is_stamp(std::to_string(*to.timestamp)));
    return to;
  }

  static void check_pattern(const std::string& from, const std::string& to) {
    if (to.find('?') != std::string::npos ||
        std::ranges::count(from, '*') != std::ranges::count(to, '*')) {
      misused(
          "'{}' must have as many \"*\" as '{}', and no \"?\": each takes the text that "
          "the same one matched",
          shown(to), shown(from));
    }
  }

  std::vector<FoundEntry> only_one(const NamedVersion& from) {
    std::vector<FoundEntry> versions = find_versions(m_context, from);
    if (versions.empty()) no_version(from);
    if (versions.size() > 1)
      refuse("{} has {} versions; use --timestamp", shown(from.name), versions.size());
    return versions;
  }

  std::vector<FoundEntry> matching(const NamedVersion& from) {
    std::vector<FoundEntry> found = find_matching(m_context, from);
    if (found.empty()) not_found("nothing matches: nothing was moved");
    return found;
  }

  static std::string version_of(const Target& target, const std::string& name,
                                std::int32_t timestamp) {
    return formatted("{}/{}/{}", admin::name_of(target.area), target.owner,
                     index_format::key_of(name, timestamp));
  }

  void add(const FoundEntry& from, const NamedVersion& to, const std::string& name) {
    Move move{{to.target, from.path(), name, to.timestamp.value_or(from.timestamp), from.info.size},
              from};
    check_name("the new name", name);
    const Target target = target_of(m_context, from.folder);
    const std::string old_version = version_of(target, from.name, from.timestamp);
    const std::string new_version = version_of(move.target, name, move.timestamp);
    if (old_version == new_version) refuse("the new name and version are the old ones");
    const admin::DocumentFolder folder = folder_for(m_context, move.target, name);
    check_no_link(m_context, from.path());
    check_no_link(m_context, folder.path);
    check_not_shadowed(m_context, target, from.name, from.timestamp);
    check_not_shadowed(m_context, move.target, name, move.timestamp);
    KnownEntries& known = m_known.try_emplace(folder.path, m_context).first->second;
    move.old = known.find(folder, name, move.timestamp);
    if (move.old && !m_options.replace)
      refuse("{} already exists; use --replace", shown(subject_of(move)));
    if (!m_targets.insert(new_version).second)
      refuse("two versions would get the name {}", shown(subject_of(move)));
    m_sources.insert(old_version);
    m_moves.push_back(std::move(move));
  }

  Context& m_context;
  const Options& m_options;
  std::map<std::string, KnownEntries> m_known;  ///< by folder
  std::set<std::string> m_sources;
  std::set<std::string> m_targets;
  std::vector<Move> m_moves;
};

Exit run_mv(Context& context, const Options& options) {
  const bool is_single = options.match.empty();
  if (is_single == options.from.empty() || is_single == options.to.empty() ||
      is_single != options.match_to.empty()) {
    misused(
        "no name is given; name a document and its new name, or use --match PATTERN --to PATTERN");
  }
  std::vector<Move> moves = Planner(context, options).run();
  ChangeReport report(context, "stgctl.mv/1", "moved");
  if (context.is_dry_run()) {
    for (const Move& move : moves) tell_moved(report, move);
    return report.finish();
  }
  context.begin_changes(moves.size() == 1
                            ? formatted("Move {} to {}?", shown(subject_of(moves[0].from)),
                                        shown(subject_of(moves[0])))
                            : formatted("Move {} versions?", moves.size()));
  sort_by_folder(
      moves, [&](const Move& move) { return folder_for(context, move.target, move.name).path; });
  report.in_batches("moving", std::span(moves), &Move::name,
                    [&](std::span<Move> rest) { return move_batch(context, rest, report); });
  return report.finish({{"bytes", report.bytes()}}, format_bytes(report.bytes()) + report.speed());
}

}  // namespace

Commands mv_command() {
  return {{"mv", Group::kChange, Effect::kChanges, "Rename documents, or change their version",
           run_mv,
           "The area is docs unless --area names another one. A document keeps its modification\n"
           "time. Its sub-parts are removed, because programs generate them again. Key lines\n"
           "that name it stay. The new name may contain another owner or area:\n"
           "'docs/bert/sales.kdf'."}};
}

}  // namespace stgctl
