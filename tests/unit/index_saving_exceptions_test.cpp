#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_saving_fixture.h"

// An index that cannot be written back: what is traced, and what leaves the destructor.

namespace {

using os::faults::Call;
using Peer = stg_index_test_peer;
using vu_host::trace_event;

// ---- an index that cannot be opened ------------------------------------------------------------

TEST_F(IndexSaving, WarnsWhenTheIndexCannotBeOpened) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    // Opened before: the index, the counter, the new file.
    const auto fault = os::faults::fail(Call::open, kRefused, 4);
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "b.kdb", 1);
    sink.clear();
  }
  EXPECT_EQ(
      index_traces(sink),
      begin_texts() + Texts{"Warning: STGIndex::~STGIndex(): Unable to create/update index.dat - "
                            "please verify that you have write access and disk is not full.\n"
                            " Reason: throw exception on open"});
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
  // The change of the index is lost, that of the folder is not.
  EXPECT_TRUE(folder.has("00000001.kdb"));
  EXPECT_TRUE(folder.has("index"));
}

#if !defined(_WIN32)
// On Windows it depends on the user (and the emulator) whether the attribute keeps a writer out.
TEST_F(IndexSaving, WarnsWhenTheIndexIsReadOnly) {
  folder.set_index("a.kdb_0000000001/gone\n");
  make_read_only(folder.path("index.dat"));
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "b.kdb", 1);
  }
  EXPECT_EQ(sink.count(trace_event::warning,
                       "STGIndex::~STGIndex(): Unable to create/update index.dat - please verify "
                       "that you have write access and disk is not full.\n Reason: throw exception "
                       "on open"),
            1U);
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/gone\n");
  EXPECT_TRUE(folder.has("00000001.kdb"));
}
#endif

TEST_F(IndexSaving, WarnsWhenTheFolderIsMissing) {
  const std::string missing = folder.path("missing");
  recording_sink sink;
  {
    STGIndex index = Peer::load(missing);
    Peer::set_need_update(index);
    sink.clear();
  }
  EXPECT_EQ(index_traces(sink),
            (Texts{"M:  STGIndex: (begin) updating index.dat ...", "M:   folder : " + missing,
                   "Warning: STGIndex::~STGIndex(): Unable to create/update index.dat - "
                   "please verify that you have write access and disk is not full.\n"
                   " Reason: throw exception on open"}));
  EXPECT_FALSE(folder.has("missing"));
}

TEST_F(IndexSaving, TracesTheTextOfTheExceptionThatTheOpeningRaised) {
  recording_sink sink;
  {
    const auto fault = os::faults::throw_from(Call::open, vu_file_except("the reason", 3));
    EXPECT_NO_THROW(rewrite());
  }
  EXPECT_EQ(sink.count(trace_event::warning,
                       "STGIndex::~STGIndex(): Unable to create/update index.dat - please verify "
                       "that you have write access and disk is not full.\n Reason: the reason"),
            1U);
  EXPECT_FALSE(folder.has_index());
}

// ---- exceptions that leave the destructor ------------------------------------------------------

TEST_F(IndexSaving, LetsOtherExceptionsOfTheOpeningOut) {
  folder.set_index(" ");
  recording_sink sink;
  {
    // The first opening loads.
    const auto fault = os::faults::throw_from(Call::open, std::bad_alloc(), 2);
    EXPECT_THROW(rewrite(), std::bad_alloc);
  }
  EXPECT_EQ(index_traces(sink), begin_texts());
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexSaving, LetsAFailedReadOut) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/gone\n");
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::read, kRefused, 3);
    try {
      rewrite();
      ADD_FAILURE() << "nothing was raised";
    } catch (const vu_file_except& e) {
      EXPECT_EQ(e.what(), "throw exception on read");
    }
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_EQ(index_traces(sink), begin_texts() + not_read_texts());
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/gone\n");
}

TEST_F(IndexSaving, LetsExceptionsOfMergingOut) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\n");
  {
    const auto hook = os::faults::before(
        Call::open, [&] { folder.set_index("a_0000000001/00000001\nb_0000000001/00000001\n"); }, 2);
    const auto fault = os::faults::throw_from(Call::probe_search, std::runtime_error("merge"), 2);
    EXPECT_THROW(rewrite(), std::runtime_error);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/00000001\n");
}

TEST_F(IndexSaving, LetsExceptionsOfWritingOut) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/gone\n");
  {
    const auto fault = os::faults::throw_from(Call::write, std::runtime_error("write"));
    EXPECT_THROW(rewrite(), std::runtime_error);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/gone\n");
}

TEST_F(IndexSaving, LetsAVuFileExceptOfWritingOutToo) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/gone\n");
  recording_sink sink;
  {
    const auto fault = os::faults::throw_from(Call::write, vu_file_except("not guarded", 0));
    EXPECT_THROW(rewrite(), vu_file_except);
  }
  EXPECT_EQ(sink.count(trace_event::warning), 0U);
}

// ---- exceptions while another one unwinds ------------------------------------------------------

struct Unwinding {};

TEST_F(IndexSaving, SwallowsAFailedReadWhileAnotherExceptionUnwinds) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\n");
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::read, kRefused, 3);
    EXPECT_THROW(
        {
          STGIndex index = Peer::load(folder.path());
          Peer::set_need_update(index);
          throw Unwinding();
        },
        Unwinding);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_EQ(index_traces(sink),
            begin_texts() + not_read_texts() + Texts{"Error: throw exception on read"});
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, TracesTheTextOfWhateverItSwallows) {
  const auto swallowed = [this](const std::exception_ptr& exception) {
    folder.set_index("b_0000000001/gone\n");
    recording_sink sink;
    const auto fault = os::faults::fail_with(Call::write, exception);
    EXPECT_THROW(
        {
          STGIndex index = Peer::load(folder.path());
          Peer::set_need_update(index);
          throw Unwinding();
        },
        Unwinding);
    EXPECT_EQ(fault.hits(), 1U);
    Texts errors;
    for (const std::string& text : index_traces(sink)) {
      if (text.starts_with("Error: ")) errors.push_back(text);
    }
    return errors;
  };
  EXPECT_EQ(swallowed(std::make_exception_ptr(std::runtime_error("of the library"))),
            (Texts{"Error: of the library"}));
  EXPECT_EQ(swallowed(std::make_exception_ptr(vu_file_except("of the file", 1))),
            (Texts{"Error: of the file"}));
  EXPECT_EQ(swallowed(std::make_exception_ptr(42)), (Texts{"Error: unknown exception"}));
}

TEST_F(IndexSaving, StillWritesWhileAnotherExceptionUnwinds) {
  EXPECT_THROW(
      {
        STGIndex index = Peer::load(folder.path());
        Peer::_create(index, "a.kdb", 1);
        throw Unwinding();
      },
      Unwinding);
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
}

TEST_F(IndexSaving, WarnsOnlyWhenTheIndexCannotBeOpenedWhileAnotherExceptionUnwinds) {
  recording_sink sink;
  EXPECT_THROW(
      {
        STGIndex index = Peer::load(folder.path("missing"));
        Peer::set_need_update(index);
        throw Unwinding();
      },
      Unwinding);
  EXPECT_EQ(index_traces(sink).back(),
            "Warning: STGIndex::~STGIndex(): Unable to create/update index.dat - "
            "please verify that you have write access and disk is not full.\n"
            " Reason: throw exception on open");
}

/// Runs something while an exception unwinds through it.
class AtUnwinding {
 public:
  explicit AtUnwinding(std::function<void()> action) : m_action(std::move(action)) {}
  ~AtUnwinding() { m_action(); }
  AtUnwinding(const AtUnwinding&) = delete;
  AtUnwinding& operator=(const AtUnwinding&) = delete;

 private:
  std::function<void()> m_action;
};

TEST_F(IndexSaving, LetsExceptionsOutWhenTheUnwindingBeganBeforeTheInstance) {
  folder.set_index(" ");
  recording_sink sink;
  bool raised = false;
  const auto action = [&] {
    const auto fault = os::faults::fail(Call::read, kRefused, 3);
    try {
      rewrite();
    } catch (const vu_file_except&) {
      raised = true;
    }
  };
  EXPECT_THROW(
      {
        const AtUnwinding at_unwinding(action);
        throw Unwinding();
      },
      Unwinding);
  EXPECT_TRUE(raised);
  EXPECT_EQ(index_traces(sink), begin_texts() + not_read_texts());
}

}  // namespace
