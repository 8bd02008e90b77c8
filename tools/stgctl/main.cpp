// stgctl: looks at, explains, checks and changes a storage tree.
#include "tools/stgctl/application.h"
#include "tools/stgctl/terminal.h"

int main(int argc, char** argv) {
  stgctl::terminal::set_up();
  return static_cast<int>(stgctl::run_application(stgctl::terminal::arguments(argc, argv)));
}
