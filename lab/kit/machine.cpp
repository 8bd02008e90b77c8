#include "lab/kit/machine.h"

#include <windows.h>

#include <fstream>

#include "lab/kit/folders.h"
#include "lab/kit/program.h"

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

/// GetVersionEx() tells what the program's manifest knows; this tells what is there.
std::string windows_version() {
  using Function = LONG(__stdcall*)(OSVERSIONINFOW*);
  const auto function = reinterpret_cast<Function>(function_of_ntdll("RtlGetVersion"));
  OSVERSIONINFOW version = {};
  version.dwOSVersionInfoSize = sizeof version;
  if (function == nullptr || function(&version) != 0) return "not told";
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
    return "not told";
  return utf8_of(name) + " on " + utf8_of(root) + ", drive type " +
         std::to_string(::GetDriveTypeW(root));
}

std::string short_names_in(const std::filesystem::path& work) {
  const std::filesystem::path file = work / "a long name for a short one.text";
  std::ofstream(file) << "x";
  WIN32_FIND_DATAW data = {};
  const HANDLE search = ::FindFirstFileW(file.c_str(), &data);
  ::DeleteFileW(file.c_str());
  if (search == INVALID_HANDLE_VALUE) return "not told";
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

/// "Windows 11 Pro 23H2" say. Its first word is wrong from Windows 11 on; the build is not.
std::string edition() {
  const wchar_t* const key = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
  return text_of(key, L"ProductName") + " " + text_of(key, L"DisplayVersion");
}

std::string rights() {
  HANDLE token = nullptr;
  TOKEN_ELEVATION elevation = {};
  DWORD size = 0;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return "not told";
  const bool is_told =
      ::GetTokenInformation(token, TokenElevation, &elevation, sizeof elevation, &size) != FALSE;
  ::CloseHandle(token);
  if (!is_told) return "not told";
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
    // Others may have no medium, or be far away.
    if (type == DRIVE_FIXED || type == DRIVE_REMOVABLE)
      ::GetVolumeInformationW(root.c_str(), nullptr, 0, nullptr, nullptr, nullptr, name, MAX_PATH);
    told += (told.empty() ? "" : ", ") + utf8_of(root.substr(0, 2)) + " " +
            kTypes[type < 7 ? type : 0] + (name[0] != L'\0' ? " " + utf8_of(name) : "");
  }
  return told;
}

std::string free_space_in(const std::filesystem::path& work) {
  ULARGE_INTEGER bytes = {};
  if (!::GetDiskFreeSpaceExW(work.c_str(), &bytes, nullptr, nullptr)) return "not told";
  return std::to_string(bytes.QuadPart / 1'000'000) + " MB";
}

/// Windows marks what came from the web, and asks before it runs that.
bool is_from_the_web() {
  std::wstring path(32768, L'\0');
  path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return ::GetFileAttributesW((path + L":Zone.Identifier").c_str()) != INVALID_FILE_ATTRIBUTES;
}

/// What Windows' security centre has registered.
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

/// The names of what Windows knows as antivirus programs. Where the registry has none, PowerShell
/// is asked, if there is one.
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
  if (!ended.was_started || !ended.was_in_time || ended.code != 0) return "not told";
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

}  // namespace kit
