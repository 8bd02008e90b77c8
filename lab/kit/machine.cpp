#include "lab/kit/machine.h"

#include <windows.h>

#include <fstream>

#include "lab/kit/program.h"

namespace kit {
namespace {

std::string utf8_of(const std::wstring& text) {
  const int size = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                         nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(size), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), result.data(), size,
                        nullptr, nullptr);
  return result;
}

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
  wchar_t path[32768] = L"";
  const DWORD size = ::GetShortPathNameW(file.c_str(), path, 32767);
  const std::filesystem::path found(std::wstring(path, size));
  std::filesystem::remove(file);
  if (size == 0) return "not told";
  return found.filename() == file.filename() ? "off" : "on";
}

/// The names of what Windows knows as antivirus programs, asked of PowerShell where there is one.
std::string antivirus(const std::filesystem::path& work) {
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
  if (is_emulated()) facts.emplace_back("Emulated by", wine_version());
  facts.emplace_back("Processors", std::to_string(system.dwNumberOfProcessors));
  facts.emplace_back("File system", file_system_of(work));
  facts.emplace_back("Code page", std::to_string(::GetACP()));
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
