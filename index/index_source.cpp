#include "index/index_source.h"

#include "index/folder_files.h"
#include "platform/host/trace.h"

std::optional<FileText> read_index(vu_file& index, const std::string& folder) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (!vu_file::is_dir(folder)) {
    VU_ERROR("STGIndex::STGIndex() : the folder ", folder, " doesn't exist !!!");
  }
  // If the system cannot tell whether index.dat exists, open() fails with the reason.
  if (presence_of(index.getFilePath()) == Presence::kMissing) return std::nullopt;
  // Required: the lock lasts as long as the operation.
  index.open(vu_file::o_read);
  return read_to_end(index);
}
