#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "client/tests/stgctl/json_value.h"
#include "client/tests/stgctl/program.h"
#include "tests/support/scratch.h"

/// A path for a shell: with the system's separator.
std::string shell_path(std::string path);

/// Everything below a folder as text, one line each: name, kind, size, modification time in the
/// finest unit, permissions, and a hash of the bytes. If two texts are equal, the trees are equal.
std::string snapshot(const std::string& folder);

/// Runs the client on trees of the test.
class Client : public testing::Test {
 protected:
  using Environment = std::map<std::string, std::string>;

  Client();

  /// Runs the client without STG_ROOT.
  outcome run(const std::vector<std::string>& arguments, Environment environment = {});
  /// Runs it on the test's tree.
  outcome on_tree(std::vector<std::string> arguments, Environment environment = {});
  /// Like on_tree() for owner anna, with --yes.
  outcome change(std::vector<std::string> arguments);
#if !defined(_WIN32)
  /// Gives all users access to the tree and the files to store.
  void open_to_all() const;
  /// change() as a user without the rights of root. If root runs the tests, that is another user
  /// than the owner of the files.
  outcome change_as_nobody(const std::vector<std::string>& arguments) const;
#endif
  /// on_tree() with --json. @return its lines.
  std::vector<Json> json(std::vector<std::string> arguments, int code = 0);

  /// Creates the tree.
  void init(const std::vector<std::string>& more = {});
  /// Creates a file to store, below the folder "in".
  std::string source(const std::string& name, const std::string& bytes,
                     std::int64_t time = 1'600'000'000);
  /// Stores a document of owner anna in the area docs.
  void put(const std::string& name, const std::string& bytes, long timestamp = 0,
           std::int64_t time = 1'600'000'000);
  /// The output of "get"; the error output if it fails.
  std::string get(const std::string& name, const std::vector<std::string>& more = {});

  std::string root() const { return m_scratch.path("root"); }
  std::string storage() const { return m_scratch.path("root\\storage"); }
  std::string tree() const { return snapshot(storage()); }
  /// The path of the version of a document, with "\".
  std::string physical(const std::string& area, const std::string& name) const;
  const scratch_folder& scratch() const { return m_scratch; }

 private:
  scratch_folder m_scratch;
};

/// The lines of a text.
std::vector<std::string> lines_of(const std::string& text);
/// The standard error output, with the line ends of POSIX systems.
std::string messages(const outcome& of);
/// The actions of the entry records, in order: "stored a.kdc".
std::vector<std::string> actions(const std::vector<Json>& lines);
