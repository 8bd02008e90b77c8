// What to set where a shared file system lacks something: per check and kind of file system.

#include <array>

#include "client/admin/shared_probe.h"

namespace admin {

namespace {

enum class Engine : std::uint8_t { kGluster, kNfs, kSmb, kOther };

Engine engine_of(const std::string& file_system) {
  if (file_system.find("glusterfs") != std::string::npos) return Engine::kGluster;
  if (file_system.starts_with("nfs")) return Engine::kNfs;
  if (file_system == "cifs" || file_system.starts_with("smb")) return Engine::kSmb;
  return Engine::kOther;
}

struct Mend {
  std::string_view code;
  std::array<std::string_view, 4> texts;  ///< in the order of Engine
};

constexpr std::array<Mend, 10> kMends = {{
    {"same-folder",
     {"mount the same volume (and sub-folder) at both places",
      "mount the same export at both places", "mount the same share at both places",
      "name the same folder through two mounts"}},
    {"locks-per-handle",
     {"mount by FUSE with a kernel of 3.15 or later", "mount without 'nolock'; NFS 4 rather than 3",
      "no option helps: NFS 4.2, or a Windows program", "another file system"}},
    {"locks-between-hosts",
     {"mount by FUSE at every host; leave features.locks as it is",
      "mount without 'nolock' and 'local_lock'; NFS 4 rather than 3",
      "no option helps: NFS 4.2, or a Windows program",
      "a file system whose locks reach over hosts"}},
    {"exclusive-create",
     {"cluster.quorum-type auto", "NFS 4 rather than 3", "mount with 'cache=none'",
      "another file system"}},
    {"rename-without-replace",
     {"mount with entry-timeout=0", "mount with 'lookupcache=none'",
      "no option helps where the server makes no hard links",
      "a file system with links or renames that do not replace"}},
    {"times-kept",
     {"features.ctime on", "mount with 'noac'", "mount with 'cache=none,actimeo=0'",
      "another file system"}},
    {"read-after-close",
     {"performance.quick-read, io-cache, stat-prefetch, write-behind, open-behind and read-ahead "
      "off; mount with "
      "attribute-timeout=0 and auto-invalidation=on",
      "mount with 'noac,lookupcache=none'", "mount with 'cache=none,actimeo=0'",
      "switch off what caches on the clients"}},
    {"read-after-lock",
     {"mount with auto-invalidation=on (said, not left to its default) and attribute-timeout=0",
      "mount without 'nolock': a lock then asks for the file anew", "mount with 'cache=none'",
      "switch off what caches on the clients"}},
    {"names-at-once",
     {"performance.readdir-ahead, stat-prefetch and nl-cache off; mount with entry-timeout=0 and "
      "attribute-timeout=0",
      "mount with 'noac,lookupcache=none'", "mount with 'cache=none,actimeo=0'",
      "switch off what caches names on the clients"}},
    {"clocks",
     {"keep the clocks of all hosts together (NTP): times are set by the clients",
      "keep the clocks of the hosts and the server together (NTP)",
      "keep the clocks of the hosts and the server together (NTP)",
      "keep the clocks of all hosts together (NTP)"}},
}};

}  // namespace

std::string mend_of(std::string_view code, const std::string& file_system) {
  for (const Mend& each : kMends) {
    if (each.code == code)
      return std::string(each.texts[static_cast<std::size_t>(engine_of(file_system))]);
  }
  return {};
}

}  // namespace admin
