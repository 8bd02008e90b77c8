#include "index/name_list.h"

#include <cstddef>
#include <deque>
#include <span>
#include <string>
#include <vector>

#include "index/folder_files.h"
#include "index/index_format.h"
#include "index/index_reader.h"
#include "index/name_order.h"

namespace {

using index_format::logical_of;

/// Collects entries as pairs of file name and logical name, and sorts them. Of several entries with
/// one file, the first one counts. Names are views: the listing and the keys must outlive it.
///
/// Order of calls: add() or add_made() for each entry in the order of the keys; then visit() once.
class NameList {
 public:
  explicit NameList(const FolderFiles& files) : m_files(files) {}

  void add(const IndexLine& line) {
    // Nearly always the entry's file is the one that the listing showed, so its name need not be
    // built. It is another one if the line is valid because of its second possible file.
    const bool is_it = line.file != FolderFiles::kNone &&
                       line.has_extension == has_extension(line.key, line.stored);
    if (is_it) {
      add(m_files.name_of(line.file), logical_of(line.key));
    } else {
      add_made(line.key, line.stored);
    }
  }
  void add_made(std::string_view key, std::string_view stored) {
    add(m_made.emplace_back(index_format::file_name_of(key, stored)), logical_of(key));
  }

  template <class Visit>
  void visit(Visit visit) {
    m_order.sort([this](std::size_t position) { return m_names[position].file; });
    const NameOrder<1>::Element* last = nullptr;
    for (const NameOrder<1>::Element& element : m_order.sorted()) {
      const Name& name = m_names[element.position];
      const bool is_again = last != nullptr && last->head == element.head &&
                            m_names[last->position].file == name.file;
      if (!is_again) visit(name.file, name.logical);
      last = &element;
    }
  }

 private:
  struct Name {
    std::string_view file;
    std::string_view logical;
  };

  static bool has_extension(std::string_view key, std::string_view stored) {
    return index_format::bears_extension(key, stored) &&
           !index_format::extension_of(logical_of(key)).empty();
  }
  void add(std::string_view file, std::string_view logical) {
    m_order.add(file, m_names.size());
    m_names.push_back({file, logical});
  }

  const FolderFiles& m_files;
  std::deque<std::string> m_made;
  std::vector<Name> m_names;
  NameOrder<1> m_order;
};

/// Adds the entries that @p is_wanted accepts by their logical names; all if it is null.
void add_entries(const IndexState& state, NameList& names,
                 bool (*is_wanted)(std::string_view logical)) {
  const auto passes = [&](std::string_view key) {
    return is_wanted == nullptr || is_wanted(logical_of(key));
  };
  state.walk(
      [&](std::span<const IndexLine> lines) {
        for (const IndexLine& line : lines) {
          if (passes(line.key)) names.add(line);
        }
      },
      [&](std::string_view key, std::string_view stored) {
        if (passes(key)) names.add_made(key, stored);
      });
}

}  // namespace

void visit_physical_names(
    const IndexState& state,
    const std::function<void(std::string_view file, std::string_view logical)>& visit) {
  NameList names(state.files());
  add_entries(state, names, nullptr);
  names.visit(visit);
}

void add_physical_names(const IndexState& state, IndexState::NameMap& out,
                        bool (*is_wanted)(std::string_view logical)) {
  NameList names(state.files());
  add_entries(state, names, is_wanted);
  names.visit([&](std::string_view file, std::string_view logical) {
    out.emplace_hint(out.end(), file, logical);
  });
}
