#include "client/stgctl/command.h"
#include "client/stgctl/command_line.h"
#include "client/stgctl/context.h"
#include "client/stgctl/manual.h"

namespace stgctl {

void add_manual_command(Commands& commands) {
  commands.push_back(
      {"manual", Group::kHidden, Effect::kLooks, "Write the manual page", [](Arguments&) -> Run {
         return [](Context& context) {
           context.out().write(manual_page(context.command_line().usage()));
           return Exit::kDone;
         };
       }});
}

}  // namespace stgctl
