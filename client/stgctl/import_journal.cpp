#include "client/stgctl/import_journal.h"

#include <filesystem>
#include <sstream>
#include <system_error>

#include "client/admin/text.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/text.h"
#include "vu_file_except.h"

namespace stgctl {

namespace fs = std::filesystem;

namespace {

constexpr char kBegun = '+';
constexpr char kEnded = '-';

/// The version as one word: its names may hold any byte.
std::string word_for(const admin::Holding& version) {
  return formatted("{}/{}/{}/{}", admin::name_of(version.area), admin::to_hex(version.owner),
                   admin::to_hex(version.name), version.timestamp);
}

}  // namespace

ImportJournal::ImportJournal(Context& context, Use use) : m_path(context.storage() + ".import") {
  std::string text;
  if (use == Use::kWork) {
    text = open();
  } else {
    admin::sys::Locking unlocked;
    unlocked.mode = admin::sys::Locking::Mode::kNone;
    if (!admin::sys::read_file(m_path, unlocked, text).ok()) text.clear();
  }
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    // What a line that broke off is about was never begun.
    if (lines.eof()) break;
    if (line.empty()) continue;
    if (line[0] == kBegun) m_pending.insert(line.substr(1));
    if (line[0] == kEnded) m_pending.erase(line.substr(1));
  }
}

std::string ImportJournal::open() {
  const fs::path path = to_path(m_path);
  m_file = vu_file(from_path(path.parent_path()), from_path(path.filename()));
  bool is_locked_elsewhere = false;
  if (!m_file.try_open(vu_file::o_append, is_locked_elsewhere, true)) {
    throw Failure(Exit::kFailed, formatted("{} could not be made, by which an import that was "
                                           "killed can be gone on with; may you write there?",
                                           shown(m_path)));
  }
  if (is_locked_elsewhere) {
    throw Failure(Exit::kLockTimeout,
                  shown(m_path) + " is locked: another import into this tree is at work");
  }
  std::string text;
  try {
    m_file.read(text, 0);
  } catch (const vu_file_except& error) {
    throw Failure(Exit::kFailed, shown(m_path) + ": " + error.what());
  }
  return text;
}

bool ImportJournal::is_pending(const admin::Holding& version) const {
  return m_pending.contains(word_for(version));
}

void ImportJournal::begin(const admin::Holding& version) {
  const std::string word = word_for(version);
  // A line feed first: a line that broke off must not run into this one.
  append('\n' + (kBegun + word) + '\n');
  m_pending.insert(word);
}

void ImportJournal::end(const admin::Holding& version) {
  const std::string word = word_for(version);
  // Without this line the version would only be looked at once more.
  m_pending.erase(word);
  m_file.write(kEnded + word + '\n');
}

void ImportJournal::append(const std::string& line) {
  if (m_file.write(line) == static_cast<int>(line.size())) return;
  throw Failure(Exit::kFailed, shown(m_path) + " takes no more; is there room?");
}

void ImportJournal::close() {
  m_file.close();
  if (!m_pending.empty()) return;
  std::error_code ignored;
  fs::remove(to_path(m_path), ignored);
}

}  // namespace stgctl
