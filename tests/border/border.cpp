// A C++17 program with a separate C++ runtime that uses the C interface: border ROOT
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>

#include "vu/storage.hpp"

namespace {

/// Whether an exception from a callback passes through the library and keeps its type.
bool has_exceptions_of_its_own(vu::store& store) {
  try {
    store.each_document(vu::area::docs, "anna",
                        [](const vu::entry&) -> bool { throw std::logic_error("mine"); });
  } catch (const std::logic_error& error) {
    return error.what() == std::string("mine");
  }
  return false;
}

bool tells_errors(vu::store& store) {
  try {
    store.put({vu::area::docs, "a/b", "x", 1}, "x");
  } catch (const vu::error& error) {
    return error.code() == VU_REFUSED && error.path() == "a/b";
  }
  return false;
}

int run(const char* root) {
  vu::store store(root, vu::make_root);
  const vu::key report{vu::area::docs, "anna", "report.kdf", 20240501};
  const std::string bytes(100'000, 'x');
  if (store.put(report, bytes) != vu::stored::at_once) return 3;
  if (store.read(report) != bytes) return 4;
  if (store.documents(vu::area::docs, "anna", true).at(0).info->size != 100'000) return 5;
  std::string in_a_thread;
  std::thread([&] { in_a_thread = store.open(report).read(); }).join();
  if (in_a_thread != bytes) return 6;
  if (!has_exceptions_of_its_own(store)) return 7;
  if (!tells_errors(store)) return 8;
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const int result = run(argv[1]);
  if (result == 0) std::puts("the border holds");
  return result;
}
