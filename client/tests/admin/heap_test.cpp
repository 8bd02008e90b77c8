// What may not allocate memory. The replaced operators count the allocations of this thread.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>

#include "client/admin/text.h"

namespace {

thread_local std::size_t g_allocations = 0;

}  // namespace

void* operator new(std::size_t size) {
  ++g_allocations;
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

TEST(AdminHeap, IsNotUsedByPatterns) {
  const std::string name(1000, 'a');
  const std::size_t before = g_allocations;
  const bool is_matched = admin::matches("*a*?*a", name);
  const bool is_other = admin::matches("*a*b*", name);
  EXPECT_EQ(g_allocations, before);
  EXPECT_TRUE(is_matched);
  EXPECT_FALSE(is_other);
  const std::string longer = name + "b";
  EXPECT_GT(g_allocations, before) << longer.size();
}
