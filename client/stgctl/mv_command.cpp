#include <algorithm>
#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "client/admin/locked_file.h"
#include "client/stgctl/command.h"
#include "client/stgctl/context.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/output.h"
#include "client/stgctl/report.h"
#include "client/stgctl/target.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

/// A version, and its new name.
struct Move {
  FoundEntry from;
  Target target;
  std::string name;
  std::int32_t timestamp = 0;
  std::optional<FoundEntry> replaced;  ///< the version that has the new name

  /// The new version.
  Subject to() const {
    return {std::string(admin::name_of(target.area)), target.owner, name, timestamp};
  }
};

/// Reports a moved version; in a dry run the expected move.
void tell_moved(ChangeReport& report, const Move& move) {
  Json fields;
  fields["new_area"] = admin::name_of(move.target.area);
  if (!move.target.owner.empty()) put_name(fields, "new_owner", move.target.owner);
  put_name(fields, "new_name", move.name);
  fields["new_timestamp"] = move.timestamp;
  fields["replaced"] = move.replaced.has_value();
  report.done(subject_of(move.from), fields, "to " + shown(move.to()));
}

/// Old and new names can be in different folders, so a batch of moves loads and saves more indexes
/// than a StoreBatch. That is why it is larger.
constexpr std::size_t kMostMoves = 1000;

/// One batch of moves.
class Batch {
 public:
  Batch(Context& context, std::span<const Move> moves, ChangeReport& report)
      : m_context(context), m_moves(moves), m_report(report) {}

  void run() {
    store();
    remove();
    for (const Work& work : m_works) tell(work);
    if (m_end) throw Failure(*m_end);
  }
  /// How many of the moves the batch has taken.
  std::size_t taken() const { return m_works.size(); }

 private:
  struct Work {
    const Move* move = nullptr;
    const admin::NewVersion* stored = nullptr;  ///< null after store()
    std::string new_path;                       ///< the path of the new version
    Removal old;
    std::optional<Failure> failure;
  };

  static StoreItem item_of(const Move& move) {
    return {move.from.path(), move.name, move.from.info.size, move.timestamp};
  }

  void wait_for(const std::string& path);
  void store();
  void settle(Work& work);
  std::string path_of(const Move& move, const std::string& file) const;
  void remove();
  void tell(const Work& work);
  void note(Work& work, const Failure& failure) {
    work.failure = failure;
    if (ends_work(failure) && !m_end) m_end = failure;
  }

  Context& m_context;
  std::span<const Move> m_moves;
  ChangeReport& m_report;
  std::deque<Work> m_works;
  std::optional<Failure> m_end;
};

/// Waits until no process has a document open: a half-written document must not be copied.
void Batch::wait_for(const std::string& path) {
  admin::LockedFile file;
  const os::Status status = file.open(path, admin::LockedFile::For::kChanging,
                                      admin::LockedFile::IfMissing::kFail, m_context.locking());
  Context::stop_if_interrupted();
  if (status.failure() == os::Failure::kLocked) throw lock_missed(m_context, path);
}

void Batch::store() {
  StoreBatch batch(m_context);
  std::uint64_t bytes = 0;
  for (const Move& move : m_moves) {
    const bool is_enough = Context::interrupted() || bytes > StoreBatch::kMostBytes;
    if (!m_works.empty() && is_enough) break;
    Work& work = m_works.emplace_back();
    work.move = &move;
    bytes += move.from.info.size;
    try {
      wait_for(move.from.path());
      work.stored = move.replaced ? &batch.add_replacing(move.target, item_of(move), *move.replaced)
                                  : &batch.add(move.target, item_of(move));
    } catch (const Failure& failure) {
      note(work, failure);
      if (m_end) break;
    }
  }
  batch.run();
  for (Work& work : m_works) {
    if (!work.failure) settle(work);
    work.stored = nullptr;
  }
}

std::string Batch::path_of(const Move& move, const std::string& file) const {
  const admin::DocumentFolder folder =
      admin::folder_for(m_context.tree(), move.target.area, move.target.owner, move.name);
  return admin::sys::join(folder.path, file);
}

void Batch::settle(Work& work) {
  using Stored = admin::NewVersion::Fate;
  try {
    if (work.stored->fate == Stored::kInPlace) {
      if (m_end) throw Failure(*m_end);
      overwrite_file(m_context, work.move->target, item_of(*work.move));
    } else if (work.stored->fate != Stored::kStored) {
      throw failure_of(m_context, *work.stored);
    }
    const Move& move = *work.move;
    work.new_path = path_of(move, move.replaced ? move.replaced->file : work.stored->file);
  } catch (const Failure& failure) {
    note(work, failure);
  }
}

void Batch::remove() {
  std::vector<Removal*> removals;
  for (Work& work : m_works) {
    if (work.failure) continue;
    // Compares bytes: times do not show a change within the same second.
    work.old = removal_of(work.move->from, [&work](admin::LockedFile& file) {
      return file.is_equal_to(work.new_path);
    });
    removals.push_back(&work.old);
  }
  if (!m_end) m_end = remove_together(m_context, removals);
}

void Batch::tell(const Work& work) {
  const Subject subject = subject_of(work.move->from);
  const std::string to = shown(work.move->to());
  if (work.failure) {
    if (!ends_work(*work.failure)) m_report.failed(subject, work.failure->what());
  } else if (is_removed(work.old)) {
    tell_moved(m_report, *work.move);
    m_report.add_bytes(work.move->from.info.size);
  } else {
    m_report.failed(subject, formatted("it is stored as {}, but the old version also remains: {}",
                                       to, why_not_removed(work.old)));
  }
}

/// Moves versions batch by batch, and reports each. A batch first stores all versions under their
/// new names, then removes the old ones. A kill in between leaves both. An old version also stays
/// if another process changed it after the copy, or has it open.
/// @throws Failure kLockTimeout, kInterrupted, after it reported what was moved.
void move_versions(Context& context, std::vector<Move> moves, ChangeReport& report) {
  // Sorted by folder, to load and save each index as rarely as possible.
  const auto folder_of = [&](const Move& move) {
    return admin::folder_for(context.tree(), move.target.area, move.target.owner, move.name).path;
  };
  std::vector<std::pair<std::string, Move>> sorted;
  for (Move& move : moves) {
    std::string folder = folder_of(move);
    sorted.emplace_back(std::move(folder), std::move(move));
  }
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const auto& one, const auto& other) { return one.first < other.first; });
  for (std::size_t i = 0; i < moves.size(); ++i) moves[i] = std::move(sorted[i].second);
  Progress progress(context.out(), context.options().progress, "moving", moves.size());
  for (std::span<const Move> rest = moves; !rest.empty() && !Context::interrupted();) {
    Batch batch(context, rest.first(std::min(rest.size(), kMostMoves)), report);
    batch.run();
    progress.advance(batch.taken(), rest[batch.taken() - 1].name);
    rest = rest.subspan(batch.taken());
  }
}

struct Options {
  Arguments app;
  TextOption from{app, "name", "NAME", "The logical name"};
  TextOption to{app, "new-name", "NEW-NAME", "The new name"};
  TextOption match{app, "--match", "PATTERN",
                   "All documents that match this pattern; * and ? as in a shell"};
  TextOption match_to{
      app, "--to", "PATTERN",
      "Their new name: each \"*\" takes the text that the same \"*\" of --match matched"};
  TextOption timestamp{app, "--timestamp", kStamp, "The version, if there are several"};
  TextOption new_timestamp{app, "--new-timestamp", kStamp, "The new version (unchanged)"};
  Flag replace{app, "--replace", "Replace a version that exists"};
};

/// How many bytes at the start of a text match a part of a pattern. The part has no stars. Returns
/// nothing if it does not match.
std::optional<std::size_t> width_of(std::string_view part, std::string_view text) {
  std::size_t at = 0;
  for (const char c : part) {
    if (at == text.size() || (c != '?' && c != text[at])) return std::nullopt;
    ++at;
    // "?" also takes the following bytes of a UTF-8 character.
    while (c == '?' && at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80)
      ++at;
  }
  return at;
}

/// The texts that the stars of a pattern match in a name; nothing if the name does not match. The
/// first texts are as short as possible.
std::optional<std::vector<std::string>> stars_in(std::string_view pattern, std::string_view name) {
  std::vector<std::string> stars;
  std::size_t star = pattern.find('*');
  const auto first = width_of(pattern.substr(0, star), name);
  if (!first) return std::nullopt;
  name.remove_prefix(*first);
  while (star != std::string_view::npos) {
    pattern.remove_prefix(star + 1);
    star = pattern.find('*');
    const bool is_last = star == std::string_view::npos;
    bool is_found = false;
    for (std::size_t at = 0; at <= name.size() && !is_found; ++at) {
      const auto width = width_of(pattern.substr(0, star), name.substr(at));
      if (!width || (is_last && at + *width != name.size())) continue;
      stars.emplace_back(name.substr(0, at));
      name.remove_prefix(at + *width);
      is_found = true;
    }
    if (!is_found) return std::nullopt;
  }
  return name.empty() ? std::optional(stars) : std::nullopt;
}

/// The pattern with its stars replaced.
std::string filled(const std::string& pattern, const std::vector<std::string>& stars) {
  std::string name;
  auto star = stars.begin();
  for (const char c : pattern) {
    if (c == '*') {
      name += *star++;
    } else {
      name += c;
    }
  }
  return name;
}

/// @throws Failure kRefused if @p name does not match @p from.
std::string renamed(const std::string& from, const std::string& to, const std::string& name) {
  const auto stars = stars_in(from, name);
  if (!stars) throw Failure(Exit::kRefused, shown(name) + " cannot be matched by that pattern");
  return filled(to, *stars);
}

/// Plans all moves, and refuses any that would lose a version.
class Planner {
 public:
  Planner(Context& context, const Options& options) : m_context(context), m_options(options) {}

  std::vector<Move> run() {
    const bool is_pattern = !m_options.match.empty();
    const NamedVersion from =
        named(is_pattern ? m_options.match : m_options.from, m_options.timestamp);
    const NamedVersion to = named_to(is_pattern ? m_options.match_to : m_options.to, from.target);
    if (is_pattern) {
      check_pattern(from.name, to.name);
    } else {
      check_name("the name", from.name);
      check_name("the new name", to.name);
    }
    for (const FoundEntry& entry : is_pattern ? matching(from) : only_one(from)) {
      const std::string name = is_pattern ? renamed(from.name, to.name, entry.name) : to.name;
      add(entry, to, name);
    }
    for (const Move& move : m_moves) {
      if (m_sources.contains(version_of(move.target, move.name, move.timestamp)))
        refuse(shown(move.to()) + " is also in the list of documents to move; move it first");
    }
    return std::move(m_moves);
  }

 private:
  [[noreturn]] static void refuse(const std::string& why) { throw Failure(Exit::kRefused, why); }

  NamedVersion named(const std::string& text, const std::string& timestamp) {
    return named_version(m_context, text, timestamp, admin::Area::kDocs);
  }

  /// The new name keeps area and owner, unless it contains others.
  NamedVersion named_to(const std::string& text, const Target& from) {
    NamedVersion to;
    if (const auto version = parse_version_name(text, m_context.tree().layout)) {
      to = named_version_at(m_context, *version);
      const auto said = parse_stamp(m_options.new_timestamp);
      if (said && to.timestamp && *said != *to.timestamp)
        throw Failure(Exit::kUsage, shown(text) + " names another timestamp than the options");
    } else {
      to = {from, text, std::nullopt};
    }
    if (!to.timestamp) to.timestamp = parse_stamp(m_options.new_timestamp);
    if (to.timestamp && *to.timestamp < 0)
      throw Failure(Exit::kUsage, is_stamp(std::to_string(*to.timestamp)));
    return to;
  }

  static void check_pattern(const std::string& from, const std::string& to) {
    if (to.find('?') != std::string::npos ||
        std::count(from.begin(), from.end(), '*') != std::count(to.begin(), to.end(), '*')) {
      throw Failure(Exit::kUsage, formatted("'{}' must have as many \"*\" as '{}', and no \"?\": "
                                            "each takes the text that the same one matched",
                                            shown(to), shown(from)));
    }
  }

  std::vector<FoundEntry> only_one(const NamedVersion& from) {
    std::vector<FoundEntry> versions = find_versions(m_context, from.target, from.name);
    keep_wanted(versions, from);
    if (versions.empty()) {
      throw Failure(Exit::kNothingMatched, "there is no such version of " + shown(from.name));
    }
    if (versions.size() > 1) {
      refuse(formatted("{} has {} versions; use --timestamp", shown(from.name), versions.size()));
    }
    return versions;
  }

  std::vector<FoundEntry> matching(const NamedVersion& from) {
    std::vector<FoundEntry> found = find_matching(m_context, from);
    if (found.empty()) throw Failure(Exit::kNothingMatched, "nothing matches: nothing was moved");
    return found;
  }

  static std::string version_of(const Target& target, const std::string& name,
                                std::int32_t timestamp) {
    return formatted("{}/{}/{}", admin::name_of(target.area), target.owner,
                     index_format::key_of(name, timestamp));
  }

  void add(const FoundEntry& from, const NamedVersion& to, const std::string& name) {
    Move move = {from, to.target, name, to.timestamp.value_or(from.timestamp), std::nullopt};
    check_name("the new name", name);
    const Target target = target_of(m_context, from.folder);
    const std::string old_version = version_of(target, from.name, from.timestamp);
    const std::string new_version = version_of(move.target, name, move.timestamp);
    if (old_version == new_version) refuse("the new name and version are the old ones");
    const admin::DocumentFolder folder =
        admin::folder_for(m_context.tree(), move.target.area, move.target.owner, name);
    check_no_link(m_context, from.path());
    check_no_link(m_context, folder.path);
    check_not_shadowed(m_context, target, from.name, from.timestamp);
    check_not_shadowed(m_context, move.target, name, move.timestamp);
    move.replaced = find(folder, name, move.timestamp);
    if (move.replaced && !m_options.replace)
      refuse(shown(move.to()) + " already exists; use --replace");
    if (!m_targets.insert(new_version).second)
      refuse("two versions would get the name " + shown(move.to()));
    m_sources.insert(old_version);
    m_moves.push_back(std::move(move));
  }

  std::optional<FoundEntry> find(const admin::DocumentFolder& folder, const std::string& name,
                                 std::int32_t timestamp) {
    auto [at, is_new] = m_known.try_emplace(folder.path, m_context);
    return at->second.find(folder, name, timestamp);
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
    throw Failure(
        Exit::kUsage,
        "no name is given; name a document and its new name, or use --match PATTERN --to PATTERN");
  }
  std::vector<Move> moves = Planner(context, options).run();
  ChangeReport report(context, "stgctl.mv/1", "moved");
  if (context.options().dry_run) {
    for (const Move& move : moves) tell_moved(report, move);
    return report.finish();
  }
  context.confirm(moves.size() == 1 ? formatted("Move {} to {}?", shown(subject_of(moves[0].from)),
                                                shown(moves[0].to()))
                                    : formatted("Move {} versions?", moves.size()));
  context.open_library();
  report.guarded([&] {
    move_versions(context, std::move(moves), report);
    return 0;
  });
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
