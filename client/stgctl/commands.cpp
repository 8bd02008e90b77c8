// The program's commands. Each function is defined beside the commands that it adds.
#include <map>

#include "client/stgctl/command.h"

namespace stgctl {

// Look, explain, check.
void add_look_commands(Commands& commands);
// Change.
void add_init_command(Commands& commands);
void add_put_command(Commands& commands);
void add_get_command(Commands& commands);
void add_rm_command(Commands& commands);
void add_mv_command(Commands& commands);
void add_key_commands(Commands& commands);
void add_user_commands(Commands& commands);
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
  add_look_commands(commands);
  add_init_command(commands);
  add_put_command(commands);
  add_get_command(commands);
  add_rm_command(commands);
  add_mv_command(commands);
  add_key_commands(commands);
  add_user_commands(commands);
  add_clean_command(commands);
  add_migrate_commands(commands);
  add_sync_command(commands);
  add_repair_command(commands);
  add_undo_commands(commands);
  add_export_command(commands);
  add_import_command(commands);
  add_completion_command(commands);
  add_complete_command(commands);
  add_manual_command(commands);
}

const char* family_summary(const std::string& name) {
  static const std::map<std::string, const char*> kSummaries = {
      {"explain", "Say step by step what the library would decide, and why"},
      {"index", "Look into indexes; save the names in them and bring them back"},
      {"keys", "Key files: show and change their lines"},
      {"migrate", "Convert what older programs have stored"},
      {"profile", "Profiles of users: show and change their lines"},
      {"quarantine", "What repairs have taken, and keep for undo"},
      {"user", "Owners: list, rename and remove them"}};
  const auto found = kSummaries.find(name);
  return found == kSummaries.end() ? "" : found->second;
}

}  // namespace stgctl
