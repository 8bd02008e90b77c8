#pragma once

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/host_services.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/storage_fixture.h"
#include "vu_storage.h"

/// A host that does not know its binary folder.
class failing_configuration final : public vu_host::configuration {
 public:
  ucs2string binary_folder() override { throw std::runtime_error("not installed"); }
};

/// Begins where a storage is about to be initialised.
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
