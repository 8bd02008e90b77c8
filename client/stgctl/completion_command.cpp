#include <memory>

#include "client/stgctl/command.h"
#include "client/stgctl/command_line.h"
#include "client/stgctl/completion.h"
#include "client/stgctl/context.h"

namespace stgctl {

void add_completion_command(Commands& commands) {
  const auto declare = [](Arguments& app) -> Run {
    const auto shell = std::make_shared<std::string>();
    app.add_option("shell", *shell, "The shell")
        .type_name("SHELL")
        .required()
        .one_of(completion_shells());
    return [shell](Context& context) {
      const std::string script = completion_script(*shell, context.command_line().usage());
      if (context.out().json()) {
        context.out().json_line("stgctl.completion/1", {{"shell", *shell}, {"script", script}});
      } else {
        context.out().write(script);
      }
      return Exit::kDone;
    };
  };
  commands.push_back(
      {"completion", Group::kOther, Effect::kLooks,
       "Write a script that completes this program's command line", declare,
       "  bash        source <(stgctl completion bash)\n"
       "  zsh         stgctl completion zsh > a folder of $fpath, as _stgctl\n"
       "  fish        stgctl completion fish | source\n"
       "  powershell  stgctl completion powershell | Out-String | Invoke-Expression"});
}

}  // namespace stgctl
