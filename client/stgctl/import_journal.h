#pragma once

#include <set>
#include <string>

#include "client/admin/entries.h"
#include "client/stgctl/context.h"
#include "vu_file.h"

namespace stgctl {

/// Which versions an import has begun to write and not completed: a file beside the storage folder,
/// called like it and ".import". A process that is killed leaves it there, and the next import of
/// whichever export then knows a cut document from one that somebody else stored. It is held locked
/// meanwhile, so that two imports into one tree do not meet.
class ImportJournal {
 public:
  enum class Use { kLook, kWork };

  /// Reads what an import before has left, and opens the journal for work; looking changes nothing.
  /// @throws Failure kLockTimeout when another import is at work, kFailed when it cannot be
  /// written.
  ImportJournal(Context& context, Use use);

  /// Whether a version was begun and not completed.
  bool is_pending(const admin::Holding& version) const;
  void begin(const admin::Holding& version);
  /// The version is complete, or gone again.
  void end(const admin::Holding& version);
  /// Ends the work: takes the journal away, unless something in it is still pending.
  void close();

 private:
  std::string open();
  void append(const std::string& line);

  std::string m_path;
  vu_file m_file;
  std::set<std::string> m_pending;
};

}  // namespace stgctl
