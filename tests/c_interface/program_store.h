#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/scratch.h"
#include "vu/storage.h"

#include "tests/support/called.h"

/// The storage of a test program that uses the C interface alone. It is opened once per process, so
/// all tests share it. Each test uses other owners. Files are not adopted.
struct ProgramStore {
  scratch_folder root;
  std::string native_root = native(root.path()).string();
  vu_status opened = VU_FAILED;
  vu_store* store = open(0, 0, opened);

  /// A separate handle.
  vu_store* open(std::uint32_t flags, std::int64_t wait_ms, vu_status& status) const {
    vu_settings settings = VU_SETTINGS_INIT;
    settings.root = native_root.c_str();
    settings.flags = VU_NO_ADOPTION | flags;
    settings.wait_ms = wait_ms;
    vu_store* handle = nullptr;
    status = vu_open_store(&settings, &handle);
    return handle;
  }
};

inline const ProgramStore& program_store() {
  static const ProgramStore all;
  return all;
}
inline vu_store* store() { return program_store().store; }

/// A document. The texts must outlive it.
inline vu_document document(const char* owner, const char* name, std::int64_t version = 0,
                            std::int32_t area = VU_AREA_DOCS) {
  vu_document result = VU_DOCUMENT_INIT;
  result.area = area;
  result.owner = owner;
  result.name = name;
  result.version = version;
  return result;
}

inline vu_status put(const vu_document& where, const std::string& bytes, std::uint32_t flags = 0) {
  return vu_put(store(), &where, bytes.data(), bytes.size(), flags, nullptr);
}

/// The bytes of a version, or the name of the status.
inline std::string content(const vu_document& of) {
  void* bytes = nullptr;
  std::size_t size = 0;
  const vu_status status = vu_read_whole(store(), &of, &bytes, &size);
  if (status != VU_DONE) return vu_status_name(status);
  std::string result(static_cast<const char*>(bytes), size);
  vu_free(bytes);
  return result;
}

/// The path of the file of a version.
inline std::string path_of(const vu_document& of) {
  std::string path(2000, '\0');
  std::size_t size = 0;
  EXPECT_EQ(vu_file_path(store(), &of, path.data(), path.size(), &size), VU_DONE);
  path.resize(size);
  return path;
}

/// Replaces the file of a version by a folder, which cannot be opened as a file. @return its path.
inline std::string make_unopenable(const vu_document& of) {
  std::string path = path_of(of);
  std::filesystem::remove(native(path));
  make_folder(path);
  return path;
}

inline std::string name_of(vu_status status) { return vu_status_name(status); }

inline vu_error last_error() {
  vu_error error = VU_ERROR_INIT;
  vu_last_error(&error);
  return error;
}

/// Collects "name@version" of each entry.
inline std::int32_t collect_entry(void* context, const vu_entry* entry) {
  static_cast<std::vector<std::string>*>(context)->push_back(std::string(entry->name) + "@" +
                                                             std::to_string(entry->info.version));
  return 0;
}
inline std::int32_t collect_name(void* context, const char* name) {
  static_cast<std::vector<std::string>*>(context)->emplace_back(name);
  return 0;
}

inline std::vector<std::string> documents_of(const char* owner, std::int32_t area = VU_AREA_DOCS) {
  std::vector<std::string> names;
  if (vu_each_document(store(), area, owner, 0, collect_entry, &names) != VU_DONE)
    names.emplace_back("failed");
  return names;
}
