// stgctl: inspects, explains, checks and changes a storage tree. terminal_*.cpp contain the entry
// points.

#if !defined(_WIN32)
#include <fcntl.h>
#include <unistd.h>
#endif

#include <exception>

#include "client/stgctl/command_line.h"
#include "client/stgctl/target.h"
#include "client/stgctl/terminal.h"
#include "vu_file_except.h"

namespace stgctl {

namespace {

Exit run_guarded(const Run& run, Context& context) {
  Output& out = context.out();
  try {
    const Exit result = run(context);
    if (result == Exit::kNothingMatched && !out.has_results()) none_matches(context);
    out.flush();
    return result;
  } catch (const Failure& failure) {
    if (*failure.what() != '\0') out.error(failure.what());
    return failure.code();
  } catch (const vu_file_except& failure) {
    out.error("a file of the tree cannot be opened or read: " + failure.what() +
              "; run again with --trace m to see which one");
  } catch (const std::exception& failure) {
    out.error(shown(std::string_view(failure.what())));
  }
  return Exit::kFailed;
}

/// Opens the null device for each standard stream that is closed. Otherwise a file that the program
/// writes, for example that of "--trace-file", gets the number of the stream and all its messages.
/// The null device is opened in the wrong direction, so that reading and writing still fail. On
/// Windows files and streams have different numbers.
void occupy_closed_streams() {
#if !defined(_WIN32)
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) != -1) continue;
    // open() returns the lowest number that is free: this one.
    static_cast<void>(::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
  }
#endif
}

/// Reads the command line and runs the named command.
Exit run_application(const std::vector<std::string>& arguments) {
  Output out;
  try {
    CommandLine line;
    if (const std::optional<Exit> told = line.parse(arguments, out)) {
      out.flush();
      return *told;
    }
    out.configure(line.options());
    if (!line.changes()) out.end_when_closed();
    terminal::watch_interrupt();
    Context context(line, out);
    return run_guarded(line.run(), context);
  } catch (const Failure& failure) {
    out.error(failure.what());
    return failure.code();
  }
}

}  // namespace

int terminal::run_program(const std::vector<std::string>& arguments) {
  occupy_closed_streams();
  set_up();
  return static_cast<int>(run_application(arguments));
}

}  // namespace stgctl
