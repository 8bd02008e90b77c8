#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "index/folder_files.h"
#include "platform/host/trace.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/index_peer.h"
#include "tests/support/scratch.h"
#include "tests/unit/c_interface_fixture.h"

// The peak memory of an existence query, and the state after a rename without memory. The replaced
// operators count the allocations of this thread, with the allocator's sizes. They fail on request.

namespace {

thread_local bool g_counting = false;
thread_local std::ptrdiff_t g_live = 0;
thread_local std::ptrdiff_t g_peak = 0;
constexpr std::ptrdiff_t kAll = -1;
/// The number of allocations that still succeed before one fails.
thread_local std::ptrdiff_t g_left = kAll;
/// After that failure, the number of allocations that succeed before another one fails.
thread_local std::ptrdiff_t g_left_then = kAll;

void taken(void* memory) {
  if (!g_counting) return;
  g_live += static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
  if (g_live > g_peak) g_peak = g_live;
}

void given_back(void* memory) {
  if (g_counting && memory != nullptr)
    g_live -= static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
}

}  // namespace

void* operator new(std::size_t size) {
  if (g_left != kAll && g_left-- == 0) {
    g_left = std::exchange(g_left_then, kAll);
    throw std::bad_alloc();
  }
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  taken(memory);
  return memory;
}
// AddressSanitizer has its own version of each form, so each form that is used is replaced.
// Example: std::stable_sort uses this one.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* memory) noexcept {
  given_back(memory);
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }
void operator delete[](void* memory) noexcept { operator delete(memory); }
void operator delete[](void* memory, std::size_t) noexcept { operator delete(memory); }

namespace {

/// The peak of allocated bytes during an operation.
template <class Operation>
std::ptrdiff_t peak_of(Operation operation) {
  g_live = 0;
  g_peak = 0;
  g_counting = true;
  operation();
  g_counting = false;
  return g_peak;
}

/// The peak of a query, without the size of "index.dat".
std::ptrdiff_t beyond_the_text(int entries, long timestamp, bool expected) {
  const index_folder folder;
  std::string text;
  for (int i = 0; i < entries; ++i) {
    const std::string number = std::to_string(10000000 + i);
    text += "Report " + number + ".kdb_0000000001/" + number + "\n";
  }
  folder.set_index(text);
  folder.write(std::to_string(10000000 + entries / 2) + ".kdb");
  const std::string logical = "Report " + std::to_string(10000000 + entries / 2) + ".kdb";
  const std::string& path = folder.path();
  std::string physical;
  bool found = false;
  const std::ptrdiff_t peak =
      peak_of([&] { found = STGIndex::exists(path, logical, timestamp, physical); });
  EXPECT_EQ(found, expected);
  return peak - static_cast<std::ptrdiff_t>(text.size());
}

constexpr std::ptrdiff_t kConstant = 16384;

TEST(Heap, CountsWhatIsAllocated) {
  const std::ptrdiff_t peak = peak_of([] {
    { const std::string first(100000, 'x'); }
    const std::string second(50000, 'x');
  });
  EXPECT_GE(peak, 100000);
  EXPECT_LT(peak, 150000);
}

TEST(Heap, OfAnExistenceQuestionIsTheTextOfTheIndexAndAConstant) {
  const synchronisation off{false};
  for (const bool hit : {true, false}) {
    const std::ptrdiff_t few = beyond_the_text(10, hit ? 1 : 2, hit);
    const std::ptrdiff_t many = beyond_the_text(20000, hit ? 1 : 2, hit);
    EXPECT_LT(few, kConstant);
    EXPECT_LT(many, kConstant);
  }
}

TEST(Heap, OfASmallIndexInALargeFolderIsTheListingAndAConstant) {
  using Peer = stg_index_test_peer;
  constexpr int kFiles = 3000;
  const synchronisation off{false};
  const index_folder folder;
  for (int i = 0; i < kFiles; ++i) folder.write(std::to_string(10000000 + i) + ".kdb");
  folder.set_index("a.kdb_0000000001/10000000\n" + std::string(100, 'x'));
  const std::string& path = folder.path();
  std::size_t entries = 0;
  const std::ptrdiff_t listing =
      peak_of([&] { EXPECT_EQ(FolderFiles(path).listing().size(), std::size_t{kFiles} + 1); });
  const std::ptrdiff_t peak = peak_of([&] { entries = Peer::lp(Peer::load(path)).size(); });
  EXPECT_EQ(entries, 1U);
  EXPECT_LT(peak, listing + kConstant);
}

TEST(Heap, ThatRunsOutInARenameLeavesTheEntriesFromBeforeOrFromAfter) {
  using Peer = stg_index_test_peer;
  const synchronisation off{false};
  const std::string text = "a.kdb_0000000001/00000001\nn.kdb_0000000001/00000002\n";
  bool is_over = false;
  std::ptrdiff_t nth = 0;
  for (; !is_over; ++nth) {
    SCOPED_TRACE(testing::Message() << "allocation " << nth + 1);
    const index_folder folder;
    folder.write("00000001.kdb", "bytes of a");
    folder.write("00000002.kdb", "bytes of n");
    folder.write("index", "00000002");
    folder.set_index(text);
    {
      STGIndex index = Peer::load(folder.path());
      // As after adoption: a save follows in any case.
      Peer::set_need_update(index);
      g_left = nth;
      try {
        Peer::_rename(index, "a.kdb", 1, "n.kdb", 1);
      } catch (const std::bad_alloc&) {
      }
      is_over = g_left != kAll;
      g_left = kAll;
    }
    if (folder.index() == text) {
      EXPECT_EQ(folder.read("00000001.kdb"), "bytes of a");
      EXPECT_EQ(folder.read("00000002.kdb"), "bytes of n");
    } else {
      const std::string stored = folder.has("99999999.kdb") ? "99999999" : "00000003";
      EXPECT_EQ(folder.index(), "n.kdb_0000000001/" + stored + "\n");
      EXPECT_EQ(folder.read(stored + ".kdb"), "bytes of a");
    }
  }
  EXPECT_GT(nth, 20);
}

TEST(Heap, ThatRunsOutInTheTextOfAFailedSaveDoesNotEndTheProgram) {
  using Peer = stg_index_test_peer;
  class Listener final : public trace::Listener {
   public:
    Listener() { trace::listener_place() = this; }
    ~Listener() { trace::listener_place() = nullptr; }
    void hear(vu_host::trace_event, std::string_view text) noexcept override {
      is_heard = is_heard || text == "out of memory";
    }
    void hear_failure(std::string_view, std::int32_t) noexcept override {}
    bool is_heard = false;
  };
  const synchronisation off{false};
  const index_folder folder;
  folder.set_index(" ");
  Listener listener;
  bool is_over = false;
  std::ptrdiff_t nth = 0;
  for (; !is_over; ++nth) {
    // They outlive the index: its destructor saves.
    std::unique_ptr<faults::Fault> fault;
    std::unique_ptr<faults::Fault> hook;
    try {
      STGIndex index = Peer::load(folder.path());
      Peer::set_need_update(index);
      fault.reset(new faults::Fault(faults::fail(Call::read, kRefused)));
      hook.reset(new faults::Fault(faults::before(Call::read, [&] { g_left = nth; })));
      throw 1;
    } catch (int) {
    }
    is_over = g_left != kAll;
    g_left = kAll;
  }
  EXPECT_TRUE(listener.is_heard);
  EXPECT_GT(nth, 5);
}

class HeapOfTheCInterface : public CInterfaceTest {};

TEST_F(HeapOfTheCInterface, ThatRunsOutInATraceDoesNotHideARefusedSave) {
  // A failed write is traced by two records. There is memory again between them and after them.
  constexpr std::ptrdiff_t kFirst = 15;
  constexpr std::ptrdiff_t kSecond = 5;
  const vu_document next = document("c.txt");
  int refused = 0;
  bool is_over = false;
  for (std::uint64_t nth = 1; !is_over; ++nth) {
    for (std::ptrdiff_t i = 0; i < kFirst * kSecond; ++i) {
      SCOPED_TRACE(testing::Message() << "write " << nth << ", allocations " << i / kSecond
                                      << " and then " << i % kSecond);
      vu_status status = VU_DONE;
      {
        const auto fault = faults::fail(Call::write, kRefused, nth);
        const auto hook = faults::before(
            Call::write,
            [&] {
              g_left_then = i % kSecond;
              g_left = i / kSecond;
            },
            nth);
        status = vu_rename(m_store, &m_document, &next, 0);
        is_over = fault.hits() == 0;
        g_left = g_left_then = kAll;
      }
      const bool is_made = status == VU_DONE || status == VU_PARTLY_DONE;
      refused += is_made ? 0 : 1;
      // Without memory a call can fail to find out that its save has succeeded.
      EXPECT_TRUE(content(next) == "old" || !is_made) << vu_status_name(status);
      if (content(m_document) != "old") put(m_document, "old", 0);
      vu_remove(m_store, &next);
    }
  }
  EXPECT_GT(refused, 20);
}

TEST(Heap, ThatRunsOutInACopyLeavesTheOldTargetOrTheWholeCopy) {
  constexpr std::int64_t kOld = 1'000'000'000;
  const scratch_folder folder;
  // Longer than the room of a path that needs no heap.
  const std::string from = folder.path(std::string(250, 'f'));
  const std::string to = folder.path(std::string(250, 't'));
  write_file(from, "new");
  set_modify_time(from, kOld);
  bool is_over = false;
  std::ptrdiff_t nth = 0;
  for (; !is_over; ++nth) {
    SCOPED_TRACE(testing::Message() << "allocation " << nth + 1);
    write_file(to, "old");
    bool has_memory = true;
    g_left = nth;
    try {
      EXPECT_TRUE(os::copy(from, to, os::IfExists::kReplace).ok());
    } catch (const std::bad_alloc&) {
      has_memory = false;
    }
    is_over = g_left != kAll;
    g_left = kAll;
    EXPECT_EQ(read_file(to), has_memory ? "new" : "old");
    if (has_memory) {
      EXPECT_EQ(get_modify_time(to), kOld);
    }
  }
  EXPECT_GE(nth, 4) << "two paths and the buffer";
}

TEST(Heap, ThatRunsOutInAnOpenLeavesNoNewFile) {
  // Longer than the room of a path that needs no heap. The table of handles grows with the number
  // of open files.
  constexpr int kFiles = 300;
  const scratch_folder folder;
  std::vector<std::unique_ptr<OpenFile>> open;
  for (int i = 0; i < kFiles; ++i) {
    const std::string path = folder.path(std::string(250, 'n') + std::to_string(i));
    os::Handle handle = os::kNoHandle;
    for (std::ptrdiff_t nth = 0; handle == os::kNoHandle; ++nth) {
      ASSERT_FALSE(file_exists(path)) << i << ", allocation " << nth;
      g_left = nth;
      try {
        static_cast<void>(os::open(path, os::Access::kCreateNew, handle));
      } catch (const std::bad_alloc&) {
        continue;
      }
      g_left = kAll;
    }
    g_left = kAll;
    open.push_back(std::make_unique<OpenFile>(path, os::Access::kReadExisting));
    EXPECT_TRUE(os::close(handle).ok());
  }
}

}  // namespace
