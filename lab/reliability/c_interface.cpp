// A fault at every system call and every allocation of a call of the C interface. The call returns
// a status with its reason and throws nothing. It returns VU_DONE only after success.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "lab/reliability/faults.h"
#include "lab/reliability/machine.h"
#include "lab/reliability/trial.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "vu/storage.h"

namespace reliability {
namespace {

using allocations::Shortage;
using os::faults::Call;

/// One handle is enough: it contains settings and no folder.
vu_store* store() {
  static vu_store* const joined = [] {
    const vu_settings settings = VU_SETTINGS_INIT;
    vu_store* handle = nullptr;
    vu_open_store(&settings, &handle);
    return handle;
  }();
  return joined;
}

vu_document document(const char* name, std::int32_t area = VU_AREA_USER, std::int64_t version = 0) {
  vu_document result = VU_DOCUMENT_INIT;
  result.area = area;
  result.owner = "anna";
  result.name = name;
  result.version = version;
  return result;
}
const vu_document* report() {
  static const vu_document all = document("report.kdb");
  return &all;
}
const vu_document* fresh() {
  static const vu_document all = document("new.kdb", VU_AREA_USER, 3);
  return &all;
}
const vu_document* corporate() {
  static const vu_document all = document("corp.kdf", VU_AREA_DOCS, 5);
  return &all;
}
const vu_document* page() {
  static const vu_document all = document("page.kdc", VU_AREA_DOCS, 5);
  return &all;
}
const vu_document* key_file() {
  static const vu_document all = document("list.ctg");
  return &all;
}

std::int32_t go_on(void*, const vu_entry*) { return 0; }
std::int32_t go_on_with_names(void*, const char*) { return 0; }
std::int32_t go_on_with_lines(void*, const char*, const char*) { return 0; }

vu_status first_of(vu_status first, vu_status second) { return first != VU_DONE ? first : second; }

/// The close is a separate call with its own result.
vu_status with_stream(vu_status opened, vu_stream* stream, vu_status (*use)(vu_stream*)) {
  if (opened != VU_DONE) return opened;
  const vu_status used = use(stream);
  return first_of(used, vu_stream_close(stream));
}
vu_status write_text(vu_stream* stream) { return vu_stream_write(stream, "text", 4); }
vu_status read_text(vu_stream* stream) {
  char bytes[40];
  std::size_t size = 0;
  std::int64_t whole = 0;
  const vu_status read = vu_stream_read(stream, bytes, sizeof bytes, &size);
  return first_of(read, vu_stream_size(stream, &whole));
}
vu_status stream_of(const vu_document* document, std::int32_t mode, vu_status (*use)(vu_stream*)) {
  vu_stream* stream = nullptr;
  const vu_status opened = vu_open(store(), document, mode, &stream);
  return with_stream(opened, stream, use);
}
vu_status part_of(std::int32_t mode, vu_status (*use)(vu_stream*)) {
  vu_stream* stream = nullptr;
  const vu_status opened = vu_open_part(store(), page(), "html@x", "part", mode, &stream);
  return with_stream(opened, stream, use);
}
vu_status whole(const vu_document* document) {
  void* bytes = nullptr;
  std::size_t size = 0;
  const vu_status status = vu_read_whole(store(), document, &bytes, &size);
  vu_free(bytes);
  return status;
}
vu_status piece(const vu_document* document) {
  char bytes[100];
  std::size_t size = 0;
  return vu_read(store(), document, bytes, sizeof bytes, &size);
}
vu_status info_of(const vu_document* document) {
  vu_info info = VU_INFO_INIT;
  return vu_describe(store(), document, &info);
}
vu_status latest_of(const vu_document* document) {
  std::int64_t version = 0;
  return vu_latest(store(), document, &version);
}
vu_status path_of(const vu_document* document) {
  char path[1000];
  return vu_file_path(store(), document, path, sizeof path, nullptr);
}
vu_status value_of(const vu_document* document) {
  char value[100];
  return vu_key_get(store(), document, "report.kdb", value, sizeof value, nullptr);
}
vu_status open_and_close() {
  const vu_settings settings = VU_SETTINGS_INIT;
  vu_store* handle = nullptr;
  const vu_status status = vu_open_store(&settings, &handle);
  return status == VU_ALREADY ? vu_close_store(handle) : status;
}
vu_status clean(std::int64_t older_than, std::uint32_t flags) {
  return vu_clean(store(), VU_AREA_USER, "anna", older_than, flags, go_on, nullptr, nullptr);
}

struct CCall {
  const char* name;
  vu_status (*call)(const Place& place);
};

const std::string& outside(const Place& place) {
  static const std::string path = place.plain("one.txt");
  return path;
}
const std::string& copied(const Place& place) {
  static const std::string path = place.plain("copy");
  return path;
}

// clang-format off
const CCall kCalls[] = {
  {"vu_open_store", [](const Place&) { return open_and_close(); }},
  {"vu_folder", [](const Place&) {
     char path[1000]; return vu_folder(store(), VU_AREA_MAIL, path, sizeof path, nullptr); }},
  {"vu_exists", [](const Place&) { return vu_exists(store(), report()); }},
  {"vu_describe", [](const Place&) { return info_of(report()); }},
  {"vu_file_path", [](const Place&) { return path_of(report()); }},
  {"vu_read", [](const Place&) { return piece(report()); }},
  {"vu_read_whole", [](const Place&) { return whole(report()); }},
  {"vu_latest", [](const Place&) { return latest_of(report()); }},
  {"vu_put, new", [](const Place&) { return vu_put(store(), fresh(), "text", 4, 0, nullptr); }},
  {"vu_put, replacing", [](const Place&) {
     return vu_put(store(), report(), "text", 4, VU_REPLACE, nullptr); }},
  {"vu_put, in place", [](const Place&) {
     return vu_put(store(), report(), "text", 4, VU_REPLACE | VU_IN_PLACE, nullptr); }},
  {"vu_put, corporate", [](const Place&) {
     return vu_put(store(), corporate(), "text", 4, VU_REPLACE, nullptr); }},
  {"vu_copy_in", [](const Place& p) {
     return vu_copy_in(store(), fresh(), outside(p).c_str(), 0, nullptr); }},
  {"vu_copy_in, in place", [](const Place& p) {
     return vu_copy_in(store(), report(), outside(p).c_str(), VU_REPLACE | VU_IN_PLACE,
        nullptr); }},
  {"vu_copy_out", [](const Place& p) {
     return vu_copy_out(store(), report(), copied(p).c_str(), 0); }},
  {"vu_remove", [](const Place&) { return vu_remove(store(), report()); }},
  {"vu_rename", [](const Place&) { return vu_rename(store(), report(), fresh(), 0); }},
  {"vu_rename, replacing", [](const Place&) {
     return vu_rename(store(), report(), key_file(), VU_REPLACE); }},
  {"vu_rename, elsewhere", [](const Place&) {
     return vu_rename(store(), report(), corporate(), 0); }},
  {"vu_open, to read", [](const Place&) { return stream_of(report(), VU_READ_EXACT, read_text); }},
  {"vu_open, served", [](const Place&) { return stream_of(report(), VU_READ_SERVED, read_text); }},
  {"vu_open, new", [](const Place&) { return stream_of(fresh(), VU_WRITE_NEW, write_text); }},
  {"vu_open, over", [](const Place&) { return stream_of(report(), VU_WRITE_OVER, write_text); }},
  {"vu_open_part, to read", [](const Place&) { return part_of(VU_READ_SERVED, read_text); }},
  {"vu_open_part, to write", [](const Place&) { return part_of(VU_WRITE_OVER, write_text); }},
  {"vu_each_document", [](const Place&) {
     return vu_each_document(store(), VU_AREA_USER, "anna", VU_WITH_INFO, go_on, nullptr); }},
  {"vu_each_version", [](const Place&) {
     return vu_each_version(store(), report(), 0, go_on, nullptr); }},
  {"vu_each_owner", [](const Place&) {
     return vu_each_owner(store(), VU_AREA_USER, go_on_with_names, nullptr); }},
  {"vu_key_get", [](const Place&) { return value_of(key_file()); }},
  {"vu_key_set", [](const Place&) { return vu_key_set(store(), key_file(), "a", "b"); }},
  {"vu_key_set, new", [](const Place&) { return vu_key_set(store(), fresh(), "a", "b"); }},
  {"vu_key_delete", [](const Place&) { return vu_key_delete(store(), key_file(), "report.kdb"); }},
  {"vu_key_each", [](const Place&) {
     return vu_key_each(store(), key_file(), go_on_with_lines, nullptr); }},
  {"vu_profile_set", [](const Place&) {
     return vu_profile_set(store(), "anna", nullptr, "a", "b"); }},
  {"vu_rename_owner", [](const Place&) { return vu_rename_owner(store(), "anna", "berta"); }},
  {"vu_remove_owner", [](const Place&) { return vu_remove_owner(store(), "anna"); }},
  {"vu_clean", [](const Place&) { return clean(100'000, 0); }},
  {"vu_clean, everything", [](const Place&) { return clean(0, VU_CLEAN_ALL); }},
  {"vu_clean, forecast", [](const Place&) { return clean(0, VU_CLEAN_ALL | VU_DRY_RUN); }},
  {"vu_migrate_inbox", [](const Place&) { return vu_migrate_inbox(store(), "anna"); }},
};
// clang-format on

/// The result of the last call. Storing it allocates nothing.
struct Told {
  vu_status status = VU_DONE;
  bool is_last_error = true;
  bool has_reason = true;
};
Told& told() {
  static Told all;
  return all;
}

void call_and_tell(const CCall& call, const Place& place) {
  const vu_status status = call.call(place);
  vu_error error = VU_ERROR_INIT;
  vu_last_error(&error);
  // A later close can have succeeded.
  const bool is_close = std::strcmp(error.operation, "vu_stream_close") == 0;
  told() = {status, error.status == status || is_close,
            error.status == VU_DONE || *error.text != '\0'};
}

using CCalls = std::vector<CCall>;

CCalls calls_of_the_library() { return {std::begin(kCalls), std::end(kCalls)}; }

std::vector<PublicOperation> operations_for(const CCalls& calls) {
  std::vector<PublicOperation> all;
  for (const CCall& call : calls) {
    all.push_back({call.name, kForNobody,
                   OperationCall([call](const Place& place) { call_and_tell(call, place); })});
  }
  return all;
}

/// What the library finds in a tree: documents by folder and key, all other files and folders by
/// path. Orphans and adopted files do not belong to anyone, so they are left out.
Tree found_in(const Tree& tree) {
  Tree found;
  std::vector<std::string> folders;
  for (const auto& [path, bytes] : tree) {
    if (!path.ends_with("/index.dat")) continue;
    folders.push_back(path.substr(0, path.size() - std::string("index.dat").size()));
    for (const auto& [key, stored] : lines_in(tree, path)) {
      const std::string name = reader::file_of(key, stored);
      const auto file = tree.find(folders.back() + name);
      const bool is_adopted = reader::parts_of_key(key).first == name;
      if (is_adopted || key.rfind(".vu-storing-", 0) == 0) continue;
      found[folders.back() + key] = file != tree.end() ? file->second : "(missing)";
    }
  }
  for (const auto& [path, bytes] : tree) {
    const std::string folder = path.substr(0, path.find_last_of('/', path.size() - 2) + 1);
    const bool is_indexed = std::find(folders.begin(), folders.end(), folder) != folders.end();
    if (!is_indexed || path.ends_with('/')) found[path] = bytes;
  }
  return found;
}

/// The part of a tree that decides whether a call did what it reports.
Tree reported_by_calls(Tree tree) {
  // Category lines of a removed document may stay: a check that fails counts as "no", and a stream
  // only reports its own file. A folder of sub-parts that cannot be listed stays, and no call
  // reports that.
  std::erase_if(tree, [](const auto& item) {
    return item.first.ends_with("/list.ctg_0000000000") || item.first.ends_with('/');
  });
  return tree;
}

Tree without_indexes(Tree tree) {
  std::erase_if(tree, [](const auto& item) { return item.first.ends_with("/index.dat"); });
  return tree;
}

/// What a call leaves alone: everything that is the same before it and after a run without a fault.
/// A migration truncates the read list and then writes the same bytes.
Tree bystanders(const Tree& before, const Tree& after) {
  Tree same;
  std::set_intersection(before.begin(), before.end(), after.begin(), after.end(),
                        std::inserter(same, same.end()));
  std::erase_if(same, [](const auto& item) {
    return item.first.ends_with("/index") || item.first.ends_with("/read.txt");
  });
  return without_indexes(same);
}

/// Calls that truncate a file before they write it. An interruption leaves a part of it.
bool cuts_first(const std::string& operation) {
  for (const char* const part : {"in place", "vu_open", "vu_key", "vu_profile"}) {
    if (operation.find(part) != operation.npos) return true;
  }
  return false;
}

/// Checks a tree: everything in it is in one of two states, and what both contain is in it.
std::string between(const Tree& before, const Tree& after, const Tree& now,
                    const std::string& operation) {
  const auto has = [](const Tree& tree, const std::string& path, const std::string& bytes) {
    const auto found = tree.find(path);
    return found != tree.end() && found->second == bytes;
  };
  std::map<std::string, int> contents;
  for (const auto& [path, bytes] : now) {
    ++contents[bytes];
    if (has(before, path, bytes) || has(after, path, bytes)) continue;
    const auto wanted = after.find(path);
    const bool is_part = wanted != after.end() && wanted->second.rfind(bytes, 0) == 0;
    if (!is_part || !cuts_first(operation))
      return "with unexpected bytes in " + path + ": " + bytes;
  }
  for (const auto& [path, bytes] : before) {
    if (after.count(path) != 0 && now.count(path) == 0) return "without " + path;
  }
  // Moved bytes are in one of the two places.
  for (const auto& [path, bytes] : before) {
    const auto is_it = [&bytes = bytes](const auto& item) { return item.second == bytes; };
    if (std::any_of(after.begin(), after.end(), is_it) && contents[bytes] == 0)
      return "without the bytes of " + path;
  }
  return {};
}

/// Whether an operation only reads.
bool is_question(const std::string& operation) {
  for (const char* const beginning :
       {"vu_folder", "vu_exists", "vu_describe", "vu_file_path", "vu_read", "vu_latest", "vu_each",
        "vu_key_get", "vu_key_each", "vu_open_store", "vu_open, to read", "vu_open, served",
        "vu_clean, forecast"}) {
    if (operation.rfind(beginning, 0) == 0) return true;
  }
  return false;
}

/// Calls on many files may do a part of their work.
bool ends_half_way(const std::string& operation) {
  return operation.starts_with("vu_remove_owner") || operation.starts_with("vu_migrate");
}

/// Without synchronisation, mails are not migrated.
bool is_refused(const PublicOperation& operation, const Setting& setting) {
  return operation.name == "vu_migrate_inbox" && !setting.synchronize;
}

class CInterface {
 public:
  CInterface(Run& run, const CCalls& calls)
      : m_run(run), m_trial(run), m_operations(operations_for(calls)) {}

  void run_faults() {
    go_through(m_run, m_operations.size(), [this](std::size_t number, const Setting& setting) {
      return faults_of(m_operations[number], setting);
    });
    tell();
  }
  void run_shortages() {
    go_through(m_run, m_operations.size(), [this](std::size_t number, const Setting& setting) {
      return shortages_of(m_operations[number], setting);
    });
    tell();
  }

 private:
  /// A run without a fault. @return its status.
  vu_status learn(const PublicOperation& operation, const Setting& setting, Undisturbed& usual) {
    usual = m_trial.learn(operation, setting);
    const vu_status status = told().status;
    const bool must_succeed =
        setting.situation == Situation::kTidy && !is_refused(operation, setting);
    if (must_succeed && status != VU_DONE)
      m_run.fail(operation.name + " (" + name_of(setting) +
                 "), without a fault: " + vu_status_name(status));
    return status;
  }

  Disturbances faults_of(const PublicOperation& operation, const Setting& setting) {
    const auto usual = std::make_shared<Undisturbed>();
    const vu_status status = learn(operation, setting, *usual);
    Disturbances all;
    for (std::size_t k = 0; k < usual->calls.size(); ++k) {
      for (const Way& way : ways_for(usual->calls[k])) {
        all.emplace_back([this, &operation, setting, usual, status, k, way] {
          const Call call = usual->calls[k];
          const std::string what = operation.name + " (" + name_of(setting) + "), " +
                                   os::faults::name(call) + " as call " + std::to_string(k + 1) +
                                   " of " + std::to_string(usual->calls.size()) + ": " +
                                   in_words(way);
          const test_alarm alarm(what, std::chrono::seconds(60));
          m_trial.prepare(operation, setting);
          Outcome outcome;
          {
            const auto fault = plan(way, usual->calls, k);
            outcome = m_trial.call(operation, setting);
          }
          check(what, *usual, status, outcome, disturbance_of(operation.name, way, call));
        });
      }
    }
    return all;
  }

  Disturbances shortages_of(const PublicOperation& operation, const Setting& setting) {
    const auto usual = std::make_shared<Undisturbed>();
    const vu_status status = learn(operation, setting, *usual);
    Disturbances all;
    for (std::uint64_t k = 1; k <= usual->outcome.allocations; ++k) {
      for (const Shortage shortage : {Shortage::kOnce, Shortage::kLasting}) {
        all.emplace_back([this, &operation, setting, usual, status, k, shortage] {
          const std::string what = operation.name + " (" + name_of(setting) +
                                   "), no memory at allocation " + std::to_string(k) +
                                   (shortage == Shortage::kOnce ? ", once" : ", lasting");
          m_trial.prepare(operation, setting);
          const Outcome outcome = m_trial.call(operation, setting, shortage, k);
          check(what, *usual, status, outcome, Disturbance::kFault);
        });
      }
    }
    return all;
  }

  void check(const std::string& what, const Undisturbed& usual, vu_status usual_status,
             const Outcome& outcome, Disturbance by) {
    m_trial.check_held(what, usual, outcome);
    if (outcome.end != Outcome::End::kReturned)
      m_run.fail(what + ": " + name_of(outcome.end) + " left the call");
    const Told now_told = told();
    const std::string answer = vu_status_name(now_told.status);
    if (!now_told.is_last_error) m_run.fail(what + ": " + answer + " is not the last error");
    if (!now_told.has_reason) m_run.fail(what + ": " + answer + " without a reason");
    ++m_ends[answer];
    // A call may believe the system if it reports a file as missing.
    const bool is_lie = by == Disturbance::kLie;
    if (!is_lie && usual_status == VU_DONE && now_told.status == VU_NOTHING_MATCHED)
      m_run.fail(what + ": reports that nothing is there");
    const std::string wrong =
        is_question(what) ? after_a_question(what, usual)
                          : after_a_change(what, usual, !is_lie && now_told.status == VU_DONE);
    if (!wrong.empty()) m_run.fail(what + ": returns " + answer + ", and leaves the tree " + wrong);
  }

  /// Reading changes nothing. But it creates a missing index, and with synchronisation on it adopts
  /// orphans, which belong to nobody.
  std::string after_a_question(const std::string& what, const Undisturbed& usual) {
    const auto is_in = [&](const char* setting) { return what.find(setting) != what.npos; };
    const Tree& now = m_trial.look();
    const bool is_indexed = !is_in("no index yet");
    if (is_indexed && is_in("synchronisation off")) return difference(usual.before, now);
    std::string wrong = difference(without_indexes(usual.before), without_indexes(now));
    if (wrong.empty() && is_indexed) wrong = difference(found_in(usual.before), found_in(now));
    return wrong;
  }

  std::string after_a_change(const std::string& what, const Undisturbed& usual, bool is_done) {
    const Tree& tree = m_trial.look();
    std::string wrong = missing_in(tree, bystanders(usual.before, usual.outcome.tree));
    const Tree before = found_in(usual.before);
    const Tree after = found_in(usual.outcome.tree);
    const Tree now = found_in(tree);
    if (wrong.empty() && !ends_half_way(what)) wrong = between(before, after, now, what);
    // A clean returns VU_DONE also if a version stays: only its count shows that.
    if (wrong.empty() && is_done && !what.starts_with("vu_clean"))
      wrong = difference(reported_by_calls(after), reported_by_calls(now));
    return wrong;
  }

  void tell() {
    m_run.figure("calls of the interface", m_operations.size());
    for (const auto& [what, times] : m_ends) m_run.figure(what, times);
  }

  Run& m_run;
  Trial m_trial;
  const std::vector<PublicOperation> m_operations;
  std::map<std::string, std::uint64_t> m_ends;
};

void c_faults(Run& run) { CInterface(run, calls_of_the_library()).run_faults(); }
REGISTER_SUITE(c_faults, "c-faults", "a fault at every system call of the C interface", "faults", 0,
               Scratch::kMemory)

void c_out_of_memory(Run& run) {
  if (!machine::handles_and_allocations_are_exact())
    return run.not_run("here the C++ library does not use this program's operator new");
  CInterface(run, calls_of_the_library()).run_shortages();
}
REGISTER_SUITE(c_out_of_memory, "c-out-of-memory", "every allocation of the C interface fails",
               "shortages", 0, Scratch::kMemory)

// ------------------------------------------------------------------------------------------------
// Calls with an injected defect, which the suite must detect.

vu_status put(const Place&) { return vu_put(store(), report(), "text", 4, VU_REPLACE, nullptr); }

struct FaultyCall {
  CCall call;
  const char* fault;  ///< a fault that must show the defect; empty: any
  const char* sign;   ///< of the defect
};

// The names begin like those of correct calls, so that the same rules apply.
const FaultyCall kFaultyCalls[] = {
    {{"vu_exists, faulty: removes a document that it does not find",
      [](const Place& place) {
        const vu_status status = vu_exists(store(), report());
        if (status == VU_NOTHING_MATCHED) std::filesystem::remove(native(place.document()));
        return status;
      }},
     "not found",
     "without storage/user/anna/00000001.kdb"},
    {{"vu_read, faulty: writes a file after a failure",
      [](const Place& place) {
        const vu_status status = piece(report());
        if (status != VU_DONE) write_file(place.plain("report"), "failed");
        return status;
      }},
     "input or output error",
     "with plain/report"},
    {{"vu_put, faulty: removes another document after a failure",
      [](const Place& place) {
        const vu_status status = put(place);
        if (status != VU_DONE) std::filesystem::remove(native(place.folder() + "\\00000002.ctg"));
        return status;
      }},
     "not found",
     "without storage/user/anna/list.ctg_0000000000"},
    {{"vu_rename_owner, faulty: changes a file of nobody after a failure",
      [](const Place& place) {
        const vu_status status = vu_rename_owner(store(), "anna", "berta");
        if (status != VU_DONE) write_file(place.plain("one.txt"), "two\n");
        return status;
      }},
     "",
     "with other bytes in plain/one.txt"},
    {{"vu_put, faulty: cuts its own document after a failure",
      [](const Place& place) {
        const vu_status status = put(place);
        if (status != VU_DONE) write_file(place.document(), "docu");
        return status;
      }},
     "not found",
     "with unexpected bytes in storage/user/anna/report.kdb_0000000000"},
    {{"vu_put, faulty: reports every end as success",
      [](const Place& place) -> vu_status {
        put(place);
        return VU_DONE;
      }},
     "",
     "returns VU_DONE, and leaves the tree"},
    {{"vu_exists, faulty: finds nothing after a failure",
      [](const Place&) -> vu_status {
        const vu_status status = vu_exists(store(), report());
        return status == VU_DONE ? VU_DONE : VU_NOTHING_MATCHED;
      }},
     "",
     "reports that nothing is there"},
    {{"vu_exists, faulty: throws after a failure",
      [](const Place&) {
        const vu_status status = vu_exists(store(), report());
        if (status == VU_FAILED) throw std::runtime_error("failed");
        return status;
      }},
     "",
     "another exception left the call"},
    {{"vu_read, faulty: finds no document", [](const Place&) { return piece(fresh()); }},
     "",
     "without a fault: VU_NOTHING_MATCHED"},
};

void c_faults_noticed(Run& run) {
  for (const FaultyCall& each : kFaultyCalls) {
    Run inner(run.seed(), {run.wanted(), std::chrono::seconds(0)});
    CInterface(inner, {each.call}).run_faults();
    run.counted(inner.reached());
    const auto shows = [&](const std::string& text) {
      return text.find(each.fault) != text.npos && text.find(each.sign) != text.npos;
    };
    const std::vector<std::string>& found = inner.first_failures();
    if (std::none_of(found.begin(), found.end(), shows))
      run.fail(std::string("an injected defect was not detected: ") + each.call.name);
  }
}
REGISTER_SUITE(c_faults_noticed, "c-faults-noticed",
               "a call of the C interface with a defect after a fault is detected", "faults", 0,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
