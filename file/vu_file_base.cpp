#include "vu_file_base.h"

#include "file/handle_core.h"
#include "file/trace_source.h"
#include "platform/os/os.h"

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
