// Runs everything that the kit holds, one after the other, in a folder of its own, and leaves
// report.html and report.json: kit.exe [FOLDER]
//
// FOLDER is where the runs are made, on any disk or share; without one it is the folder of the kit
// itself. Nothing outside of it is touched, and what the runs have made is removed at the end.

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>

#include "lab/kit/machine.h"
#include "lab/kit/page.h"
#include "lab/kit/suites.h"

namespace {

std::filesystem::path own_folder() {
  std::wstring path(32768, L'\0');
  path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return std::filesystem::path(path).parent_path();
}

std::string now() {
  char text[32] = "";
  const std::time_t time = std::time(nullptr);
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::gmtime(&time));
  return text;
}

/// A folder that is not there yet.
std::filesystem::path new_folder(const std::filesystem::path& below) {
  for (int number = 1;; ++number) {
    std::filesystem::path folder = below / ("vu-kit-run-" + std::to_string(number));
    if (!std::filesystem::exists(folder) && std::filesystem::create_directories(folder))
      return folder;
  }
}

/// The same folder by its short name: the test programs write their paths in ASCII. Where there is
/// none the path stays, and a folder with other letters has to be exchanged for one without.
std::filesystem::path in_ascii(const std::filesystem::path& folder) {
  const auto is_ascii = [](const std::wstring& text) {
    return std::all_of(text.begin(), text.end(), [](wchar_t c) { return c < 128; });
  };
  if (is_ascii(folder.wstring())) return folder;
  std::wstring path(32768, L'\0');
  path.resize(::GetShortPathNameW(folder.c_str(), path.data(), static_cast<DWORD>(path.size())));
  if (!path.empty() && is_ascii(path)) return path;
  std::printf(
      "This folder has letters beyond ASCII and no short name, and many tests will fail.\n"
      "Please say run.cmd D:\\somewhere instead.\n");
  return folder;
}

/// Programs put their temporary files there as well.
void set_temporary_folder(const std::filesystem::path& folder) {
  std::filesystem::create_directories(folder);
  for (const wchar_t* const name : {L"TMP", L"TEMP", L"VU_TEST_TMP"})
    ::SetEnvironmentVariableW(name, folder.c_str());
}

void show(std::size_t number, std::size_t of, const kit::Result& result) {
  std::printf("\r[%2zu/%zu] %-18s %-8s", number, of, result.suite.name.c_str(),
              kit::name_of(result.state));
  if (!result.cases.empty()) {
    std::printf(" %4d passed %3d failed %3d skipped", result.count(kit::State::kPassed),
                result.count(kit::State::kFailed), result.count(kit::State::kSkipped));
  }
  std::printf("  %d s\n", static_cast<int>(result.seconds));
}

int run_all(const std::filesystem::path& where) {
  const std::filesystem::path bin = own_folder();
  const std::filesystem::path home = bin.parent_path();
  const std::filesystem::path work = in_ascii(new_folder(where.empty() ? home : where));
  set_temporary_folder(work / "tmp");
  std::printf(
      "vu_storage %s: this takes some minutes. Nothing is installed, and nothing outside of "
      "%s is touched.\n\n",
      VU_KIT_VERSION, work.string().c_str());
  kit::Report report;
  report.version = VU_KIT_VERSION;
  report.began = now();
  report.is_emulated = kit::is_emulated();
  report.facts = kit::facts_of_machine(work);
  bool is_good = true;
  const std::vector<kit::Suite>& suites = kit::suites();
  for (const kit::Suite& suite : suites) {
    std::printf("[%2zu/%zu] %s ...", report.results.size() + 1, suites.size(), suite.what.c_str());
    std::fflush(stdout);
    report.results.push_back(kit::run(suite, bin, work));
    show(report.results.size(), suites.size(), report.results.back());
    is_good = is_good && report.results.back().state != kit::State::kFailed;
    // After each one: whatever happens later, this is there.
    kit::write_json(report, home / "report.json");
    kit::write_page(report, home / "report.html");
  }
  std::error_code ignored;
  std::filesystem::remove_all(work, ignored);
  std::printf("\n%s. The report is report.html; please send report.json back.\n",
              is_good ? "Everything passed" : "Something failed");
  return is_good ? 0 : 1;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  ::SetConsoleOutputCP(CP_UTF8);
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  try {
    return run_all(argc > 1 ? std::filesystem::absolute(argv[1]) : std::filesystem::path());
  } catch (const std::exception& reason) {
    std::fprintf(stderr, "error: %s\n", reason.what());
    return 2;
  }
}
