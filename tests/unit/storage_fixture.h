#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/os/os.h"
#include "stg_index.h"
#include "stg_types.h"
#include "tests/support/host_services.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/test_kit.h"
#include "vu_host.h"
#include "vu_storage.h"

/// A temporary-files helper that fails.
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

/// An operation, and the level and the label of the scope that it opens.
struct ScopedOperation {
  const char* name;
  vu_host::trace_level level;
  const char* label;
  std::function<void()> call;
};

/// A storage in a fresh folder, and everything that it traces after its initialisation.
class StorageTest : public testing::Test {
 protected:
  explicit StorageTest(bool use_domain = true) : storage(scratch.path(), use_domain) {
    sink.clear();
  }

  /// The facade's events of one kind, without those of the layers below.
  Texts facade(vu_host::trace_event event) const {
    return facade_where(
        [event](const traced& t) { return t.kind == traced::kind_t::event && t.event == event; });
  }
  /// The facade's records at one level.
  Texts facade(vu_host::trace_level level) const {
    return facade_where(
        [level](const traced& t) { return t.kind == traced::kind_t::record && t.level == level; });
  }

  /// The first item that an operation traces.
  template <class Operation>
  traced first_of(Operation operation) {
    sink.clear();
    operation();
    const std::vector<traced> all = sink.all();
    return all.empty() ? traced{} : all.front();
  }

  /// Expects that an operation opens its scope before it traces anything else.
  void expect_scope_first(const ScopedOperation& operation) {
    SCOPED_TRACE(operation.name);
    const traced first = first_of(operation.call);
    EXPECT_EQ(first.kind, traced::kind_t::scope);
    EXPECT_EQ(first.level, operation.level);
    EXPECT_EQ(first.source, "vu_storage");
    EXPECT_EQ(first.text, operation.label);
    EXPECT_NE(first.signature.find(std::string("vu_storage::") + operation.name + "("),
              std::string::npos)
        << first.signature;
  }

  /// The number of calls of one system function during an operation.
  template <class Operation>
  static std::uint64_t calls_of(os::faults::Call call, Operation operation) {
    os::faults::reset();
    operation();
    return os::faults::calls(call);
  }

  /// The folder of an owner's documents of one type; created if missing.
  static std::string folder_of(const std::string& owner, const std::string& entry,
                               STG::RepositoryType type) {
    std::string dir;
    EXPECT_TRUE(vu_storage::createUserOrDomainNameDirectory(owner, entry, type, dir, true));
    return dir;
  }

  /// Creates an index entry and its file. @return the path of the file.
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

/// A host that does not know its binary folder.
class failing_configuration final : public vu_host::configuration {
 public:
  ucs2string binary_folder() override { throw std::runtime_error("not installed"); }
};

/// The state before a storage is initialised.
class StorageRoots : public StorageTest {
 protected:
  StorageRoots() {
    make_folder(dir.path("server"));
    vu_storage_test_peer::reset();
    vu_host::install({&sink, &config, &temp, &components});
  }
  ~StorageRoots() override { vu_host::install({&sink}); }

  scratch_folder dir;
  fake_configuration config{dir.path("bin")};
  fake_temporary_files temp{dir.path("server") + "\\"};
  fake_components components;
};

/// Documents of the user "jdoe".
class Documents : public StorageTest {
 protected:
  /// Stores a document. @return its path.
  std::string store(const std::string& entry, STG::RepositoryType type, long timestamp,
                    const std::string& bytes) {
    vu_file file;
    EXPECT_TRUE(client.OpenWrite2(file, "jdoe", entry, type, true, timestamp));
    EXPECT_TRUE(file.is_open());
    client.Write(file, bytes);
    client.Close(file);
    return file.getFilePath();
  }

  /// The bytes of a document, or "(closed)".
  std::string fetch(const std::string& entry, STG::RepositoryType type, long timestamp) {
    vu_file file;
    client.OpenRead(file, "jdoe", entry, type, timestamp);
    if (!file.is_open()) return "(closed)";
    std::string bytes;
    client.Read(file, bytes, 0);
    client.Close(file);
    return bytes;
  }

  std::string area(const std::string& name) const { return scratch.path("storage") + "\\" + name; }

  /// Creates a file under its own name in jdoe's folder of the user area, without the index.
  std::string place(const std::string& name, const std::string& bytes) {
    make_folder(area("user") + "\\jdoe");
    const std::string path = area("user") + "\\jdoe\\" + name;
    write_file(path, bytes);
    return path;
  }

  vu_storage client;
};

inline constexpr const char* kOwner = "jdoe";
inline constexpr const char* kEntry = "sales.kdc";
inline constexpr const char* kPart = "part.out";
inline constexpr long kStamp = 42;

struct Decision {
  int way = 99;
  std::string part_dir;
  std::string preload_dir;
};

/// A storage with one corporate document. Each test creates its sub-parts directly or through the
/// facade.
class SubParts : public StorageTest {
 protected:
  SubParts() { store(kEntry); }

  /// Stores a document of the owner and selects it for the test.
  void store(const std::string& entry) {
    m_entry = entry;
    m_document =
        make_entry(folder_of(kOwner, entry, STG::CorporateRepository), entry, kStamp, "doc");
    set_modify_time(m_document, 1000);
    sink.clear();
  }
  const std::string& document() const { return m_document; }
  /// The folder of the document's sub-parts without a stamp.
  std::string root() const { return m_document + "_"; }

  void make_file(const std::string& folder, const std::string& bytes, std::int64_t time) const {
    make_folder(folder);
    write_file(folder + "\\" + kPart, bytes);
    set_modify_time(folder + "\\" + kPart, time);
  }

  Decision decide(const std::string& selector) {
    Decision d;
    d.way = vu_storage_test_peer::getBestUpdateWay(m_facade, kOwner, m_entry, selector, kPart,
                                                   d.part_dir, d.preload_dir, kStamp);
    return d;
  }
  void open_for_writing(const std::string& selector) {
    m_facade.OpenWriteSubPart(m_file, kOwner, m_entry, selector, kPart, kStamp);
  }
  void open_for_reading(const std::string& selector) {
    m_facade.OpenReadSubPart(m_file, "amy", kOwner, m_entry, selector, kPart, kStamp);
  }
  unsigned long open_with_size(const std::string& selector) {
    unsigned long size = 77;
    m_facade.OpenReadSubPartEx(m_file, "amy", kOwner, m_entry, selector, kPart, kStamp, size);
    return size;
  }
  /// Stores a sub-part through the facade.
  void write_part(const std::string& selector, const std::string& bytes) {
    open_for_writing(selector);
    ASSERT_TRUE(m_file.is_open());
    m_file.write(bytes);
    m_file.close();
  }
  /// The content of the open file; closes it.
  std::string read_and_close() {
    std::string bytes;
    m_file.read(bytes, 0);
    m_file.close();
    return bytes;
  }
  std::string opened() const { return m_file.is_open() ? m_file.getFilePath() : "closed"; }

  vu_storage& facade_object() { return m_facade; }
  vu_file& file() { return m_file; }

 private:
  vu_storage m_facade;
  vu_file m_file;
  std::string m_entry;
  std::string m_document;
};

/// Lines of key files, for comparisons.
using Pairs = std::vector<std::pair<std::string, std::string>>;

inline Pairs pairs_of(const STG::NameValueSeq& seq) {
  Pairs pairs;
  for (const STG::NameValue& line : seq) pairs.emplace_back(line.name, line.value);
  return pairs;
}

inline STG::NameValueSeq sequence_of(const Pairs& pairs) {
  STG::NameValueSeq seq;
  for (const auto& [name, value] : pairs) seq.push_back({name, value});
  return seq;
}
