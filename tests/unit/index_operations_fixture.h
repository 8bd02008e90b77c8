#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/unit/index_fixture.h"

/// The public operations on a folder's index.
class IndexOperations : public IndexTest {
 protected:
  std::string cannot_open(const std::string& logical, const std::string& reason) const {
    return "STGIndex::exists(): Unable to open index.dat file while checking for existence of " +
           logical + " in directory " + folder.path() + "\n Reason: " + reason;
  }

  std::string physical = "untouched";
};
