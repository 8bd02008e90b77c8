#include "tests/support/os_barrier.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/scratch.h"
#include "tests/unit/os_test_kit.h"

// A barrier holds whoever comes to a call, and nobody else.

namespace {

using namespace std::chrono_literals;
using os::faults::Barrier;
using os::faults::Call;

class OsBarrier : public testing::Test {
 protected:
  OsBarrier() {
    for (const char* const name : {"one", "two"}) write_file(m_scratch.path(name), "");
  }
  std::thread remover(const std::string& name) {
    return std::thread(
        [path = m_scratch.path(name)] { EXPECT_TRUE(succeeds(os::remove_file(path))); });
  }
  bool is_there(const std::string& name) const { return file_exists(m_scratch.path(name)); }

  const scratch_folder m_scratch;
};

TEST_F(OsBarrier, AThreadStandsBeforeTheCallUntilItIsLetGo) {
  Barrier barrier("before the removal", Call::remove_file);
  EXPECT_FALSE(barrier.is_reached(0ms));
  EXPECT_EQ(Barrier::waiting(), std::vector<std::string>{});
  std::thread thread = remover("one");
  ASSERT_TRUE(barrier.is_reached());
  EXPECT_TRUE(is_there("one"));
  EXPECT_EQ(Barrier::waiting(), std::vector<std::string>{"before the removal"});
  EXPECT_EQ(barrier.name(), "before the removal");
  barrier.let_go();
  thread.join();
  EXPECT_FALSE(is_there("one"));
  EXPECT_FALSE(barrier.is_reached(0ms));
  EXPECT_EQ(Barrier::waiting(), std::vector<std::string>{});
}

TEST_F(OsBarrier, OnlyTheNthCallIsHeld) {
  Barrier barrier("the second removal", Call::remove_file, 2);
  remover("one").join();
  EXPECT_FALSE(is_there("one"));
  std::thread thread = remover("two");
  ASSERT_TRUE(barrier.is_reached());
  EXPECT_TRUE(is_there("two"));
  barrier.let_go();
  thread.join();
}

TEST_F(OsBarrier, TwoOfThemAreToldApartByTheirNames) {
  Barrier first("first", Call::remove_file);
  Barrier second("second", Call::remove_file, 2);
  std::thread one = remover("one");
  ASSERT_TRUE(first.is_reached());
  std::thread two = remover("two");
  ASSERT_TRUE(second.is_reached());
  EXPECT_EQ(Barrier::waiting(), (std::vector<std::string>{"first", "second"}));
  first.let_go();
  one.join();
  EXPECT_FALSE(is_there("one"));
  EXPECT_TRUE(is_there("two"));
  EXPECT_EQ(Barrier::waiting(), std::vector<std::string>{"second"});
  second.let_go();
  two.join();
}

TEST_F(OsBarrier, ItsEndLetsEverybodyGo) {
  std::thread thread;
  {
    const Barrier barrier("gone soon", Call::remove_file);
    thread = remover("one");
    ASSERT_TRUE(barrier.is_reached());
  }
  thread.join();
  EXPECT_FALSE(is_there("one"));
}

}  // namespace
