#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "api/handles.h"
#include "vu/storage.h"
#include "vu_file.h"

namespace api {

enum class Direction : std::uint8_t { kReads, kWrites };

/// What a handle of a stream leads to.
struct Stream final : Object {
  vu_file file;
  Direction direction = Direction::kReads;
};

/// The size of an open file. @throws Refusal
std::int64_t size_of(const std::string& path);

/// Enters an open stream. @throws Refusal when the time for its lock is over.
void give_stream(std::unique_ptr<Stream> opened, vu_stream** stream);

}  // namespace api
