// The commands that look, explain and check. Each function is defined beside the commands that it
// adds.
#include "client/stgctl/command.h"

namespace stgctl {

void add_status_commands(Commands& commands);
void add_stats_command(Commands& commands);
void add_report_command(Commands& commands);
void add_list_commands(Commands& commands);
void add_entry_commands(Commands& commands);
void add_show_commands(Commands& commands);
void add_index_commands(Commands& commands);
void add_index_log_command(Commands& commands);
void add_index_diff_command(Commands& commands);
void add_index_snapshot_command(Commands& commands);
void add_index_restore_command(Commands& commands);
void add_explain_commands(Commands& commands);
void add_check_command(Commands& commands);
void add_compare_command(Commands& commands);

void add_look_commands(Commands& commands) {
  add_status_commands(commands);
  add_stats_command(commands);
  add_report_command(commands);
  add_list_commands(commands);
  add_entry_commands(commands);
  add_show_commands(commands);
  add_index_commands(commands);
  add_index_snapshot_command(commands);
  add_index_log_command(commands);
  add_index_diff_command(commands);
  add_index_restore_command(commands);
  add_explain_commands(commands);
  add_check_command(commands);
  add_compare_command(commands);
}

}  // namespace stgctl
