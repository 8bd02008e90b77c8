#include "client/admin/name_restore.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "client/admin/folder_view.h"
#include "client/admin/locked_file.h"
#include "client/admin/repair_text.h"
#include "client/admin/text.h"

namespace admin {

std::map<std::string_view, std::string_view> names_in(std::string_view text) {
  std::map<std::string_view, std::string_view> names;
  index_format::Lines lines(text);
  index_format::Line line;
  while (lines.next(line)) {
    if (!line.runs_on && line.key.size() >= index_format::kStampLength)
      names.emplace(line.key, line.stored);
  }
  return names;
}

void compare_names(std::string_view before, std::string_view after,
                   const std::function<void(const NameDifference&)>& sink) {
  using What = NameDifference::What;
  struct Both {
    std::optional<std::string_view> before;
    std::optional<std::string_view> after;
  };
  std::map<std::string_view, Both> all;
  for (const auto& [key, stored] : names_in(before)) all[key].before = stored;
  for (const auto& [key, stored] : names_in(after)) all[key].after = stored;
  for (const auto& [key, both] : all) {
    if (both.before == both.after) continue;
    const What what = !both.before ? What::kAdded : !both.after ? What::kRemoved : What::kMoved;
    sink({what, key, both.before.value_or(""), both.after.value_or("")});
  }
}

// ---- restored entries ---------------------------------------------------------------------------

namespace {

std::string own_key(std::string_view file) { return index_format::key_of(std::string(file), 0); }

class Planner {
 public:
  Planner(const FolderView& folder, std::string_view saved)
      : m_folder(folder), m_saved(names_in(saved)) {
    for (const auto& [key, stored] : m_saved) m_saved_files.insert(NameLine{key, stored}.file());
    for (const LintedLine& line : IndexLint(folder)) {
      // Unknown entries stay as they are. A valid entry with the same key precedes them.
      if (line.verdict == Verdict::kUnknown) m_names.emplace(line.key, line.stored);
      if (line.verdict != Verdict::kEntry || line.has_zeros) continue;
      m_names.insert_or_assign(std::string(line.key), line.stored);
      const bool is_own = line.timestamp == 0 && line.logical == line.stored;
      if (!is_own) m_owners.emplace(line.file, line.key);
    }
  }

  RestorePlan run() {
    for (const auto& [key, stored] : m_saved) judge({key, stored});
    std::vector<std::string> lines;
    for (const auto& [key, stored] : m_names) lines.push_back(key + "/" + stored);
    m_plan.text = index_text_of(lines);
    return std::move(m_plan);
  }

 private:
  void judge(const NameLine& name) {
    const std::string file = name.file();
    const auto present = m_names.find(std::string(name.key));
    if (present != m_names.end()) {
      if (present->second != name.stored) {
        add(name, file, NameFate::kKept,
            "the entry now has the physical name " + printable(present->second));
        return;
      }
      ++m_plan.unchanged;
      drop_own_entry(name, file);
      return;
    }
    const char* const why = why_not_safe(file);
    if (why != nullptr) {
      add(name, file, NameFate::kNoFile, std::string("the file name is not safe: ") + why);
    } else if (is_listed(file)) {
      restore_there(name, file);
    } else if (const std::string adopted = adopted_name(file);
               is_listed(adopted) && !m_saved_files.contains(adopted)) {
      restore_renamed(name, file, adopted);
    } else if (is_found(file)) {
      restore_there(name, file);
    } else {
      add(name, file, NameFate::kNoFile, "its file " + printable(file) + " is not there");
    }
  }

  void restore_there(const NameLine& name, const std::string& file) {
    const auto owner = m_owners.find(file);
    if (owner != m_owners.end() && !was_shared(file)) {
      add(name, file, NameFate::kTaken, "its file belongs to " + printable(owner->second));
    } else {
      restore(name, file, "");
    }
  }

  /// Restores an entry whose file was renamed by the adoption.
  void restore_renamed(const NameLine& name, const std::string& file, const std::string& adopted) {
    if (m_owners.contains(adopted) || !m_renamed.insert(adopted).second) {
      add(name, file, NameFate::kTaken, "its file belongs to another entry");
    } else {
      restore(name, file, adopted);
    }
  }

  void restore(const NameLine& name, const std::string& file, const std::string& renamed_from) {
    m_names.emplace(name.key, name.stored);
    if (!name.is_own_name()) m_owners.emplace(file, name.key);
    add(name, file, NameFate::kRestored, "");
    m_plan.names.back().renamed_from = renamed_from;
    drop_own_entry(name, file);
    if (!renamed_from.empty()) drop(renamed_from);
  }

  /// Removes the adopted entry of a file whose real entry is back.
  void drop_own_entry(const NameLine& name, const std::string& file) {
    if (name.is_own_name()) return;
    drop(file);
    const std::string adopted = adopted_name(file);
    // On a system that ignores letter case, the entry can have the lower-case form.
    if (sys::kSeparator == '\\' && adopted != file) drop(adopted);
  }

  void drop(const std::string& file) {
    const std::string key = own_key(file);
    const auto entry = m_names.find(key);
    if (entry == m_names.end() || entry->second != file || m_saved.contains(key)) return;
    m_names.erase(entry);
    m_plan.dropped.push_back(file);
  }

  /// Whether the entry that has the file now also had it in the saved index.
  bool was_shared(const std::string& file) const {
    const auto owner = m_saved.find(m_owners.find(file)->second);
    return owner != m_saved.end() && NameLine{owner->first, owner->second}.file() == file;
  }

  bool is_listed(const std::string& file) const {
    return m_folder.kind_of(file) == sys::Kind::kFile;
  }

  /// Whether the system finds the file in another letter case.
  bool is_found(const std::string& file) const {
    return sys::kSeparator == '\\' &&
           sys::describe(m_folder.path_of(file)).kind == sys::Kind::kFile;
  }

  void add(const NameLine& name, const std::string& file, NameFate fate, std::string reason) {
    m_plan.names.push_back({fate, std::string(name.logical()), name.timestamp(),
                            std::string(name.stored), file, "", std::move(reason)});
  }

  const FolderView& m_folder;
  std::map<std::string_view, std::string_view> m_saved;  ///< key, physical name
  std::set<std::string> m_saved_files;
  std::map<std::string, std::string> m_names;  ///< the entries before and after: key, physical name
  std::map<std::string, std::string> m_owners;  ///< file, key of its entry; without adopted entries
  std::set<std::string> m_renamed;
  RestorePlan m_plan;
};

}  // namespace

std::uint64_t RestorePlan::count(NameFate fate) const {
  return static_cast<std::uint64_t>(std::ranges::count(names, fate, &RestoredName::fate));
}

RestorePlan plan_restore(const FolderView& folder, std::string_view saved) {
  return Planner(folder, saved).run();
}

os::Status restore_names(const DocumentFolder& folder, std::string_view saved,
                         const sys::Locking& locking, RestorePlan& plan) {
  LockedFile index;
  os::Status status = index.open(sys::join(folder.path, index_format::kIndexFile),
                                 LockedFile::For::kCreating, locking);
  FolderView view;
  if (status.ok()) status = view.load_locked(folder, index);
  if (!status.ok()) return status;
  const std::string_view text = view.index_text();
  plan = plan_restore(view, saved);
  if (!plan.changes()) return text.empty() ? index.replace_lines(text, plan.text) : os::Status();
  // Rename the files first: a save by another process would drop an entry whose file is missing.
  for (const RestoredName& name : plan.names) {
    if (name.fate != NameFate::kRestored || name.renamed_from.empty()) continue;
    status = os::rename(view.path_of(name.renamed_from), view.path_of(name.file));
    if (!status.ok()) return status;
  }
  return index.replace_lines(text, plan.text);
}

}  // namespace admin
