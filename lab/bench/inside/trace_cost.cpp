// Costs of a trace scope and of a record without a trace sink: trace_cost scope|record|nothing
//
// Calls a small function 1,000 times: with a scope, with a record in a scope, or with neither.
// scripts/bench-instructions.sh runs it under callgrind, which counts only the instructions of
// measured(); the differences are the costs. Fails when the calls allocate memory.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "platform/host/trace.h"

namespace {

constexpr int kCalls = 1000;
constexpr const char* kSource = "trace_cost";

unsigned long g_allocations = 0;

/// Prevents the compiler from removing or merging the code around it.
inline void barrier(const std::string& text) { asm volatile("" : : "r"(&text) : "memory"); }

[[gnu::noinline]] void without(const std::string& text) { barrier(text); }

[[gnu::noinline]] void with_scope(const std::string& text) {
  VU_TRACE_SCOPE(kSource, vu_host::trace_level::xl, "trace_cost: ", text);
  barrier(text);
}

[[gnu::noinline]] void with_record(const std::string& text) {
  VU_TRACE_SCOPE(kSource, vu_host::trace_level::xl, "trace_cost: ", text);
  barrier(text);
  VU_WARNING("a record about ", text, " that nobody wants");
  barrier(text);
}

using Measured = void (*)(const std::string&);

}  // namespace

void* operator new(std::size_t size) {
  ++g_allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

extern "C" [[gnu::noinline]] void measured(Measured call, const std::string& text) {
  for (int i = 0; i < kCalls; ++i) call(text);
}

int main(int argc, char** argv) {
  const char* const what = argc == 2 ? argv[1] : "";
  const Measured call = std::strcmp(what, "scope") == 0     ? with_scope
                        : std::strcmp(what, "record") == 0  ? with_record
                        : std::strcmp(what, "nothing") == 0 ? without
                                                            : nullptr;
  if (call == nullptr) {
    std::fputs("usage: trace_cost scope|record|nothing\n", stderr);
    return 2;
  }
  const std::string text = "a text that is too long for the short form of a string";
  const unsigned long before = g_allocations;
  measured(call, text);
  if (g_allocations == before) return 0;
  std::fprintf(stderr, "error: %lu allocations\n", g_allocations - before);
  return 1;
}
