#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "tests/support/storage_peer.h"
#include "tests/unit/index_fixture.h"

/// A storage with the mail folder of the user "joe".
class IndexMigration : public testing::Test {
 protected:
  IndexMigration() { STGIndex::setSynchronizeMode(true); }

  static void migrate() { STGIndex::migrateInboxRead("joe"); }

  std::string path() const { return mail + "\\joe"; }
  std::string path(const std::string& name) const { return path() + "\\" + name; }
  void make_mail_folder() const { make_folder(path()); }
  void write(const std::string& name, const std::string& bytes) const {
    write_file(path(name), bytes);
  }
  std::string read(const std::string& name) const { return read_file(path(name)); }
  std::string index() const { return read("index.dat"); }
  Texts names() const { return list_folder(path()); }
  bool has(const std::string& name) const { return file_exists(path(name)); }
  /// The bytes of an entry's file, by its logical name.
  std::string entry(const std::string& logical) const {
    std::string physical;
    return STGIndex::exists(path(), logical, 0, physical) ? read(physical) : "no such entry";
  }
  bool is_marked() const { return entry("k1mailboxcompliant").empty(); }
  std::string not_begun_text() const {
    return "STGIndex: migration: not begun, for its index or its read list cannot be read for "
           "certain: " +
           path();
  }
  std::map<std::string, std::string> state() const {
    std::map<std::string, std::string> result;
    for (const std::string& name : names()) {
      result[name] = std::to_string(get_modify_time(path(name))) + " " + read(name);
    }
    return result;
  }

  scratch_folder root;
  initialised_storage storage{root.path()};
  const std::string mail = root.path("storage\\mail");
};
