// Stores real files through the exported classes, uses every part of the library, and checks each
// result. See storage_demo --help.
#include <exception>
#include <iostream>

#include "demo.h"
#include "vu_fileutf8.h"

namespace demo {

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
