#include "lab/kit/kit.h"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include <windows.h>

#include "lab/kit/folders.h"

namespace kit {
namespace {

void* function_of_ntdll(const char* name) {
  return reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), name));
}

std::string wine_version() {
  using Function = const char*(__cdecl*)();
  const auto function = reinterpret_cast<Function>(function_of_ntdll("wine_get_version"));
  return function != nullptr ? std::string("Wine ") + function() : std::string();
}

/// GetVersionEx() depends on the manifest of the program; this function does not.
std::string windows_version() {
  using Function = LONG(__stdcall*)(OSVERSIONINFOW*);
  const auto function = reinterpret_cast<Function>(function_of_ntdll("RtlGetVersion"));
  OSVERSIONINFOW version = {};
  version.dwOSVersionInfoSize = sizeof version;
  if (function == nullptr || function(&version) != 0) return "unknown";
  return std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) +
         " build " + std::to_string(version.dwBuildNumber);
}

std::string switch_of(const wchar_t* key, const wchar_t* name) {
  DWORD value = 0;
  DWORD size = sizeof value;
  if (::RegGetValueW(HKEY_LOCAL_MACHINE, key, name, RRF_RT_REG_DWORD, nullptr, &value, &size) !=
      ERROR_SUCCESS)
    return "not set";
  return value != 0 ? "on (" + std::to_string(value) + ")" : "off";
}

std::string file_system_of(const std::filesystem::path& work) {
  wchar_t root[MAX_PATH + 1] = L"";
  wchar_t name[MAX_PATH + 1] = L"";
  DWORD flags = 0;
  if (!::GetVolumePathNameW(work.c_str(), root, MAX_PATH) ||
      !::GetVolumeInformationW(root, nullptr, 0, nullptr, nullptr, &flags, name, MAX_PATH))
    return "unknown";
  return utf8_of(name) + " on " + utf8_of(root) + ", drive type " +
         std::to_string(::GetDriveTypeW(root));
}

std::string short_names_in(const std::filesystem::path& work) {
  const std::filesystem::path file = work / "a long name for a short one.text";
  std::ofstream(file) << "x";
  WIN32_FIND_DATAW data = {};
  const HANDLE search = ::FindFirstFileW(file.c_str(), &data);
  ::DeleteFileW(file.c_str());
  if (search == INVALID_HANDLE_VALUE) return "unknown";
  ::FindClose(search);
  return data.cAlternateFileName[0] != L'\0' ? "on" : "off";
}

std::string text_of(const std::wstring& key, const wchar_t* name) {
  wchar_t value[512] = L"";
  DWORD size = sizeof value;
  const LSTATUS status =
      ::RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_REG_SZ, nullptr, value, &size);
  return status == ERROR_SUCCESS ? utf8_of(value) : std::string();
}

/// Example: "Windows 11 Pro 23H2". Windows 11 still says "Windows 10" here; the build is right.
std::string edition() {
  const wchar_t* const key = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
  return text_of(key, L"ProductName") + " " + text_of(key, L"DisplayVersion");
}

std::string rights() {
  HANDLE token = nullptr;
  TOKEN_ELEVATION elevation = {};
  DWORD size = 0;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return "unknown";
  const bool is_told =
      ::GetTokenInformation(token, TokenElevation, &elevation, sizeof elevation, &size) != FALSE;
  ::CloseHandle(token);
  if (!is_told) return "unknown";
  return elevation.TokenIsElevated != 0 ? "an administrator's" : "a user's";
}

std::string drives() {
  static const char* const kTypes[] = {"?",       "none",         "removable", "fixed",
                                       "network", "a disc drive", "in memory"};
  std::string told;
  const DWORD there = ::GetLogicalDrives();
  for (wchar_t letter = L'A'; letter <= L'Z'; ++letter) {
    if ((there >> (letter - L'A') & 1U) == 0) continue;
    const std::wstring root = std::wstring(1, letter) + L":\\";
    const UINT type = ::GetDriveTypeW(root.c_str());
    wchar_t name[MAX_PATH + 1] = L"";
    // Other drives may have no medium, or be slow.
    if (type == DRIVE_FIXED || type == DRIVE_REMOVABLE)
      ::GetVolumeInformationW(root.c_str(), nullptr, 0, nullptr, nullptr, nullptr, name, MAX_PATH);
    told += (told.empty() ? "" : ", ") + utf8_of(root.substr(0, 2)) + " " +
            kTypes[type < 7 ? type : 0] + (name[0] != L'\0' ? " " + utf8_of(name) : "");
  }
  return told;
}

std::string free_space_in(const std::filesystem::path& work) {
  ULARGE_INTEGER bytes = {};
  if (!::GetDiskFreeSpaceExW(work.c_str(), &bytes, nullptr, nullptr)) return "unknown";
  return std::to_string(bytes.QuadPart / 1'000'000) + " MB";
}

/// Windows marks files from the web and asks before it runs them.
bool is_from_the_web() {
  std::wstring path(32768, L'\0');
  path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return ::GetFileAttributesW((path + L":Zone.Identifier").c_str()) != INVALID_FILE_ATTRIBUTES;
}

/// What Windows' Security Center has registered.
std::string registered_antivirus() {
  const std::wstring all = L"SOFTWARE\\Microsoft\\Security Center\\Provider\\Av";
  HKEY key = nullptr;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, all.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
    return {};
  std::string told;
  wchar_t name[256] = L"";
  for (DWORD number = 0; ::RegEnumKeyW(key, number, name, 256) == ERROR_SUCCESS; ++number) {
    const std::string product = text_of(all + L"\\" + name, L"DISPLAYNAME");
    if (!product.empty()) told += (told.empty() ? "" : ", ") + product;
  }
  ::RegCloseKey(key);
  return told;
}

/// The antivirus programs that Windows knows: from the registry, or else from PowerShell.
std::string antivirus(const std::filesystem::path& work) {
  const std::string registered = registered_antivirus();
  if (!registered.empty()) return registered;
  const std::filesystem::path log = work / "antivirus.txt";
  const std::wstring line =
      L"powershell.exe -NoProfile -NonInteractive -Command \"(Get-CimInstance -Namespace "
      L"root/SecurityCenter2 -ClassName AntiVirusProduct).displayName -join ', '\"";
  const Ended ended = run(line, work, log, std::chrono::seconds(40));
  std::string text;
  std::getline(std::ifstream(log), text);
  while (!text.empty() && (text.back() == '\r' || text.back() == ' ')) text.pop_back();
  if (!ended.was_started || !ended.was_in_time || ended.code != 0) return "unknown";
  return text.empty() ? "none known to Windows" : text;
}

}  // namespace

bool is_emulated() { return !wine_version().empty(); }

Facts facts_of_machine(const std::filesystem::path& work) {
  SYSTEM_INFO system = {};
  ::GetNativeSystemInfo(&system);
  const wchar_t* const control = L"SYSTEM\\CurrentControlSet\\Control\\FileSystem";
  Facts facts;
  facts.emplace_back("Windows", windows_version());
  facts.emplace_back("Edition", edition());
  if (is_emulated()) facts.emplace_back("Emulated by", wine_version());
  const WORD kind = system.wProcessorArchitecture;
  facts.emplace_back("Processors",
                     std::to_string(system.dwNumberOfProcessors) +
                         (kind == PROCESSOR_ARCHITECTURE_AMD64   ? " x64"
                          : kind == PROCESSOR_ARCHITECTURE_ARM64 ? " ARM64"
                                                                 : " of another kind"));
  facts.emplace_back("File system", file_system_of(work));
  facts.emplace_back("Free space", free_space_in(work));
  facts.emplace_back("Drives", drives());
  facts.emplace_back("Length of the folder's path", std::to_string(work.wstring().size()));
  facts.emplace_back("Rights", rights());
  facts.emplace_back("Marked as from the web", is_from_the_web() ? "yes" : "no");
  facts.emplace_back(
      "Code page", std::to_string(::GetACP()) + ", of the console " + std::to_string(::GetOEMCP()));
  facts.emplace_back("Language", std::to_string(::GetUserDefaultUILanguage()));
  facts.emplace_back("Short names here", short_names_in(work));
  facts.emplace_back("Short names switched off",
                     switch_of(control, L"NtfsDisable8dot3NameCreation"));
  facts.emplace_back("Long paths", switch_of(control, L"LongPathsEnabled"));
  facts.emplace_back("Developer Mode",
                     switch_of(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AppModelUnlock",
                               L"AllowDevelopmentWithoutDevLicense"));
  facts.emplace_back("Antivirus", antivirus(work));
  return facts;
}

// ------------------------------------------------------------------------------------------------

namespace {

constexpr const char* kHead = R"(<!doctype html>
<html lang="en"><head><meta charset="utf-8">
<meta name="viewport" content="width=device-width"><title>vu_storage on this Windows</title><style>
body { font: 15px/1.5 "Segoe UI", sans-serif; max-width: 70em; margin: 2em auto; padding: 0 1em;
color: #222; } table { border-collapse: collapse; margin: 1em 0; }
td, th { border: 1px solid #ccc; padding: .3em .6em; text-align: left; vertical-align: top; }
.passed { color: #176117; } .failed { color: #a01010; font-weight: 600; } .skipped { color: #666; }
pre { white-space: pre-wrap; max-height: 20em; overflow: auto; background: #f6f6f6; padding: .6em; }
.note { background: #fff4cc; padding: .6em 1em; }
</style></head><body>
)";

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '<': result += "&lt;"; break;
      case '>': result += "&gt;"; break;
      case '&': result += "&amp;"; break;
      default: result += c;
    }
  }
  return result;
}

/// The name of a case without the name of its class, which all cases share.
std::string short_name_of(const Case& one) { return one.name.substr(one.name.find('.') + 1); }

/// A name with a possible line break before each word.
std::string breakable(const std::string& name) {
  std::string result;
  for (const char c : name) {
    if (c >= 'A' && c <= 'Z' && !result.empty()) result += "<wbr>";
    result += c;
  }
  return result;
}

/// Without the position in the sources, which comes first.
std::string reason_of(const Case& one) {
  const std::size_t at = one.words.find("Skipped\n");
  return at == std::string::npos ? one.words : one.words.substr(at + 8);
}

std::string marked(State state) {
  const std::string name = name_of(state);
  return "<td class=\"" + name + "\">" + name + "</td>";
}

void write_facts(std::ostream& page, const Report& report) {
  page << "<h2>The machine</h2><table>";
  for (const auto& [name, value] : report.facts)
    page << "<tr><th>" << escaped(name) << "</th><td>" << escaped(value) << "</td></tr>";
  page << "</table>";
}

/// The cases that only a real kernel can show, by number.
std::vector<Case> kernel_cases(const Report& report) {
  std::vector<Case> all;
  for (const Result& result : report.results) {
    if (result.suite.kind == Kind::kKernel)
      all.insert(all.end(), result.cases.begin(), result.cases.end());
  }
  std::stable_sort(all.begin(), all.end(),
                   [](const Case& one, const Case& two) { return one.number < two.number; });
  return all;
}

void write_kernel_cases(std::ostream& page, const Report& report) {
  page << "<h2>What only a real kernel shows</h2>\n";
  for (const Result& result : report.results) {
    if (result.suite.kind == Kind::kKernel && !result.words.empty())
      page << "<p class=\"note\">" << result.suite.name << ": " << escaped(result.words) << "</p>";
  }
  page << "<table><tr><th>no.</th><th>case</th><th>result</th><th>what it shows</th>"
          "<th>what it saw, or why it did not run</th></tr>\n";
  for (const Case& one : kernel_cases(report)) {
    page << "<tr><td>" << one.number << "</td><td>" << breakable(short_name_of(one)) << "</td>"
         << marked(one.state) << "<td>" << escaped(one.settles) << "</td><td>"
         << escaped(one.found.empty() ? reason_of(one) : one.found) << "</td></tr>\n";
  }
  page << "</table>";
}

void write_suites(std::ostream& page, const Report& report) {
  page << "<h2>All suites</h2><table><tr><th>suite</th><th>what it "
          "is</th><th>result</th><th>passed</th>"
          "<th>failed</th><th>skipped</th><th>seconds</th></tr>";
  for (const Result& result : report.results) {
    page << "<tr><td>" << result.suite.name << "</td><td>" << escaped(result.suite.what) << "</td>"
         << marked(result.state);
    if (result.cases.empty()) {
      page << "<td></td><td></td><td></td>";
    } else {
      for (const State state : {State::kPassed, State::kFailed, State::kSkipped})
        page << "<td>" << result.count(state) << "</td>";
    }
    page << "<td>" << static_cast<int>(result.seconds) << "</td></tr>\n";
  }
  page << "</table>";
}

/// The output of the runs, which is useful even if they passed.
void write_runs(std::ostream& page, const Report& report) {
  page << "<h2>Output of the runs and of the benchmark</h2>";
  for (const Result& result : report.results) {
    if (result.suite.kind == Kind::kRun && result.state == State::kPassed)
      page << "<p><b>" << result.suite.name << "</b></p><pre>" << escaped(result.words)
           << "</pre>\n";
  }
}

void write_words(std::ostream& page, const Report& report, State state, const char* title) {
  page << "<h2>" << title << "</h2>";
  bool any = false;
  const auto tell = [&](const std::string& name, const std::string& words) {
    page << "<p><b>" << escaped(name) << "</b></p><pre>" << escaped(words) << "</pre>\n";
    any = true;
  };
  for (const Result& result : report.results) {
    if (result.state == state && !result.words.empty()) tell(result.suite.name, result.words);
    for (const Case& one : result.cases) {
      if (one.state == state) tell(result.suite.name + ": " + one.name, reason_of(one));
    }
  }
  if (!any) page << "<p>Nothing.</p>";
}

nlohmann::ordered_json json_of(const Case& one) {
  nlohmann::ordered_json told = {{"name", one.name}, {"state", name_of(one.state)}};
  if (one.number != 0) told["number"] = one.number;
  if (!one.settles.empty()) told["settles"] = one.settles;
  if (!one.found.empty()) told["found"] = one.found;
  if (!one.words.empty()) told["words"] = reason_of(one);
  return told;
}

nlohmann::ordered_json json_of(const Result& result) {
  nlohmann::ordered_json suite;
  suite["name"] = result.suite.name;
  suite["state"] = name_of(result.state);
  suite["seconds"] = static_cast<int>(result.seconds);
  if (!result.words.empty()) suite["words"] = result.words;
  for (const State state : {State::kPassed, State::kFailed, State::kSkipped})
    suite[name_of(state)] = result.count(state);
  suite["cases"] = nlohmann::ordered_json::array();
  for (const Case& one : result.cases) {
    // A passed case is only useful if it is a kernel case.
    if (one.state != State::kPassed || one.number != 0) suite["cases"].push_back(json_of(one));
  }
  return suite;
}

std::string json_text(const Report& report) {
  nlohmann::ordered_json all;
  all["version"] = report.version;
  all["began"] = report.began;
  all["seconds"] = static_cast<int>(report.seconds);
  all["summary"] = report.summary();
  all["is_emulated"] = report.is_emulated;
  all["is_stopped"] = report.is_stopped;
  all["suites_wanted"] = report.wanted;
  if (!report.remains.empty()) all["remains"] = report.remains;
  for (const auto& [name, value] : report.facts) all["machine"][name] = value;
  all["suites"] = nlohmann::ordered_json::array();
  for (const Result& result : report.results) all["suites"].push_back(json_of(result));
  constexpr auto replace = nlohmann::ordered_json::error_handler_t::replace;
  return all.dump(1, ' ', false, replace) + "\n";
}

std::string page_text(const Report& report) {
  std::ostringstream page;
  page << kHead << "<h1>vu_storage " << report.version << " on this Windows</h1>\n<p>Begun "
       << report.began << " UTC. <b>" << escaped(report.summary()) << "</b></p>\n";
  if (report.is_emulated) {
    page << "<p class=\"note\">This is not Windows but an emulator of it. The results say nothing "
            "about a real kernel.</p>\n";
  }
  if (!report.remains.empty()) page << "<p class=\"note\">" << escaped(report.remains) << "</p>\n";
  page << "<p><b>Please send back</b> the file report.json, from the folder of this page. It "
          "contains "
          "what is shown here, and nothing else.</p>\n";
  write_kernel_cases(page, report);
  write_suites(page, report);
  write_facts(page, report);
  write_words(page, report, State::kFailed, "What failed");
  write_words(page, report, State::kSkipped, "What was skipped, and why");
  write_runs(page, report);
  page << "</body></html>\n";
  return page.str();
}

}  // namespace

int Report::count(State of) const {
  return static_cast<int>(std::count_if(results.begin(), results.end(),
                                        [of](const Result& each) { return each.state == of; }));
}

bool Report::is_good() const {
  return results.size() == wanted && count(State::kFailed) == 0 && !is_stopped;
}

std::string Report::summary() const {
  int cases[3] = {0, 0, 0};
  for (const Result& result : results) {
    for (const State state : {State::kPassed, State::kFailed, State::kSkipped})
      cases[static_cast<int>(state)] += result.count(state);
  }
  const auto number = [](int count, const char* what) { return std::to_string(count) + what; };
  std::string told = number(count(State::kPassed), " suites passed, ") +
                     number(count(State::kFailed), " failed, ") +
                     number(count(State::kSkipped), " were skipped; ") +
                     number(cases[0], " cases passed, ") + number(cases[1], " failed, ") +
                     number(cases[2], " were skipped.");
  if (results.size() < wanted)
    told += " The run is not complete: " + std::to_string(wanted - results.size()) +
            " suites are missing.";
  if (is_stopped) told += " The user stopped it.";
  return told;
}

bool write_reports(const Report& report, const std::filesystem::path& folder) {
  const bool is_told = replace_file(folder / "report.json", json_text(report));
  return replace_file(folder / "report.html", page_text(report)) && is_told;
}

}  // namespace kit
