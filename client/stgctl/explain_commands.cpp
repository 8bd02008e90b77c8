// explain read, write and part.

#include "client/stgctl/look.h"

namespace stgctl {

namespace {

using admin::Answer;
using admin::ExplainStep;
using admin::Explanation;

enum class What { kRead, kWrite, kPart };

/// What all three ask for.
struct Version : Arguments {
  TextOption entry{*this, "entry", "ENTRY", "The logical name", kRequired};
  TextOption timestamp{*this, "--timestamp", kStamp, "The requested timestamp (0)"};
};

struct ReadOptions : Arguments {
  Version version{*this};
  NoLock no_lock{*this};
};

struct StampOption : TextOption {
  explicit StampOption(Arguments app)
      : TextOption(app, "--stamp", "STAMP",
                   "The stamp: the text after \"_\" in the name of the folder of sub-parts") {}
};

struct WriteOptions : Arguments {
  Version version{*this};
  Flag keep{*this, "--keep", "Explain a write that may not replace a version"};
  StampOption stamp{*this};
  NoLock no_lock{*this};
};

struct PartOptions : Arguments {
  Version version{*this};
  StampOption stamp{*this};
  TextOption rendition{*this, "--rendition", "TEXT", "html@NAME, pdf@NAME or another one",
                       kRequired};
  TextOption part{*this, "--part", "TEXT", "The file name of the sub-part", kRequired};
  NoLock no_lock{*this};
};

std::string_view name_of(What what) { return admin::word_of(what, {"read", "write", "part"}); }
std::string_view name_of(Answer answer) { return admin::word_of(answer, {"yes", "no", "note"}); }

std::string outcome(What what, const Explanation& told) {
  if (const ExplainStep* no = told.first_no())
    return formatted("not {}: {}", what == What::kWrite ? "written" : "served", shown(no->text));
  const char* const verb = what == What::kWrite ? "would be written" : "would be served";
  return formatted("{} {}", shown(told.path), verb);
}

/// The most alternative commands to print.
constexpr std::size_t kMostInstead = 3;

/// The commands that get a served version of the name: in other letter case, of another owner or at
/// another timestamp.
std::vector<std::string> served_instead(Context& context, const admin::Request& request,
                                        const sys::Locking& locking) {
  std::string wanted;
  admin::fold_case(request.entry, wanted);
  std::vector<std::string> commands;
  admin::EntryQuery query;
  query.locking = locking;
  query.stop = &Context::interrupt_flag();
  query.state = admin::EntryState::kIndexed;
  static_cast<void>(admin::for_each_entry(
      context.tree(), query,
      [&](const admin::EntryView& entry) {
        std::string folded;
        admin::fold_case(entry.logical, folded);
        if (folded != wanted || !admin::expects_index(entry.folder->area)) return true;
        admin::Request other = request;
        other.area = entry.folder->area;
        other.owner = entry.folder->owner;
        other.entry = std::string(entry.logical);
        other.timestamp = entry.timestamp;
        if (!admin::explain_read(context.tree(), other, locking).would_succeed) return true;
        commands.push_back(formatted("stgctl get '{}'", subject_text(entry)));
        return commands.size() < kMostInstead;
      },
      [](const std::string&, const std::string&) {}));
  return commands;
}

void show_json(Context& context, What what, const admin::Request& request, const Explanation& told,
               const std::vector<std::string>& instead) {
  Json fields = {{"request", name_of(what)},
                 {"area", admin::name_of(request.area)},
                 {"owner", request.owner},
                 {"name", request.entry},
                 {"timestamp", request.timestamp}};
  if (what == What::kPart) {
    fields["rendition"] = request.rendition;
    fields["part"] = request.part;
    fields["stamp"] = request.stamp;
    fields["code"] = told.code;
  }
  fields["succeeds"] = told.would_succeed;
  fields["path"] = told.path;
  const ExplainStep* const no = told.first_no();
  fields["first_no"] = no != nullptr ? Json(no->name) : Json();
  fields["steps"] = Json::array();
  for (const ExplainStep& step : told.steps) {
    Json& each = fields["steps"].push_back({{"step", step.name},
                                            {"answer", name_of(step.answer)},
                                            {"text", step.text},
                                            {"values", Json::object()}});
    for (const auto& [name, value] : step.values) each["values"][name] = value;
  }
  if (what == What::kRead) fields["instead"] = instead;
  context.out().json_line("stgctl.explain/1", fields);
}

void show_text(Context& context, What what, const Explanation& told) {
  std::size_t number = 0;
  for (const ExplainStep& step : told.steps) {
    const Style style = step.answer == Answer::kYes  ? Style::kGreen
                        : step.answer == Answer::kNo ? Style::kRed
                                                     : Style::kDim;
    context.out().print("{:>2}. {}  {}  {}\n", ++number,
                        context.out().styled(style, formatted("{:<4}", name_of(step.answer))),
                        context.out().styled(Style::kBold, step.name), shown(step.text));
    for (const auto& [name, value] : step.values)
      context.out().print("            {}: {}\n", name, shown(value));
  }
  if (what == What::kPart) context.out().print("decision code {}\n", told.code);
  context.out().print("{}\n", context.out().styled(told.would_succeed ? Style::kGreen : Style::kRed,
                                                   outcome(what, told)));
}

admin::Request request_for(Context& context, Version& version) {
  context.take_apart(version.entry, version.timestamp);
  admin::Request request;
  request.area = document_area(context, admin::Area::kDocs);
  request.owner = owner_or_none(context);
  request.entry = version.entry;
  request.timestamp = parse_stamp(version.timestamp).value_or(0);
  return request;
}

Exit run(Context& context, What what, const admin::Request& request) {
  const sys::Locking locking = context.locking();
  const admin::Tree& tree = context.tree();
  const Explanation told = what == What::kRead    ? admin::explain_read(tree, request, locking)
                           : what == What::kWrite ? admin::explain_write(tree, request, locking)
                                                  : admin::explain_part(tree, request, locking);
  const std::vector<std::string> instead =
      what == What::kRead && !told.would_succeed && !told.lock_missed
          ? served_instead(context, request, locking)
          : std::vector<std::string>();
  if (context.out().json()) {
    show_json(context, what, request, told, instead);
  } else {
    show_text(context, what, told);
    for (const std::string& command : instead) context.out().print("use instead: {}\n", command);
  }
  if (Context::interrupted()) return Exit::kInterrupted;
  if (told.lock_missed) return Exit::kLockTimeout;
  return told.would_succeed ? Exit::kDone : Exit::kNothingMatched;
}

Exit run_read(Context& context, ReadOptions& options) {
  return run(context, What::kRead, request_for(context, options.version));
}

Exit run_write(Context& context, WriteOptions& options) {
  admin::Request request = request_for(context, options.version);
  request.replace = !options.keep;
  request.stamp = options.stamp;
  return run(context, What::kWrite, request);
}

Exit run_part(Context& context, PartOptions& options) {
  admin::Request request = request_for(context, options.version);
  if (request.area != admin::Area::kDocs)
    misused("only corporate documents have sub-parts; use --area docs");
  request.stamp = options.stamp;
  request.rendition = options.rendition;
  request.part = options.part;
  return run(context, What::kPart, request);
}

}  // namespace

Commands explain_commands() {
  return {
      {"explain read", Group::kExplain, Effect::kLooks, "Explain why a document is served or not",
       run_read,
       "Shows each step of the library's decision with its values, up to the first refusal.\n"
       "The owner is --owner, or the empty name; the area is --area, or docs. If the\n"
       "document is not served, it is looked up at other owners and timestamps, and the last\n"
       "lines show the commands that get it. 'explain NAME' means 'explain read NAME'. The exit\n"
       "code is 3 if the library would not do it."},
      {"explain write", Group::kExplain, Effect::kLooks,
       "Explain what a write of a document would do", run_write,
       "Shows each step of the library's decision with its values, up to the first refusal.\n"
       "The owner is --owner, or the empty name; the area is --area, or docs. Nothing is\n"
       "written. The exit code is 3 if the library would not do it."},
      {"explain part", Group::kExplain, Effect::kLooks,
       "Explain why a sub-part is served, refreshed or regenerated", run_part,
       "Shows each step of the library's decision with its values, up to the first refusal.\n"
       "The owner is --owner. Only corporate documents have sub-parts. The exit code is 3 if\n"
       "the library would not serve the sub-part."}};
}

}  // namespace stgctl
