#include <CLI/CLI.hpp>

#include "tools/stgctl/command.h"
#include "tools/stgctl/context.h"
#include "tools/stgctl/manual.h"
#include "tools/stgctl/usage.h"

namespace stgctl {

void add_manual_command(Commands& commands) {
  commands.push_back(
      {"manual", Group::kHidden, Effect::kLooks, "Write the manual page", [](CLI::App&) -> Run {
         return [](Context& context) {
           context.out().write(manual_page(usage_of(context.application())));
           return Exit::kDone;
         };
       }});
}

}  // namespace stgctl
