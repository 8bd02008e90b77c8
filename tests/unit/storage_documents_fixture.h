#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/support/scratch.h"
#include "tests/unit/storage_fixture.h"
#include "vu_storage.h"

/// Documents of the user "jdoe".
class Documents : public StorageTest {
 protected:
  /// Stores a document and gives its path.
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

  /// A file under its own name in jdoe's folder of the user area: the index is not asked for it.
  std::string place(const std::string& name, const std::string& bytes) {
    make_folder(area("user") + "\\jdoe");
    const std::string path = area("user") + "\\jdoe\\" + name;
    write_file(path, bytes);
    return path;
  }

  vu_storage client;
};
