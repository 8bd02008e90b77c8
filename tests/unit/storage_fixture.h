#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/test_kit.h"
#include "vu_host.h"

/// A helper of the host that fails.
class FailingTemporaryFiles final : public vu_host::temporary_files {
 public:
  template <class Exception>
  explicit FailingTemporaryFiles(const Exception& exception)
      : m_exception(std::make_exception_ptr(exception)) {}
  void initialise(const char*, const char*) override {}
  ucs2string server_folder() override { std::rethrow_exception(m_exception); }
  ucs2string framework_root_folder() override { std::rethrow_exception(m_exception); }

 private:
  std::exception_ptr m_exception;
};

/// A storage of its own in a fresh folder, and everything that it traces after its initialisation.
class StorageTest : public testing::Test {
 protected:
  explicit StorageTest(bool use_domain = true) : storage(scratch.path(), use_domain) {
    sink.clear();
  }

  /// The texts of the facade's own events of one kind; those of the rooms below are left out.
  Texts facade(vu_host::trace_event event) const {
    return facade_where(
        [event](const traced& t) { return t.kind == traced::kind_t::event && t.event == event; });
  }
  /// The texts of the facade's own records at one level.
  Texts facade(vu_host::trace_level level) const {
    return facade_where(
        [level](const traced& t) { return t.kind == traced::kind_t::record && t.level == level; });
  }

  /// The first thing that an operation traces.
  template <class Operation>
  traced first_of(Operation operation) {
    sink.clear();
    operation();
    const std::vector<traced> all = sink.all();
    return all.empty() ? traced{} : all.front();
  }

  /// How often an operation makes a system call.
  template <class Operation>
  static std::uint64_t calls_of(os::faults::Call call, Operation operation) {
    os::faults::reset();
    operation();
    return os::faults::calls(call);
  }

  /// The folder of an owner's documents of one type, made when missing.
  static std::string folder_of(const std::string& owner, const std::string& entry,
                               STG::RepositoryType type) {
    std::string dir;
    EXPECT_TRUE(vu_storage::createUserOrDomainNameDirectory(owner, entry, type, dir, true));
    return dir;
  }

  /// Makes an entry of a folder's index and its file; the path of the file.
  static std::string make_entry(const std::string& folder, const std::string& logical, long ts,
                                const std::string& bytes) {
    std::string path = folder + "\\" + STGIndex::create(folder, logical, ts);
    write_file(path, bytes);
    return path;
  }

  scratch_folder scratch;
  recording_sink sink;
  initialised_storage storage;

 private:
  template <class Condition>
  Texts facade_where(Condition condition) const {
    Texts texts;
    for (const traced& t : sink.all()) {
      if (t.source == "vu_storage" && condition(t)) texts.push_back(t.text);
    }
    return texts;
  }
};
