#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "api/handles.h"
#include "api/store.h"
#include "vu/storage.h"
#include "vu_file.h"

namespace api {

enum class Direction : std::uint8_t { kReads, kWrites };

struct Stream final : Object {
  vu_file file;
  Direction direction = Direction::kReads;
};

/// Returns a handle for an open stream. @throws Refusal if it did not get its lock.
void give_stream(std::unique_ptr<Stream> opened, vu_stream** stream);

}  // namespace api
