// Runs all suites of the kit and writes report.html and report.json: kit.exe [FOLDER]
//
// FOLDER is the place of a temporary folder, on any disk or share; by default the folder of the
// kit. The kit changes nothing outside of it, and removes what it created.

#include <windows.h>

// Needs the header above it.
#include <shellapi.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

#include "lab/kit/folders.h"
#include "lab/kit/kit.h"

namespace {

using Clock = std::chrono::steady_clock;

std::filesystem::path own_folder() {
  std::wstring path(32768, L'\0');
  path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  // Wine returns "UNC\server\share" for a share.
  if (path.rfind(L"UNC\\", 0) == 0) path = L"\\\\" + path.substr(4);
  return kit::parent_of(path);
}

std::string now() {
  char text[32] = "";
  const std::time_t time = std::time(nullptr);
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::gmtime(&time));
  return text;
}

/// Warns before the tests fail: the path is long or not ASCII, and has no short name.
void warn_of(const std::filesystem::path& work) {
  constexpr std::size_t kLong = 110;
  if (kit::is_ascii(work.wstring()) && work.wstring().size() <= kLong) return;
  std::printf(
      "This folder's path %s, and there is no short name for it. Many tests will fail.\n"
      "Name another folder: run.cmd C:\\somewhere\n",
      work.wstring().size() > kLong ? "is long" : "has letters beyond ASCII");
}

void show(std::size_t of, std::size_t number, const kit::Result& result) {
  std::printf("\r[%2zu/%zu] %-22s %-8s", number, of, result.suite.name.c_str(),
              kit::name_of(result.state));
  if (!result.cases.empty()) {
    std::printf(" %4d passed %3d failed %3d skipped", result.count(kit::State::kPassed),
                result.count(kit::State::kFailed), result.count(kit::State::kSkipped));
  }
  std::printf("  %d s        \n", static_cast<int>(result.seconds));
}

/// The folder of the reports: that of the kit, or FOLDER if the former is read-only.
class ReportFolder {
 public:
  ReportFolder(std::filesystem::path home, const std::filesystem::path& where)
      : m_folder(std::move(home)), m_second(where) {}

  void write(const kit::Report& report) {
    m_is_written = kit::write_reports(report, m_folder);
    if (m_is_written || m_second.empty()) return;
    m_folder = m_second;
    m_is_written = kit::write_reports(report, m_folder);
  }
  bool is_written() const { return m_is_written; }
  std::filesystem::path page() const { return m_folder / "report.html"; }

 private:
  std::filesystem::path m_folder;
  std::filesystem::path m_second;
  bool m_is_written = false;
};

void run_suites(kit::Report& report, ReportFolder& reports, const std::filesystem::path& bin,
                const std::filesystem::path& work) {
  const auto begin = Clock::now();
  for (const kit::Suite& suite : kit::suites()) {
    const std::size_t number = report.results.size() + 1;
    const auto tell = [&](std::chrono::seconds time) {
      std::printf("\r[%2zu/%zu] %s ... %d s", number, report.wanted, suite.what.c_str(),
                  static_cast<int>(time.count()));
      std::fflush(stdout);
    };
    tell(std::chrono::seconds(0));
    report.results.push_back(kit::run(suite, bin, work, tell));
    std::printf("\r%70s", "");
    show(report.wanted, number, report.results.back());
    report.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    report.is_stopped = kit::is_stopped();
    // Written after each suite, so that a report exists whatever happens later.
    reports.write(report);
  }
}

/// Called for Ctrl-C and for closing the window. The reports are written after that.
BOOL WINAPI on_end(DWORD what) {
  kit::request_stop();
  // Windows ends the process when this function returns; it waits some seconds for that.
  if (what != CTRL_C_EVENT && what != CTRL_BREAK_EVENT) ::Sleep(10'000);
  return TRUE;
}

void show_page(const std::filesystem::path& page) {
  ::ShellExecuteW(nullptr, L"open", page.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
}

/// The path of the folder for the programs: a short one, and with a drive letter for a share.
std::filesystem::path place_of(const std::filesystem::path& folder,
                               std::optional<kit::BorrowedLetter>& letter) {
  if (!kit::is_on_share(folder)) return kit::short_form(folder);
  letter.emplace(folder);
  if (!letter->root().empty()) return letter->root();
  throw std::runtime_error(
      "a share needs a drive letter, and none is free. Assign one: net use X: "
      "\\\\server\\share, and start run.cmd X:\\folder");
}

int run_all(const std::filesystem::path& where) {
  const bool is_quiet = ::GetEnvironmentVariableW(L"VU_KIT_QUIET", nullptr, 0) != 0;
  const std::filesystem::path bin = own_folder();
  const std::filesystem::path home = kit::parent_of(bin);
  kit::WorkFolder folder(where.empty() ? home : where);
  std::optional<kit::BorrowedLetter> letter;
  const std::filesystem::path work = place_of(folder.path(), letter);
  ::CreateDirectoryW((work / "tmp").c_str(), nullptr);
  kit::clean_environment(work / "tmp");
  ::SetEnvironmentVariableW(L"VU_FUZZ_CORPUS", kit::short_form(bin / "corpus").c_str());
  std::printf(
      "vu_storage %s: this takes about ten minutes; Ctrl-C ends it earlier. Nothing is installed,\n"
      "and nothing outside of %s is changed.\n\n",
      VU_KIT_VERSION, kit::utf8_of(folder.path().wstring()).c_str());
  warn_of(work);
  kit::Report report;
  report.version = VU_KIT_VERSION;
  report.began = now();
  report.wanted = kit::suites().size();
  report.is_emulated = kit::is_emulated();
  report.facts = kit::facts_of_machine(work);
  ReportFolder reports(home, where);
  reports.write(report);
  run_suites(report, reports, bin, work);
  if (!folder.remove()) {
    report.remains = "Some of " + kit::utf8_of(folder.path().wstring()) +
                     " could not be removed; please delete that folder.";
    std::printf("%s\n", report.remains.c_str());
  }
  reports.write(report);
  if (!reports.is_written()) throw std::runtime_error("cannot write the reports");
  std::printf("\n%s\nThe report is %s; please send back report.json from the same folder.\n",
              report.summary().c_str(), kit::utf8_of(reports.page().wstring()).c_str());
  if (!is_quiet && !report.is_emulated) show_page(reports.page());
  return report.is_good() ? 0 : 1;
}

/// The folder that the user named. "D:\some where\" in quotes arrives with the last quote.
std::filesystem::path folder_of(const wchar_t* argument) {
  std::wstring text = argument;
  while (!text.empty() && text.back() == L'"') text.pop_back();
  return kit::full_path(text);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  const UINT before = ::GetConsoleOutputCP();
  ::SetConsoleOutputCP(CP_UTF8);
  ::SetConsoleCtrlHandler(on_end, TRUE);
  // Prevents dialog boxes about missing discs and crashed programs; the programs inherit this.
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  int code = 2;
  try {
    code = run_all(argc > 1 ? folder_of(argv[1]) : std::filesystem::path());
  } catch (const std::exception& reason) {
    std::fprintf(stderr, "error: %s\n", reason.what());
  }
  ::SetConsoleOutputCP(before);
  return code;
}
