#pragma once

#include <filesystem>
#include <string>

#include "client/tests/stgctl/fixture.h"

/// A tree that can be damaged in every way that a repair mends.
class HarmedTree : public Client {
 protected:
  HarmedTree() {
    init();
    put("a.kdc", "bytes of a");
    put("Sales.kdf", "sales", 42);
    m_folder = std::filesystem::path(physical("docs", "a.kdc")).parent_path().string();
    m_healthy = read_file(m_folder + "/index.dat");
  }
  std::string plan() const { return shell_path(scratch().path("in\\plan.json")); }
  std::string quarantine() const { return root() + "\\storage.quarantine"; }

  /// Causes damage of every kind that can be repaired.
  void harm() {
    write_file(m_folder + "/index.dat", m_healthy + "gone.kdc_0000000000/00000077\n" + "no line\n" +
                                            "short/x\n" + m_healthy);
    write_file(m_folder + "/stray.tmp", "a stray file");
    set_modify_time(m_folder + "/stray.tmp", 1'500'000'000);
    make_folder(m_folder + "/00000099.kdc_\\html\\deep");
    write_file(m_folder + "/00000099.kdc_\\html\\deep\\part", "a part");
    write_file(m_folder + "/index", "00000000");
    ASSERT_EQ(change({"put", source("attribut.txt", "gone.kdf=x\na.kdc=y\r\nlost=z\t"), "--area",
                      "user", "--replace"})
                  .code,
              0);
    write_file(storage() + "\\user\\anna\\known.txt", "k");
    ASSERT_EQ(on_tree({"sync", "--area", "user", "--yes"}).code, 0);
    const std::string keys = physical("user", "attribut.txt");
    write_file(keys, "gone.kdf=x\nknown.txt=y\r\nlost=z\t");
    m_keys = keys;
  }

  /// The tree without the times of its folders, which change when a file in them is moved.
  std::string files() const {
    std::string rest;
    for (const std::string& line : lines_of(tree())) {
      const std::size_t time = line.find(" time ");
      const std::size_t size = line.find(" size ");
      if (size == std::string::npos) {
        rest += line.substr(0, time) + "\n";
      } else if (line.find("stray.tmp") != std::string::npos) {
        rest += line + "\n";
      } else {
        // Rewritten files have other times.
        rest += line.substr(0, time) + line.substr(size) + "\n";
      }
    }
    return rest;
  }

  std::string m_folder;
  std::string m_healthy;
  std::string m_keys;
};
