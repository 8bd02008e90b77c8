#include "client/stgctl/moving.h"

#include <algorithm>
#include <deque>
#include <span>
#include <utility>

#include "client/admin/locked_file.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/lock_wait.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/progress.h"
#include "client/stgctl/removing.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

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
    const admin::NewVersion* stored = nullptr;  ///< until it is settled
    std::string new_path;                       ///< where its bytes are then
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
    // Times would not tell what was written anew within the same second.
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
    m_report.failed(subject, formatted("it is stored as {}, but also where it was: {}", to,
                                       why_not_removed(work.old)));
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
