// Stores real files through the exported classes, uses every part of the library, and checks each
// result. See storage_demo --help.

#include <charconv>
#include <exception>
#include <iomanip>
#include <iostream>
#include <system_error>
#include <utility>

#include "demo.h"
#include "vu_fileutf8.h"

namespace demo {

namespace {

constexpr std::size_t kFewestFiles = 20;
constexpr std::size_t kMostFiles = 100000;

std::size_t number_of_files(const std::string& text) {
  std::size_t number = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end || number < kFewestFiles || number > kMostFiles)
    throw Refusal("--max-files '" + text +
                  "' is not a number from 20 to 100000: use such a number or omit the option");
  return number;
}

}  // namespace

Options read_options(const std::vector<std::string>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& name = arguments[i];
    const auto value = [&]() -> const std::string& {
      if (++i == arguments.size() || arguments[i].empty())
        throw Refusal(name + " has no value: see --help");
      return arguments[i];
    };
    if (name == "--help" || name == "-h") {
      options.help = true;
    } else if (name == "--fresh") {
      options.fresh = true;
    } else if (name == "--root") {
      options.root = value();
    } else if (name == "--source") {
      options.sources.push_back(value());
    } else if (name == "--verify-only") {
      options.verify_only = value();
    } else if (name == "--trace") {
      options.trace = value();
    } else if (name == "--max-files") {
      options.max_files = number_of_files(value());
    } else {
      throw Refusal("unknown argument '" + name + "': see --help");
    }
  }
  if (!options.help && options.root.empty())
    throw Refusal("no folder is given: name one with --root DIR");
  return options;
}

const char* usage() {
  return "usage: storage_demo --root DIR [--source DIR]... [--max-files N] [--fresh] [--trace "
         "FILE]\n"
         "       storage_demo --root DIR --verify-only MANIFEST [--trace FILE]\n"
         "\n"
         "Stores files of the source folders in a new storage below DIR, uses every part of the\n"
         "library, and checks each result. DIR/manifest.tsv lists the stored documents. With\n"
         "--verify-only this or another build of the program compares the storage with a manifest\n"
         "and changes nothing.\n"
         "\n"
         "  --root DIR              folder for the storage; created when missing\n"
         "  --source DIR            source folder; may be repeated (default: documentation,\n"
         "                          fonts, headers and certificates of the system)\n"
         "  --max-files N           the most files to store, 20 to 100000 (default 400)\n"
         "  --fresh                 remove the files of an earlier run of this program from DIR\n"
         "  --verify-only MANIFEST  compare the storage below DIR with the manifest\n"
         "  --trace FILE            write the library's trace to FILE\n"
         "\n"
         "Exit codes: 0 all checks passed, 1 a check failed, 2 the program did not start.\n";
}

// ------------------------------------------------------------------------------------------------

namespace {

// The first failures matter most; more lines would hide them.
constexpr std::size_t kFailuresPrinted = 20;

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string seconds_text(double seconds) {
  return text_of(std::fixed, std::setprecision(2), seconds, " s");
}

}  // namespace

std::string size_text(std::uint64_t bytes) {
  if (bytes < 1024) return text_of(bytes, " bytes");
  const double kb = static_cast<double>(bytes) / 1024;
  if (kb < 1024) return text_of(std::fixed, std::setprecision(1), kb, " KB");
  return text_of(std::fixed, std::setprecision(1), kb / 1024, " MB");
}

void Report::begin(const std::string& title) {
  end();
  m_open = true;
  m_section_checks = 0;
  m_section_failures = 0;
  m_section_start = Clock::now();
  std::cout << "\n" << ++m_sections << ". " << title << "\n";
}

void Report::end() {
  if (!m_open) return;
  m_open = false;
  std::cout << "   -> " << m_section_checks << " checks, "
            << (m_section_failures == 0 ? std::string("all passed")
                                        : text_of(m_section_failures, " FAILED"))
            << ", " << seconds_text(seconds_since(m_section_start)) << std::endl;
}

void Report::say(const std::string& line) { std::cout << "   " << line << "\n"; }

bool Report::check(bool good, const std::string& what) {
  ++m_checks;
  ++m_section_checks;
  if (good) return true;
  ++m_failures;
  ++m_section_failures;
  if (m_failures <= kFailuresPrinted) {
    std::cout << "   FAILED: " << what << std::endl;
    m_failed.push_back(what);
  }
  return false;
}

int Report::finish() {
  end();
  std::cout << "\n";
  if (m_failures == 0 && m_checks > 0) {
    std::cout << m_checks << " checks, all passed, in " << seconds_text(seconds_since(m_start))
              << std::endl;
    return 0;
  }
  std::cout << m_checks << " checks, " << m_failures << " FAILED:\n";
  for (const std::string& what : m_failed) std::cout << "  " << what << "\n";
  if (m_failures > m_failed.size())
    std::cout << "  and " << m_failures - m_failed.size() << " more\n";
  std::cout << std::flush;
  return 1;
}

// ------------------------------------------------------------------------------------------------

namespace {

const char* name_of(vu_host::trace_level level) {
  switch (level) {
    case vu_host::trace_level::xs: return "XS";
    case vu_host::trace_level::s: return "S";
    case vu_host::trace_level::m: return "M";
    case vu_host::trace_level::l: return "L";
    case vu_host::trace_level::xl: return "XL";
  }
  return "?";
}

const char* name_of(vu_host::trace_event event) {
  switch (event) {
    case vu_host::trace_event::success: return "Success";
    case vu_host::trace_event::warning: return "Warning";
    case vu_host::trace_event::error: return "Error";
  }
  return "?";
}

}  // namespace

void Host::install() {
  vu_host::services services;
  services.trace = this;
  services.config = this;
  vu_host::install(services);
}

bool Host::trace_to(const std::string& file) {
  m_file.open(native(file), std::ios::binary | std::ios::trunc);
  return m_file.is_open();
}

std::vector<std::string> Host::take_errors() {
  const std::scoped_lock lock(m_mutex);
  return std::exchange(m_errors, {});
}

bool Host::wants(vu_host::trace_level) const noexcept { return m_file.is_open(); }

bool Host::wants(vu_host::trace_event event) const noexcept {
  return event == vu_host::trace_event::error || m_file.is_open();
}

void Host::scope_begin(const vu_host::trace_site& site, vu_host::trace_level,
                       std::string_view label) noexcept {
  write("begin", site, label);
}

void Host::scope_end(const vu_host::trace_site& site, vu_host::trace_level) noexcept {
  write("end", site, "");
}

void Host::scope_message(const vu_host::trace_site& site, std::string_view text) noexcept {
  write("message", site, text);
}

void Host::record(const vu_host::trace_site& site, vu_host::trace_level level,
                  std::string_view text) noexcept {
  write(name_of(level), site, text);
}

void Host::event(const vu_host::trace_site& site, vu_host::trace_event event,
                 std::string_view text) noexcept {
  write(name_of(event), site, text);
  if (event != vu_host::trace_event::error) return;
  try {
    const std::scoped_lock lock(m_mutex);
    m_errors.emplace_back(text);
  } catch (...) {
    // A sink must not throw. check_errors() notices that an error is missing, so the run fails.
  }
}

ucs2string Host::binary_folder() { return ucs2string(vu_utf8string(m_binary_folder)); }

void Host::write(const char* kind, const vu_host::trace_site& site,
                 std::string_view text) noexcept {
  try {
    const std::scoped_lock lock(m_mutex);
    if (m_file.is_open())
      m_file << kind << '\t' << site.source << ':' << site.line << '\t' << text << '\n';
  } catch (...) {
    // The run continues without the trace.
  }
}

// ------------------------------------------------------------------------------------------------

namespace {

// This file marks a root that this program created. --fresh removes only such roots.
constexpr const char* kMark = "made by storage_demo";

std::string absolute_root(const std::string& given) {
  const std::filesystem::path path = std::filesystem::absolute(native(given)).lexically_normal();
  std::string root = utf8(path.has_filename() ? path : path.parent_path());
  return root;
}

bool is_ours(const Demo& demo) { return std::filesystem::exists(native(demo.root) / kMark); }

/// Changes nothing. @throws Refusal when the root cannot be used.
void check_root(const Demo& demo) {
  const std::filesystem::path root = native(demo.root);
  if (!demo.beyond_ascii && !is_ascii(demo.root))
    throw Refusal("the code page of this process lacks letters of " + demo.root +
                  ": name a folder in ASCII characters with --root");
  if (std::filesystem::exists(root) && !std::filesystem::is_directory(root))
    throw Refusal(demo.root + " is a file: name a folder with --root");
  if (!std::filesystem::exists(root / "storage")) return;
  if (!is_ours(demo))
    throw Refusal(demo.root +
                  " contains a storage of another program: name another folder with --root");
  if (!demo.options.fresh)
    throw Refusal(demo.root + " already contains a storage: add --fresh to replace it");
}

void prepare_root(const Demo& demo) {
  const std::filesystem::path root = native(demo.root);
  if (is_ours(demo)) {
    for (const char* name : {"storage", "product", "outside", "keys"}) remove_tree(root / name);
    vu_fileutf8::recurseRemoveDir(vu_utf8string(demo.below_root("long")));
    std::filesystem::remove(root / "manifest.tsv");
  }
  std::error_code error;
  std::filesystem::create_directories(root / "product" / "config", error);
  if (error)
    throw Refusal("cannot create folders in " + demo.root + " (" + error.message() +
                  "): name a writable folder with --root");
  std::filesystem::create_directories(root / "outside");
  write_whole(root / kMark, "--fresh may remove this folder's storage\n");
}

/// @param synchronize turns synchronisation on: the library then adopts orphans.
void initialise(Demo& demo, bool synchronize) {
  demo.host.set_binary_folder(demo.below_root("product"));
  demo.report.check(vu_storage::initRootStorage(demo.root, true, synchronize),
                    "initRootStorage() initialises the storage");
  demo.report.check(vu_storage::getStoragePath() == demo.below_root("storage") &&
                        vu_file::is_dir(vu_storage::getCorpPath()) &&
                        vu_file::is_dir(vu_storage::getMailPath()) &&
                        vu_file::is_dir(vu_storage::getUserPath()) &&
                        vu_file::is_dir(vu_storage::getListPath()) &&
                        vu_file::is_dir(vu_storage::getSemletPath()),
                    "the area folders exist");
}

/// Checks that the library reported as many errors as the step provokes.
void check_errors(Demo& demo) {
  const std::vector<std::string> errors = demo.host.take_errors();
  std::string all;
  for (const std::string& error : errors) all += "\n      " + error;
  demo.report.check(errors.size() == demo.expected_errors,
                    text_of("the library reported ", errors.size(), " errors, expected ",
                            demo.expected_errors, all));
  demo.expected_errors = 0;
}

void check_sources(Demo& demo) {
  if (demo.options.sources.empty()) demo.options.sources = default_sources();
  if (demo.options.sources.empty())
    throw Refusal("this system has none of the default source folders: name one with --source DIR");
  for (const std::string& folder : demo.options.sources)
    if (!std::filesystem::is_directory(native(folder)))
      throw Refusal("the source folder " + folder +
                    " does not exist: name another with --source DIR");
}

void start(Demo& demo) {
  demo.report.begin("Creating a storage");
  prepare_root(demo);
  initialise(demo, true);
  demo.report.check(!vu_storage::initRootStorage(demo.root, true, true),
                    "a second initRootStorage() fails");
  ++demo.expected_errors;
  demo.report.say("storage " + vu_storage::getStoragePath());
  demo.report.say(demo.beyond_ascii
                      ? "narrow names are UTF-8"
                      : "narrow names use an 8-bit code page; the demo uses only ASCII names");
}

int run(Demo& demo) {
  check_root(demo);
  check_sources(demo);
  for (const auto step :
       {plan_versions, start, store_versions, read_back, refuse_others, ask_latest, list_indexes,
        copy_in_and_out, use_key_files, use_profiles, use_parts, manage_users, remove_document,
        clean_output, migrate_mail, use_utf8_handle, show_tree}) {
    step(demo);
    check_errors(demo);
  }
  demo.report.end();
  write_manifest(demo);
  return demo.report.finish();
}

int run_verification(Demo& demo) {
  const std::filesystem::path storage = native(demo.below_root("storage"));
  if (!std::filesystem::is_directory(storage))
    throw Refusal(demo.root +
                  " contains no storage: name the folder of an earlier run with --root");
  read_manifest(demo);
  const std::uint64_t before = fingerprint(storage);
  demo.report.begin("The storage " + demo.below_root("storage"));
  // Without synchronisation, so that the storage does not change.
  initialise(demo, false);
  verify(demo);
  demo.report.check(fingerprint(storage) == before, "verification does not change the storage");
  check_errors(demo);
  return demo.report.finish();
}

int start_with(const std::vector<std::string>& arguments) {
  Demo demo;
  demo.options = read_options(arguments);
  if (demo.options.help) {
    std::cout << usage();
    return 0;
  }
  if (!demo.options.trace.empty() && !demo.host.trace_to(demo.options.trace))
    throw Refusal("cannot write the trace to " + demo.options.trace +
                  ": name another file with --trace");
  demo.host.install();
  demo.root = absolute_root(demo.options.root);
  demo.beyond_ascii = narrow_names_are_utf8();
  return demo.options.verify_only.empty() ? run(demo) : run_verification(demo);
}

}  // namespace

}  // namespace demo

int main(int argc, char** argv) {
  std::string failure;
  try {
    return demo::start_with(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const demo::Refusal& refusal) {
    std::cerr << "storage_demo: " << refusal.what() << std::endl;
    return 2;
  } catch (const std::exception& error) {
    failure = error.what();
  } catch (const vu_file_except& error) {
    failure = error.what();
  }
  std::cerr << "storage_demo: stopped by an error: " << failure << std::endl;
  return 1;
}
