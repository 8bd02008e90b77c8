#include <cstddef>

#include "file/trace_source.h"
#include "platform/host/host.h"
#include "platform/os/os.h"
#include "vu_path.h"

void getTempRootPath(std::string& out) {
  VU_FILE_SCOPE();
  const ucs2string folder = host::temp().framework_root_folder();
  const std::size_t size = folder.size();
  const bool ends_in_backslash = size > 0 && folder.at(size - 1) == u'\\';
  out = os::to_narrow(ends_in_backslash ? folder.substr(0, size - 1) : folder);
}
