// The program's commands. Each function is defined in the file of the commands that it adds.
#include <map>

#include "client/stgctl/command.h"

namespace stgctl {

// Inspect.
void add_status_command(Commands& commands);
void add_locks_command(Commands& commands);
void add_doctor_command(Commands& commands);
void add_stats_command(Commands& commands);
void add_report_command(Commands& commands);
void add_ls_command(Commands& commands);
void add_find_command(Commands& commands);
void add_versions_command(Commands& commands);
void add_which_command(Commands& commands);
void add_cat_command(Commands& commands);
void add_parts_command(Commands& commands);
void add_show_commands(Commands& commands);
void add_index_commands(Commands& commands);
void add_index_snapshot_command(Commands& commands);
void add_index_log_command(Commands& commands);
void add_index_diff_command(Commands& commands);
void add_index_restore_command(Commands& commands);
// Explain, check.
void add_explain_commands(Commands& commands);
void add_check_command(Commands& commands);
void add_compare_command(Commands& commands);
// Change.
void add_init_command(Commands& commands);
void add_put_command(Commands& commands);
void add_get_command(Commands& commands);
void add_rm_command(Commands& commands);
void add_mv_command(Commands& commands);
void add_key_commands(Commands& commands);
void add_user_list_command(Commands& commands);
void add_user_rename_command(Commands& commands);
void add_user_remove_command(Commands& commands);
void add_clean_command(Commands& commands);
void add_migrate_commands(Commands& commands);
void add_sync_command(Commands& commands);
void add_repair_command(Commands& commands);
void add_undo_commands(Commands& commands);
void add_export_command(Commands& commands);
void add_import_command(Commands& commands);
// Other.
void add_completion_command(Commands& commands);
void add_complete_command(Commands& commands);
void add_manual_command(Commands& commands);

void add_all_commands(Commands& commands) {
  for (const auto add : {add_status_command,
                         add_locks_command,
                         add_doctor_command,
                         add_stats_command,
                         add_report_command,
                         add_ls_command,
                         add_find_command,
                         add_versions_command,
                         add_which_command,
                         add_cat_command,
                         add_parts_command,
                         add_show_commands,
                         add_index_commands,
                         add_index_snapshot_command,
                         add_index_log_command,
                         add_index_diff_command,
                         add_index_restore_command,
                         add_explain_commands,
                         add_check_command,
                         add_compare_command,
                         add_init_command,
                         add_put_command,
                         add_get_command,
                         add_rm_command,
                         add_mv_command,
                         add_key_commands,
                         add_user_list_command,
                         add_user_rename_command,
                         add_user_remove_command,
                         add_clean_command,
                         add_migrate_commands,
                         add_sync_command,
                         add_repair_command,
                         add_undo_commands,
                         add_export_command,
                         add_import_command,
                         add_completion_command,
                         add_complete_command,
                         add_manual_command})
    add(commands);
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
