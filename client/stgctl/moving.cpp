#include "client/stgctl/moving.h"

#include <algorithm>
#include <deque>
#include <map>
#include <span>
#include <utility>

#include "client/admin/locked_file.h"
#include "client/admin/old_versions.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/lock_wait.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/progress.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

using Fate = admin::OldVersion::Fate;

/// Documents are spread over folders by both of their names: a batch loads and saves an index per
/// folder on either side, so that it is larger than one of new versions.
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
  /// How many of the moves it took.
  std::size_t taken() const { return m_works.size(); }

 private:
  struct Work {
    const Move* move = nullptr;
    const admin::NewVersion* stored = nullptr;
    admin::OldVersion old;
    std::optional<Failure> failure;
  };

  static StoreItem item_of(const Move& move) {
    return {move.from.path(), move.name, move.from.info.size, move.timestamp};
  }

  void wait_for(const std::string& path);
  void store();
  void settle(Work& work);
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

/// Until nobody has a document open: what is being written must not be copied.
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
  }
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
  } catch (const Failure& failure) {
    note(work, failure);
  }
}

void Batch::remove() {
  std::map<std::string, std::vector<Work*>> folders;
  for (Work& work : m_works) {
    const FoundEntry& from = work.move->from;
    work.old = {from.name, from.timestamp, from.file, from.info, Fate::kPending, ""};
    if (!work.failure) folders[from.folder.path].push_back(&work);
  }
  if (m_end) return;
  std::vector<admin::OldVersions> all;
  // Asked for while the files are there, by which they are told apart.
  std::vector<FoundParts> parts;
  for (const auto& [path, works] : folders) {
    admin::OldVersions& each = all.emplace_back();
    each.folder = works.front()->move->from.folder;
    for (Work* const work : works) each.versions.push_back(&work->old);
    parts.emplace_back(path);
  }
  admin::remove_old_versions(all, m_context.locking());
  for (std::size_t i = 0; i < all.size(); ++i) {
    std::vector<std::string> gone;
    for (const admin::OldVersion* const version : all[i].versions) {
      if (version->fate == Fate::kRemoved) gone.push_back(version->file);
      if (version->fate == Fate::kLocked && !m_end) m_end = lock_missed(m_context, version->reason);
    }
    parts[i].try_to_remove(m_context, gone);
  }
}

void Batch::tell(const Work& work) {
  const Subject subject = subject_of(work.move->from);
  const std::string to = shown(work.move->to());
  if (work.failure) {
    if (!ends_work(*work.failure)) m_report.failed(subject, work.failure->what());
  } else if (work.old.fate == Fate::kRemoved) {
    tell_moved(m_report, *work.move);
    m_report.add_bytes(work.move->from.info.size);
  } else {
    const bool is_open = work.old.fate == Fate::kPending || work.old.fate == Fate::kLocked;
    const std::string why = is_open ? "a lock was not obtained in time" : work.old.reason;
    m_report.failed(subject, formatted("it is stored as {}, but also where it was: {}", to, why));
  }
}

}  // namespace

void tell_moved(ChangeReport& report, const Move& move) {
  Json fields;
  fields["new_area"] = admin::name_of(move.target.area);
  if (!move.target.owner.empty()) put_name(fields, "new_owner", move.target.owner);
  put_name(fields, "new_name", move.name);
  fields["new_timestamp"] = move.timestamp;
  fields["replaced"] = move.replaced.has_value();
  report.done(subject_of(move.from), fields, "to " + shown(move.to()));
}

void move_versions(Context& context, std::vector<Move> moves, ChangeReport& report) {
  // Each index is loaded and saved as seldom as may be.
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

}  // namespace stgctl
