#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/c_interface_fixture.h"
#include "vu/storage.h"
#include "vu_file.h"

// Writes in place, and other changes of an existing file, while another program uses the version.

namespace {

using Step = std::function<vu_status()>;

bool is_made(vu_status status) { return status == VU_DONE || status == VU_PARTLY_DONE; }

/// Runs a step as another program would: on a thread without the state of this one.
vu_status elsewhere(const Step& step) {
  vu_status status = VU_FAILED;
  std::thread([&] { status = step(); }).join();
  return status;
}

class CInterfaceInPlace : public CInterfaceTest {
 protected:
  CInterfaceInPlace() { write_file(m_source, "new"); }
  ~CInterfaceInPlace() override { vu_close_store(m_hurried); }

  vu_status copy_in_place(const vu_document& what) {
    return vu_copy_in(m_store, &what, m_source.c_str(), VU_REPLACE | VU_IN_PLACE, nullptr);
  }

  const std::string m_source = m_scratch.path("source");
  const vu_document m_next = document("c.txt");
  /// Does not wait for the locks of the call that it disturbs.
  vu_store* const m_hurried = hurried_store(VU_NO_WAIT);
};

}  // namespace

// ---- copies -------------------------------------------------------------------------------------

TEST_F(CInterfaceInPlace, ACopyMakesNoFileForAVersionThatIsGone) {
  // Another program renames or removes the version at some moment of the copy.
  const auto rename = [&] { return vu_rename(m_hurried, &m_document, &m_next, 0); };
  const auto remove = [&] { return vu_remove(m_hurried, &m_document); };
  int times_disturbed = 0;
  for (const Step& other : {Step(rename), Step(remove)}) {
    for (const Call call : {Call::open, Call::lock, Call::copy, Call::write, Call::unlock}) {
      for (std::uint64_t nth = 1;; ++nth) {
        SCOPED_TRACE(faults::name(call) + std::to_string(nth));
        vu_remove(m_store, &m_next);
        ASSERT_EQ(put(m_document, "old", VU_REPLACE), VU_DONE);
        vu_status disturbed = VU_FAILED;
        bool is_over = false;
        {
          const auto hook = faults::before(
              call, [&] { disturbed = elsewhere(other); }, nth);
          EXPECT_EQ(copy_in_place(m_document), VU_DONE) << last_error().text;
          is_over = hook.hits() == 0;
        }
        times_disturbed += is_made(disturbed) ? 1 : 0;
        // A file without an entry would be adopted under its own name.
        const std::vector<std::string> names = files();
        EXPECT_EQ(count_of_files(), names.size() + 2);
        for (const std::string& name : names) {
          const std::string bytes = content(document(name.c_str()));
          EXPECT_TRUE(bytes == "old" || bytes == "new") << name << ": " << bytes;
        }
        if (is_over) break;
        ASSERT_LT(nth, 100U);
      }
    }
  }
  EXPECT_GT(times_disturbed, 10);
}

TEST_F(CInterfaceInPlace, ACopyHasTheTimeOfItsSourceBeforeAReaderGetsIt) {
  set_modify_time(m_source, 1'000'000'000);
  std::string file;
  ASSERT_TRUE(STGIndex::exists(m_folder, "a.txt", 0, file));
  const std::string path = m_folder + "\\" + file;
  faults::reset();
  ASSERT_EQ(copy_in_place(m_document), VU_DONE);
  // The last lock that the call gives back is that of the version.
  const std::uint64_t last = faults::calls(Call::unlock);
  std::int64_t time_at_unlock = 0;
  {
    const auto look = [&] { time_at_unlock = vu_file::modify_time(path); };
    const auto hook = faults::before(Call::unlock, look, last);
    ASSERT_EQ(copy_in_place(m_document), VU_DONE);
  }
  EXPECT_EQ(time_at_unlock, 1'000'000'000);
  EXPECT_EQ(vu_file::modify_time(path), 1'000'000'000);
  EXPECT_EQ(content(m_document), "new");
}

TEST_F(CInterfaceInPlace, ACopyThatFailsLeavesAnEmptyVersion) {
  // A part of the bytes would look like a document.
  for (const Call call : {Call::read, Call::write, Call::take_time}) {
    int times_empty = 0;
    for (std::uint64_t nth = 1;; ++nth) {
      SCOPED_TRACE(faults::name(call) + std::to_string(nth));
      ASSERT_EQ(put(m_document, "old", VU_REPLACE), VU_DONE);
      vu_status status = VU_DONE;
      bool is_over = false;
      {
        const auto fault = faults::fail(call, kRefused, nth);
        status = copy_in_place(m_document);
        is_over = fault.hits() == 0;
      }
      const std::string bytes = content(m_document);
      EXPECT_EQ(bytes == "new", status == VU_DONE) << vu_status_name(status);
      EXPECT_TRUE(bytes == "new" || bytes == "old" || bytes.empty()) << bytes;
      times_empty += bytes.empty() ? 1 : 0;
      if (is_over) break;
      ASSERT_LT(nth, 100U);
    }
    EXPECT_GT(times_empty, 0) << faults::name(call);
  }
}
