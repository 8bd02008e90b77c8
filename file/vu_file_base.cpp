#include "vu_file_base.h"

#include <utility>

#include "file/file_internal.h"
#include "file/handle_core.h"
#include "platform/os/os.h"
#include "vu_file_except.h"

static_assert(sizeof(vu_file_base::lock_desc_t::region) == os::kLockRegionSize);
static_assert(alignof(vu_file_base::lock_desc_t) >= os::kLockRegionAlign);

vu_file_base::vu_file_base() noexcept
    : access(kNeverOpened), handle(os::kNoHandle), locked(false) {}
// Required: copies are shallow. Both objects refer to one open file, and neither knows the other.
// The first close() of either one closes the file for both.
vu_file_base::vu_file_base(const vu_file_base&) noexcept = default;
vu_file_base& vu_file_base::operator=(const vu_file_base&) noexcept = default;
vu_file_base::~vu_file_base() = default;

bool vu_file_base::lock_internal(const lock_desc_t& request, char, const unsigned char*) {
  VU_FILE_SCOPE();
  return HandleCore::take_lock(*this, request).ok();
}

bool vu_file_base::unlock_internal(const unsigned char*, char) {
  VU_FILE_SCOPE();
  return HandleCore::give_lock_back(*this).ok();
}

bool vu_file_base::flush() {
  VU_FILE_SCOPE();
  return os::flush(handle).ok();
}

bool vu_file_base::running_under_winnt() {
  VU_FILE_SCOPE();
  return os::nt_family();
}

// ---- the exception of both handles -------------------------------------------------------------

vu_file_except::vu_file_except(std::string text, std::int32_t error_code)
    : code(error_code), message(std::move(text)) {}
vu_file_except::vu_file_except(const vu_file_except&) = default;
vu_file_except& vu_file_except::operator=(const vu_file_except&) = default;
vu_file_except::~vu_file_except() = default;

std::string vu_file_except::what() const { return message; }
