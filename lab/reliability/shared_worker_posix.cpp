// One worker of a crowd on two mounts: makes, reads and removes entries, and writes down what it
// did.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "lab/reliability/shared_posix.h"
#include "stg_index.h"
#include "vu_file.h"
#include "vu_file_except.h"

namespace reliability {

namespace {

constexpr long kStamp = 7;

/// args: its name; rounds; "locked" or "unlocked"; a file for what it did; how many folders; the
/// folder above them as it works in it, and as it looks at it.
class SharedWorker {
 public:
  explicit SharedWorker(const std::vector<std::string>& args)
      : m_name(args.at(0)),
        m_rounds(std::stoul(args.at(1))),
        m_report(native(args.at(3)), std::ios::app),
        m_folders(std::stoul(args.at(4))),
        m_works_in(args.at(5)),
        m_looks_at(args.at(6)),
        m_random(std::hash<std::string>()(m_name)) {
    if (args.at(2) == "unlocked") m_unlocked = std::make_unique<LocksTakenOut>();
    STGIndex::setSynchronizeMode(false);
  }

  /// Ends at the first failure.
  void work() {
    try {
      for (std::size_t round = 0; round < m_rounds; ++round) {
        create(round);
        if (round % 2 == 1) remove();
      }
      return;
    } catch (const vu_file_except& e) {
      tell("failed", 0, "", e.what(), {});
    } catch (const std::exception& e) {
      tell("failed", 0, "", std::string("no stated failure: ") + e.what(), {});
    }
  }

 private:
  struct Entry {
    std::size_t folder;
    std::string logical;
    std::string physical;
  };

  static std::string below(const std::string& folder, std::size_t number) {
    return folder + "\\folder" + std::to_string(number);
  }

  /// A line is out before the next operation begins.
  void tell(const char* what, std::size_t folder, const std::string& logical,
            const std::string& text, Clock::duration taken) {
    const auto time = std::chrono::duration_cast<std::chrono::microseconds>(taken).count();
    m_report << what << '\t' << folder << '\t' << logical << '\t' << text << '\t' << time
             << std::endl;
  }

  void create(std::size_t round) {
    Entry entry{round % m_folders, "document " + m_name + " " + std::to_string(round) + ".kdb", {}};
    tell("begins", entry.folder, entry.logical, "", {});
    auto begin = Clock::now();
    entry.physical = create_document(below(m_works_in, entry.folder), entry.logical);
    const Clock::duration taken = Clock::now() - begin;
    begin = Clock::now();
    const std::string wrong = read_document(below(m_looks_at, entry.folder), entry.logical);
    if (!wrong.empty()) {
      tell("stale", entry.folder, entry.logical, wrong, Clock::now() - begin);
      // An entry that cannot be read back counts as not acknowledged.
      throw vu_file_except("an entry that was just made cannot be read: " + wrong);
    }
    tell("read", entry.folder, entry.logical, "", Clock::now() - begin);
    tell("made", entry.folder, entry.logical, entry.physical, taken);
    m_there.push_back(std::move(entry));
  }

  void remove() {
    const std::size_t which = m_random() % m_there.size();
    const Entry entry = m_there[which];
    m_there.erase(m_there.begin() + static_cast<std::ptrdiff_t>(which));
    tell("removes", entry.folder, entry.logical, entry.physical, {});
    const auto begin = Clock::now();
    STGIndex::remove(below(m_works_in, entry.folder), entry.logical, kStamp);
    const Clock::duration taken = Clock::now() - begin;
    std::string physical;
    if (STGIndex::exists(below(m_looks_at, entry.folder), entry.logical, kStamp, physical)) {
      tell("stale", entry.folder, entry.logical, "removed, and still an entry", taken);
      throw vu_file_except("an entry that was just removed is there");
    }
    // A removal has no result, and "no" is also the answer where nothing can be asked.
    std::error_code gone;
    if (!std::filesystem::is_directory(native(m_looks_at), gone)) {
      throw vu_file_except("the answer is no, and the folder does not answer");
    }
    tell("removed", entry.folder, entry.logical, entry.physical, taken);
  }

  const std::string m_name;
  const std::size_t m_rounds;
  std::ofstream m_report;
  const std::size_t m_folders;
  const std::string m_works_in;
  const std::string m_looks_at;
  Random m_random;
  std::unique_ptr<LocksTakenOut> m_unlocked;
  std::vector<Entry> m_there;
};

int shared_worker(const std::vector<std::string>& args) {
  SharedWorker worker(args);
  say("ready");
  if (!hear()) return 1;
  worker.work();
  say("done");
  return 0;
}
REGISTER_ROLE(shared_worker, shared_worker)

}  // namespace

std::string content_of(const std::string& logical) { return "the bytes of " + logical; }

std::string create_document(const std::string& folder, const std::string& logical) {
  const std::string physical = STGIndex::create(folder, logical, kStamp);
  vu_file file(folder, physical);
  file.open(vu_file::o_truncate);
  const std::string bytes = content_of(logical);
  const int written = file.write(bytes);
  file.close();
  if (written != static_cast<int>(bytes.size())) {
    throw vu_file_except("write wrote " + std::to_string(written) + " bytes");
  }
  return physical;
}

std::string read_document(const std::string& folder, const std::string& logical) {
  std::string physical;
  if (!STGIndex::exists(folder, logical, kStamp, physical)) return "no entry";
  vu_file file(folder, physical);
  file.open(vu_file::o_read);
  std::string bytes;
  file.read(bytes, 0);
  file.close();
  return bytes == content_of(logical) ? "" : "read as '" + bytes + "'";
}

}  // namespace reliability
