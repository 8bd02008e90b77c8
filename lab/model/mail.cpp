// The one conversion of an owner's mail folder from escaped names.

#include "lab/model/world.h"

namespace model {

void World::migrate(const std::string& owner) {
  if (owner.empty()) return;
  check_init();
  const std::string folder = mail + "\\" + owner;
  if (!tree.is_folder(folder)) {
    create_dir(folder);
    return;
  }
  std::string list_file;
  Map lines;
  try {
    std::string marker;
    if (index_exists(folder, "k1mailboxcompliant", 0, marker)) return;
    update_index(folder);
    list_file = index_create(folder, "read.txt", 0);
    if (tree.exists(folder + "\\" + list_file)) lines = mail_lines(read_whole(folder, list_file));
  } catch (const FileError&) {
    error(
        "STGIndex: migration: not begun, for its index or its read list cannot be read for "
        "certain: " +
        folder);
    throw;
  }

  // Saved at the end, whichever way it ends.
  const auto save_list = [&] {
    File file(*this, folder, list_file);
    file.open(Mode::kTruncate);
    std::string text;
    for (const auto& [name, line] : lines) text += line + "\n";
    file.write(text);
  };

  try {
    Index index(*this, folder);
    try {
      bool complete = true;
      for (auto it = index.lp.begin(); it != index.lp.end(); ++it) {
        const std::string logical = logical_of(it->first);
        if (file_of(it->first, it->second) != logical || !is_escaped(logical)) continue;
        const std::string plain = unescaped(logical);
        if (plain == logical) continue;
        // No line of an index can hold such a key.
        if (plain.find('/') != std::string::npos || plain.find('\n') != std::string::npos) continue;
        if (!index.rename(logical, 0, plain, 0)) {
          complete = false;
          continue;
        }
        if (lines.count(logical) != 0) lines[logical] = mail_line_unescaped(lines[logical]);
      }
      if (complete) index.create("k1mailboxcompliant", 0);
    } catch (const FileError&) {
      index.let_go();
      throw;
    }
    index.let_go();
  } catch (const FileError& failed) {
    try {
      save_list();
    } catch (const FileError& second) {
      error(second.text);
    }
    throw;
  }
  save_list();
}

}  // namespace model
