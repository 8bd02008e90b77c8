#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/index_peer.h"
#include "tests/support/os_faults.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/test_kit.h"
#include "vu/storage.h"
#include "vu_file.h"

/// @file
/// A store with one document, for tests that make system calls of the C interface fail.

namespace faults = os::faults;
using faults::Call;
using faults::Times;

inline vu_document document(const char* name, std::int32_t area = VU_AREA_USER) {
  vu_document result = VU_DOCUMENT_INIT;
  result.area = area;
  result.owner = "anna";
  result.name = name;
  return result;
}

inline vu_error last_error() {
  vu_error error = VU_ERROR_INIT;
  vu_last_error(&error);
  return error;
}

using Step = std::function<vu_status()>;

inline bool is_made(vu_status status) { return status == VU_DONE || status == VU_PARTLY_DONE; }

/// Runs a step as another program would: on a thread without the state of this one.
inline vu_status elsewhere(const Step& step) {
  vu_status status = VU_FAILED;
  std::thread([&] { status = step(); }).join();
  return status;
}

class CInterfaceTest : public testing::Test {
 protected:
  CInterfaceTest() : m_storage(m_scratch.path()) {
    const vu_settings settings = VU_SETTINGS_INIT;
    EXPECT_EQ(vu_open_store(&settings, &m_store), VU_ALREADY);
    EXPECT_EQ(put(m_document, "old", 0), VU_DONE);
  }
  ~CInterfaceTest() override { vu_close_store(m_store); }

  vu_status put(const vu_document& where, const std::string& bytes, std::uint32_t flags) {
    return vu_put(m_store, &where, bytes.data(), bytes.size(), flags, nullptr);
  }
  std::string content(const vu_document& of) {
    char bytes[100];
    std::size_t size = 0;
    const vu_status status = vu_read(m_store, &of, bytes, sizeof bytes, &size);
    return status == VU_DONE ? std::string(bytes, size) : vu_status_name(status);
  }
  /// The names in the index, including versions that are still being written.
  std::vector<std::string> files() {
    STGIndex::NameMap map;
    STGIndex::plValues(m_folder, map);
    std::vector<std::string> names;
    for (const auto& [physical, logical] : map) names.push_back(logical);
    return names;
  }

  /// The files without an entry. They would be adopted, each as a document under its own name.
  std::vector<std::string> orphans() const {
    STGIndex::NameMap entries;
    STGIndex::plValues(m_folder, entries);
    std::vector<std::string> found;
    for (const std::string& name : vu_file::filenames(m_folder)) {
      if (entries.count(name) == 0 && !name.starts_with("index")) found.push_back(name);
    }
    return found;
  }

  /// How many files the folder of the document has, with the index and its counter.
  std::size_t count_of_files() const { return vu_file::filenames(m_folder).size(); }
  /// Another handle of the storage, with a time limit. The test closes it.
  static vu_store* hurried_store(std::int64_t wait_ms) {
    vu_settings settings = VU_SETTINGS_INIT;
    settings.wait_ms = wait_ms;
    vu_store* hurried = nullptr;
    EXPECT_EQ(vu_open_store(&settings, &hurried), VU_ALREADY);
    return hurried;
  }

  const scratch_folder m_scratch;
  const std::string m_folder = m_scratch.path("storage\\user\\anna");
  initialised_storage m_storage;
  vu_store* m_store = nullptr;
  const vu_document m_document = document("a.txt");
};
