// stgctl: looks at, explains, checks and changes a storage tree. terminal_*.cpp start it.
#include "client/stgctl/application.h"
#include "client/stgctl/terminal.h"

int stgctl::terminal::run_program(const std::vector<std::string>& arguments) {
  set_up();
  return static_cast<int>(run_application(arguments));
}
