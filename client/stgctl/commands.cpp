// The program's commands. Each function is defined in the file of the commands that it returns.
#include <map>

#include "client/stgctl/command.h"

namespace stgctl {

/// Returns the commands of one file.
using Family = Commands();
Family status_command, locks_command, doctor_command, stats_command, report_command, ls_command,
    find_command, versions_command, which_command, cat_command, parts_command, show_commands,
    index_commands, index_snapshot_command, index_log_command, index_diff_command,
    index_restore_command, explain_commands, check_command, compare_command, init_command,
    put_command, get_command, rm_command, mv_command, key_commands, user_commands, clean_command,
    migrate_command, sync_command, repair_commands, export_command, import_command,
    completion_command, manual_command;

template <class... Lists>
Commands together(const Lists&... lists) {
  Commands all;
  (all.insert(all.end(), lists.begin(), lists.end()), ...);
  return all;
}

Commands all_commands() {
  return together(status_command(), locks_command(), doctor_command(), stats_command(),
                  report_command(), ls_command(), find_command(), versions_command(),
                  which_command(), cat_command(), parts_command(), show_commands(),
                  index_commands(), index_snapshot_command(), index_log_command(),
                  index_diff_command(), index_restore_command(), explain_commands(),
                  check_command(), compare_command(), init_command(), put_command(), get_command(),
                  rm_command(), mv_command(), key_commands(), user_commands(), clean_command(),
                  migrate_command(), sync_command(), repair_commands(), export_command(),
                  import_command(), completion_command(), manual_command());
}

const char* family_summary(const std::string& name) {
  static const std::map<std::string, const char*> kSummaries = {
      {"explain", "Explain step by step what the library would decide, and why"},
      {"index", "Inspect indexes; save their names and restore them"},
      {"keys", "Key files: show and change their lines"},
      {"migrate", "Convert what older programs stored"},
      {"profile", "Profiles of users: show and change their lines"},
      {"quarantine", "What repairs moved away and keep for undo"},
      {"user", "Owners: list, rename and remove them"}};
  const auto found = kSummaries.find(name);
  return found == kSummaries.end() ? "" : found->second;
}

}  // namespace stgctl
