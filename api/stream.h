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

/// What a handle of a stream leads to.
struct Stream final : Object {
  vu_file file;
  Direction direction = Direction::kReads;
};

/// Whether a file that OpenWrite2() has opened is cut, and that of the version: where the folder
/// could not be reached, the index not saved or the file not cut, that is told by a trace alone.
/// Otherwise the file is closed, and gone where nobody would find it.
bool is_opened_anew(const Address& address, vu_file& file);

/// Enters an open stream. @throws Refusal when the time for its lock is over.
void give_stream(std::unique_ptr<Stream> opened, vu_stream** stream);

}  // namespace api
