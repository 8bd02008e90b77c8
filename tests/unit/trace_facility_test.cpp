// The record macros: what the host's sink receives, and what is skipped if the sink does not want
// it.

#include "platform/host/trace.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/recording_sink.h"
#include "vu_file.h"

using vu_host::trace_event;
using vu_host::trace_level;

namespace observed {

/// The steps in order.
std::vector<std::string> g_steps;

/// A piece of a text that records its conversion.
struct Piece {
  std::string text;
};
void append(std::string& text, const Piece& piece) {
  g_steps.push_back("built " + piece.text);
  text += piece.text;
}

/// A piece that fails to convert.
struct Broken {};
void append(std::string&, const Broken&) {
  g_steps.push_back("broke");
  throw std::length_error("no room for this piece");
}

/// An argument of a macro that records its evaluation.
Piece evaluated(const std::string& text) {
  g_steps.push_back("evaluated " + text);
  return {text};
}

/// A sink that records its calls, in order with the steps of the pieces.
class OrderedSink final : public vu_host::trace_sink {
 public:
  explicit OrderedSink(bool wanted) : m_wanted(wanted) {
    vu_host::services services;
    services.trace = this;
    vu_host::install(services);
  }
  ~OrderedSink() override { vu_host::install({}); }

  bool wants(trace_level) const noexcept override {
    g_steps.push_back("asked for a level");
    return m_wanted;
  }
  bool wants(trace_event) const noexcept override {
    g_steps.push_back("asked for an event");
    return m_wanted;
  }
  void scope_begin(const vu_host::trace_site&, trace_level,
                   std::string_view label) noexcept override {
    g_steps.push_back(std::string("begun ").append(label));
  }
  void scope_end(const vu_host::trace_site&, trace_level) noexcept override {
    g_steps.push_back("ended");
  }
  void scope_message(const vu_host::trace_site&, std::string_view text) noexcept override {
    g_steps.push_back(std::string("message ").append(text));
  }
  void record(const vu_host::trace_site&, trace_level, std::string_view text) noexcept override {
    g_steps.push_back(std::string("record ").append(text));
  }
  void event(const vu_host::trace_site&, trace_event, std::string_view text) noexcept override {
    g_steps.push_back(std::string("event ").append(text));
  }

 private:
  bool m_wanted;
};

}  // namespace observed

namespace {

using observed::evaluated;
using observed::g_steps;
using observed::OrderedSink;
using observed::Piece;
using Steps = std::vector<std::string>;
using Texts = std::vector<std::string>;

class TraceFacility : public testing::Test {
 protected:
  void SetUp() override { g_steps.clear(); }
};

/// An operation that uses every macro.
void talkative_operation() {
  const Piece label{"label"};
  VU_TRACE_SCOPE("source", trace_level::m, label);
  VU_TRACE_XS(evaluated("xs"));
  VU_TRACE_S(evaluated("s"));
  VU_TRACE_M(evaluated("m"));
  VU_TRACE_XL(evaluated("xl"));
  VU_SUCCESS(evaluated("success"));
  VU_WARNING(evaluated("warning"));
  VU_ERROR(evaluated("error"));
  VU_SCOPE_MESSAGE(evaluated("message"));
}

int inner_operation(int depth) {
  VU_TRACE_SCOPE("source", trace_level::s, "depth ", depth);
  if (depth == 0) return 0;
  return 1 + inner_operation(depth - 1);
}

void failing_operation() {
  VU_TRACE_SCOPE("source", trace_level::s, "failing");
  throw std::runtime_error("out");
}

std::vector<traced> of_kind(const recording_sink& sink, traced::kind_t kind) {
  std::vector<traced> result;
  for (const traced& each : sink.all()) {
    if (each.kind == kind) result.push_back(each);
  }
  return result;
}

TEST(TraceText, IsDeliveredWholeWhateverBytesItHolds) {
  recording_sink sink;
  const std::string text("a\0b", 3);
  vu_file::is_dir(text);
  EXPECT_EQ(sink.events(trace_event::warning),
            std::vector<std::string>{"vu_file::is_dir : '" + text + "' not exists"});
}

}  // namespace

TEST_F(TraceFacility, EvaluatesAndBuildsNothingWithoutASink) {
  talkative_operation();
  EXPECT_EQ(g_steps, Steps{});
}

TEST_F(TraceFacility, BuildsNoTextThatTheSinkDoesNotWant) {
  const OrderedSink sink(false);
  talkative_operation();
  // A message belongs to its scope, so it has no level to check.
  EXPECT_EQ(g_steps, (Steps{"asked for a level", "asked for a level", "asked for a level",
                            "asked for a level", "asked for a level", "asked for an event",
                            "asked for an event", "asked for an event", "evaluated message",
                            "built message", "message message"}));
}

TEST_F(TraceFacility, QueriesTheSinkBeforeATextIsBuilt) {
  const OrderedSink sink(true);
  const Piece label{"label"};
  VU_TRACE_SCOPE("source", trace_level::m, label);
  VU_TRACE_S(evaluated("one"), evaluated("two"));
  VU_ERROR(evaluated("three"));
  ASSERT_EQ(g_steps.size(), 13U);
  EXPECT_EQ((Steps{g_steps.begin(), g_steps.begin() + 4}),
            (Steps{"asked for a level", "built label", "begun label", "asked for a level"}));
  // Arguments are evaluated in any order, all of them before the first conversion.
  EXPECT_EQ((Steps{g_steps.begin() + 6, g_steps.end()}),
            (Steps{"built one", "built two", "record onetwo", "asked for an event",
                   "evaluated three", "built three", "event three"}));
}

TEST_F(TraceFacility, IsSilentAgainAfterTheSinkHasGone) {
  { const OrderedSink sink(true); }
  g_steps.clear();
  talkative_operation();
  EXPECT_EQ(g_steps, Steps{});
}

TEST_F(TraceFacility, DeliversEachLevelAndEventAsItself) {
  const recording_sink sink;
  talkative_operation();
  EXPECT_EQ(sink.records(trace_level::xs), Texts{"xs"});
  EXPECT_EQ(sink.records(trace_level::s), Texts{"s"});
  EXPECT_EQ(sink.records(trace_level::m), Texts{"m"});
  EXPECT_EQ(sink.records(trace_level::l), Texts{});
  EXPECT_EQ(sink.records(trace_level::xl), Texts{"xl"});
  EXPECT_EQ(sink.events(trace_event::success), Texts{"success"});
  EXPECT_EQ(sink.events(trace_event::warning), Texts{"warning"});
  EXPECT_EQ(sink.events(trace_event::error), Texts{"error"});
  EXPECT_EQ(sink.scopes(trace_level::m), Texts{"label"});
  EXPECT_EQ(sink.messages(), Texts{"message"});
  EXPECT_EQ(sink.count(), 10U) << "and nothing else";
}

TEST_F(TraceFacility, DeliversOnlyWhatIsWanted) {
  recording_sink sink;
  sink.want_everything(false);
  sink.want(trace_level::s, true);
  sink.want(trace_event::error, true);
  talkative_operation();
  EXPECT_EQ(sink.records(trace_level::s), Texts{"s"});
  EXPECT_EQ(sink.events(trace_event::error), Texts{"error"});
  EXPECT_EQ(sink.messages(), Texts{"message"});
  EXPECT_EQ(sink.count(), 3U) << "and nothing else";
}

/// Receives the warnings and errors of this thread during its lifetime.
class HeardTexts final : public trace::Listener {
 public:
  HeardTexts() { trace::listener_place() = this; }
  ~HeardTexts() { trace::listener_place() = nullptr; }
  HeardTexts(const HeardTexts&) = delete;
  HeardTexts& operator=(const HeardTexts&) = delete;

  void hear(trace_event, std::string_view text) noexcept override { m_texts.emplace_back(text); }
  void hear_failure(std::string_view, std::int32_t) noexcept override {}
  const Texts& texts() const { return m_texts; }

 private:
  Texts m_texts;
};

TEST_F(TraceFacility, GivesTheSinkNothingThatOnlyAListenerWants) {
  recording_sink sink;
  sink.want_everything(false);
  sink.want(trace_event::error, true);
  const HeardTexts heard;
  talkative_operation();
  EXPECT_EQ(heard.texts(), (Texts{"warning", "error"}));
  EXPECT_EQ(sink.count(trace_event::warning), 0U);
  EXPECT_EQ(sink.events(trace_event::error), Texts{"error"});
}

TEST_F(TraceFacility, PutsThePiecesTogetherInTheirOrder) {
  const recording_sink sink;
  VU_TRACE_SCOPE("source", trace_level::m);
  const std::string text = "text";
  VU_TRACE_S("literal ", text, std::string_view(" view "), vu_utf8string("\xC3\xA9"), ' ' + text);
  VU_TRACE_M(-1, "/", std::numeric_limits<std::int64_t>::min(), "/",
             std::numeric_limits<std::uint64_t>::max(), "/", std::uint32_t{4294967295U}, "/",
             std::int16_t{-7});
  VU_WARNING("");
  EXPECT_EQ(sink.records(trace_level::s), Texts{"literal text view \xC3\xA9 text"});
  EXPECT_EQ(sink.records(trace_level::m),
            Texts{"-1/-9223372036854775808/18446744073709551615/4294967295/-7"});
  EXPECT_EQ(sink.events(trace_event::warning), Texts{""});
}

TEST_F(TraceFacility, NamesSourceLineAndOperation) {
  const recording_sink sink;
  const int first_line = __LINE__ + 1;
  VU_TRACE_SCOPE("a source", trace_level::m);
  VU_TRACE_S("record");
  VU_ERROR("event");
  VU_SCOPE_MESSAGE("message");
  const std::vector<traced> all = sink.all();
  ASSERT_EQ(all.size(), 4U);
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i].source, "a source");
    EXPECT_EQ(all[i].line, first_line + static_cast<int>(i)) << "the statement's own line";
    EXPECT_EQ(all[i].signature, VU_SIGNATURE);
  }
  EXPECT_NE(all[0].signature.find("NamesSourceLineAndOperation"), std::string::npos);
  EXPECT_NE(all[0].signature.find("TestBody()"), std::string::npos) << "arguments are part of it";
}

TEST_F(TraceFacility, IsOneStatement) {
  const recording_sink sink;
  VU_TRACE_SCOPE("source", trace_level::m);
  for (const bool condition : {true, false})
    if (condition)
      VU_TRACE_S("then");
    else
      VU_TRACE_S("else");
  EXPECT_EQ(sink.records(trace_level::s), (Texts{"then", "else"}));
}

TEST_F(TraceFacility, EndsEachScopeThatBegan) {
  const recording_sink sink;
  EXPECT_EQ(inner_operation(2), 2);
  const std::vector<traced> all = sink.all();
  ASSERT_EQ(all.size(), 6U);
  EXPECT_EQ(sink.scopes(), (Texts{"depth 2", "depth 1", "depth 0"}));
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(all[i].kind, traced::kind_t::scope);
    EXPECT_EQ(all[3 + i].kind, traced::kind_t::scope_end);
    EXPECT_EQ(all[3 + i].level, trace_level::s);
    EXPECT_EQ(all[3 + i].source, "source");
    EXPECT_EQ(all[3 + i].signature, all[i].signature);
  }
}

TEST_F(TraceFacility, BeginsAScopeWithoutALabelWithAnEmptyOne) {
  const recording_sink sink;
  { VU_TRACE_SCOPE("source", trace_level::xl); }
  EXPECT_EQ(sink.scopes(trace_level::xl), Texts{""});
  EXPECT_EQ(sink.count(traced::kind_t::scope_end), 1U);
}

TEST_F(TraceFacility, EndsAScopeThatAnExceptionLeaves) {
  const recording_sink sink;
  EXPECT_THROW(failing_operation(), std::runtime_error);
  EXPECT_EQ(sink.count(traced::kind_t::scope), 1U);
  EXPECT_EQ(sink.count(traced::kind_t::scope_end), 1U);
}

TEST_F(TraceFacility, EndsNoScopeThatWasNotWanted) {
  recording_sink sink;
  sink.want(trace_level::s, false);
  inner_operation(1);
  EXPECT_EQ(sink.count(), 0U);
}

TEST_F(TraceFacility, EndsABegunScopeAlsoWhenItsLevelIsNoLongerWanted) {
  recording_sink sink;
  {
    VU_TRACE_SCOPE("source", trace_level::s, "label");
    sink.want_everything(false);
  }
  EXPECT_EQ(sink.count(traced::kind_t::scope_end), 1U);
}

TEST_F(TraceFacility, DoesNotEndAScopeThatBeganBeforeItsLevelWasWanted) {
  recording_sink sink;
  sink.want_everything(false);
  {
    VU_TRACE_SCOPE("source", trace_level::s, "label");
    sink.want_everything();
    VU_TRACE_S("within");
  }
  EXPECT_EQ(sink.count(traced::kind_t::scope_end), 0U);
  EXPECT_EQ(sink.records(trace_level::s), Texts{"within"});
}

TEST_F(TraceFacility, LetsTheSinkGoWhileAScopeIsOpen) {
  {
    const recording_sink* const sink = new recording_sink;
    VU_TRACE_SCOPE("source", trace_level::s, "label");
    EXPECT_EQ(sink->count(), 1U);
    delete sink;
    VU_TRACE_S(evaluated("nobody listens"));
  }
  EXPECT_EQ(g_steps, Steps{});
}

TEST_F(TraceFacility, DropsARecordThatCannotBeBuiltAndGoesOn) {
  const recording_sink sink;
  VU_TRACE_SCOPE("source", trace_level::m);
  EXPECT_NO_THROW(VU_TRACE_S("a part", observed::Broken(), evaluated("the rest")));
  EXPECT_NO_THROW(VU_ERROR(observed::Broken()));
  EXPECT_NO_THROW(VU_SCOPE_MESSAGE(observed::Broken()));
  VU_WARNING("the next one");
  EXPECT_EQ(g_steps, (Steps{"evaluated the rest", "broke", "broke", "broke"}));
  EXPECT_EQ(sink.records(trace_level::s), Texts{});
  EXPECT_EQ(sink.events(trace_event::error), Texts{});
  EXPECT_EQ(sink.messages(), Texts{});
  EXPECT_EQ(sink.events(trace_event::warning), Texts{"the next one"});
}

TEST_F(TraceFacility, TellsTheListenerOfAnEventThatCannotBeBuiltByItsBeginning) {
  class Listener final : public trace::Listener {
   public:
    Listener() { trace::listener_place() = this; }
    ~Listener() { trace::listener_place() = nullptr; }
    void hear(trace_event event, std::string_view text) noexcept override {
      heard.push_back((event == trace_event::error ? "error: " : "warning: ") + std::string(text));
    }
    void hear_failure(std::string_view, std::int32_t) noexcept override {}
    Texts heard;
  };
  const recording_sink sink;
  const Listener listener;
  VU_TRACE_SCOPE("source", trace_level::m);
  VU_ERROR("a beginning ", 7, observed::Broken());
  VU_WARNING(std::string("a string"), observed::Broken());
  VU_ERROR(observed::Broken(), "the rest");
  VU_SUCCESS("done", observed::Broken());
  VU_TRACE_S("a record", observed::Broken());
  EXPECT_EQ(listener.heard, (Texts{"error: a beginning ", "warning: a string", "error: "}));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U) << "a sink may need memory, too";
}

TEST_F(TraceFacility, GoesOnWithoutAScopeWhoseLabelCannotBeBuilt) {
  const recording_sink sink;
  {
    const observed::Broken label;
    VU_TRACE_SCOPE("source", trace_level::m, "label ", label);
    VU_TRACE_S("within");
  }
  EXPECT_EQ(g_steps, Steps{"broke"});
  EXPECT_EQ(sink.scopes(), Texts{});
  EXPECT_EQ(sink.count(traced::kind_t::scope_end), 0U) << "what did not begin does not end";
  EXPECT_EQ(sink.records(trace_level::s), Texts{"within"});
}

TEST_F(TraceFacility, DeliversFromSeveralThreadsAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
  const recording_sink sink;
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([number] {
      for (int round = 0; round < kRounds; ++round) {
        VU_TRACE_SCOPE("source", trace_level::s, number);
        VU_TRACE_M(number, " ", round);
      }
    });
  }
  for (std::thread& each : threads) each.join();

  EXPECT_EQ(sink.count(traced::kind_t::scope), std::size_t{kThreads * kRounds});
  EXPECT_EQ(sink.count(traced::kind_t::scope_end), std::size_t{kThreads * kRounds});
  for (int number = 0; number < kThreads; ++number) {
    for (int round = 0; round < kRounds; ++round) {
      const std::string text = std::to_string(number) + " " + std::to_string(round);
      ASSERT_EQ(sink.count(trace_level::m, text), 1U) << text;
    }
  }
  // On each thread the order is: scope begin, record, scope end.
  for (const traced& begin : of_kind(sink, traced::kind_t::scope)) {
    ASSERT_NE(begin.thread, std::this_thread::get_id());
  }
}
