
#include <algorithm>
#include <memory>

#include "client/admin/system.h"
#include "client/stgctl/command.h"
#include "client/stgctl/key_lines.h"
#include "client/stgctl/lock_wait.h"
#include "client/stgctl/look.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/text.h"
#include "stg_index.h"
#include "vu_file.h"
#include "vu_storage.h"

namespace stgctl {

namespace sys = admin::sys;

namespace {

struct Options {
  std::string file = "profile.txt";
  std::vector<std::string> lines;
};

enum class Change { kSet, kUnset };

/// One key to change; the value is empty for kUnset.
struct Edit {
  std::string key;
  std::string value;
};

Edit parse_edit(const std::string& text, Change change) {
  const std::size_t separator = text.find('=');
  if (change == Change::kSet && separator == std::string::npos) {
    throw Failure(Exit::kUsage, formatted("'{}' is no KEY=VALUE", shown(text)));
  }
  Edit edit = {text.substr(0, separator), ""};
  if (separator != std::string::npos) {
    if (change == Change::kUnset) {
      throw Failure(Exit::kUsage, formatted("'{}' is no key: it holds '='", shown(text)));
    }
    edit.value = text.substr(separator + 1);
  }
  if (edit.key.empty()) throw Failure(Exit::kUsage, "an empty key cannot be changed");
  // A key file ends its lines with any of these and has no way to write them otherwise.
  if (text.find_first_of("\r\n\t") != std::string::npos) {
    throw Failure(Exit::kRefused,
                  formatted("'{}' is refused: it holds a tab or a line end", shown(text)));
  }
  return edit;
}

/// Changes the text. @return what became of each edit.
std::vector<KeyEdit> apply(const std::vector<Edit>& edits, Change change, std::string& text) {
  std::vector<KeyEdit> results;
  for (const Edit& edit : edits) {
    results.push_back(change == Change::kSet ? set_key(text, edit.key, edit.value)
                                             : unset_key(text, edit.key));
  }
  return results;
}

void tell(const std::vector<Edit>& edits, const std::vector<KeyEdit>& results, Change change,
          const Subject& file, ChangeReport& report) {
  for (std::size_t i = 0; i < edits.size(); ++i) {
    const Edit& edit = edits[i];
    Json fields;
    put_name(fields, "key", edit.key);
    if (change == Change::kSet) put_name(fields, "value", edit.value);
    const std::string line = change == Change::kSet
                                 ? formatted("{}={}", shown(edit.key), shown(edit.value))
                                 : shown(edit.key);
    if (results[i] == KeyEdit::kUnchanged) {
      report.skipped(file, change == Change::kSet ? line + " stands there already"
                                                  : "there is no line of " + line);
    } else {
      report.done(file, fields, line);
    }
  }
}

/// Reads, changes and writes under one exclusive lock, so that no line of somebody else's is lost.
std::vector<KeyEdit> rewrite(const FoundEntry& file, const std::vector<Edit>& edits,
                             Change change) {
  vu_file handle(file.folder.path, file.file);
  handle.open(vu_file::o_append);
  std::string text;
  handle.read(text, 0);
  std::string changed = text;
  const std::vector<KeyEdit> results = apply(edits, change, changed);
  if (changed != text) {
    handle.clear();
    if (handle.write(changed) != static_cast<int>(changed.size())) {
      // What was there goes back, as far as the disk takes it.
      handle.clear();
      handle.write(text);
      throw Failure(Exit::kFailed, shown(file.path()) + " could not be written; is there room?");
    }
  }
  handle.close();
  return results;
}

FoundEntry find_or_make(Context& context, const Target& target, const std::string& name,
                        Change change) {
  const auto find = [&]() -> std::optional<FoundEntry> {
    for (const FoundEntry& entry : find_versions(context, target, name)) {
      if (entry.timestamp == 0) return entry;
    }
    return std::nullopt;
  };
  if (const std::optional<FoundEntry> entry = find()) return *entry;
  if (change == Change::kUnset) {
    throw Failure(Exit::kNothingMatched, "there is no key file " + shown(name));
  }
  const admin::DocumentFolder place =
      admin::folder_for(context.tree(), target.area, target.owner, name);
  // The library would give every new name the same file where its counter cannot be used.
  if (const std::string why = admin::why_not_storable(place.path); !why.empty())
    throw Failure(Exit::kFailed, formatted("{} cannot be made: {}", shown(name), why));
  if (context.options().dry_run) return {};
  std::string folder;
  if (vu_storage::createUserOrDomainNameDirectory(target.library_owner, name, target.type, folder,
                                                  true)) {
    STGIndex::create(folder, name, 0);
  }
  if (const std::optional<FoundEntry> entry = find()) return *entry;
  throw Failure(Exit::kFailed,
                "the key file " + shown(name) + " could not be made; --trace m tells why");
}

Exit run_edit(Context& context, const Options& options, Change change, const char* schema) {
  check_name("the key file", options.file);
  std::vector<Edit> edits;
  for (const std::string& line : options.lines) edits.push_back(parse_edit(line, change));
  const Target target = target_of(context, admin::Area::kUser);
  const std::string folder =
      admin::folder_for(context.tree(), target.area, target.owner, options.file).path;
  check_no_link(context, folder);
  check_not_shadowed(context, target, options.file, 0);
  const Subject subject = {std::string(admin::name_of(target.area)), target.owner, options.file, 0};
  ChangeReport report(context, schema, change == Change::kSet ? "set" : "unset");
  if (context.options().dry_run) {
    const FoundEntry file = find_or_make(context, target, options.file, change);
    std::string text;
    if (!file.file.empty() && !sys::read_file(file.path(), context.locking(), text).ok()) {
      throw Failure(Exit::kFailed, shown(file.path()) + " cannot be read");
    }
    tell(edits, apply(edits, change, text), change, subject, report);
    return report.finish();
  }
  if (change == Change::kUnset) find_or_make(context, target, options.file, change);
  context.confirm(formatted("Change {} {} of {}?", edits.size(),
                            edits.size() == 1 ? "line" : "lines", shown(subject)));
  context.open_library();
  wait_until_free(context, folder);
  const FoundEntry file = find_or_make(context, target, options.file, change);
  check_no_link(context, file.path());
  wait_until_free(context, folder, file.file);
  tell(edits, rewrite(file, edits, change), change, subject, report);
  return report.finish();
}

/// Every edit command but for where the name of the file comes from.
Run declare_edit(Arguments& app, Change change, const char* schema, bool is_profile) {
  const auto options = std::make_shared<Options>();
  if (is_profile) {
    app.add_option("--file", options->file, "The profile's name (profile.txt)").type_name("NAME");
  } else {
    app.add_option("file", options->file, "The key file's logical name")
        .type_name("NAME")
        .required();
  }
  app.add_option("line", options->lines,
                 change == Change::kSet ? "Keys with their values" : "Keys, whose lines all go")
      .type_name(change == Change::kSet ? "KEY=VALUE" : "KEY")
      .required();
  return [=](Context& context) {
    Options edit = *options;
    take_key_file(context, edit.file);
    const bool is_elsewhere = document_area(context, admin::Area::kUser) != admin::Area::kUser;
    if (is_profile && is_elsewhere) throw Failure(Exit::kUsage, "profiles lie in the area user");
    return run_edit(context, edit, change, schema);
  };
}

}  // namespace

void add_key_commands(Commands& commands) {
  const char* const details =
      "The area is user unless --area says another one. Other lines of the file stay as they\n"
      "are; of several lines of one key the first gets the value and the others go.";
  commands.push_back(
      {"keys set", Group::kChange, Effect::kChanges,
       "Set lines of a key file, which is made when missing",
       [](Arguments& app) { return declare_edit(app, Change::kSet, "stgctl.keys.set/1", false); },
       details});
  commands.push_back({"keys unset", Group::kChange, Effect::kChanges, "Remove lines of a key file",
                      [](Arguments& app) {
                        return declare_edit(app, Change::kUnset, "stgctl.keys.unset/1", false);
                      },
                      details});
  commands.push_back(
      {"profile set", Group::kChange, Effect::kChanges, "Set lines of an owner's profile",
       [](Arguments& app) { return declare_edit(app, Change::kSet, "stgctl.profile.set/1", true); },
       "The master profile lies outside of every tree and is none of this command's business."});
}

}  // namespace stgctl
