#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/check.h"
#include "client/admin/folder_view.h"

namespace admin {

/// Checks document folders one by one. It needs memory for the largest folder only.
class FolderCheck {
 public:
  FolderCheck(const CheckOptions& options, CheckSummary& summary, const FindingSink& sink)
      : m_options(options), m_summary(summary), m_sink(sink) {}

  void run(const DocumentFolder& folder);
  /// Counts and passes on a finding that is not in a document folder.
  void report(Finding finding);

 private:
  void found(Code code, std::string_view name, std::string detail = {}, std::size_t line = 0);
  /// A finding about the version that the line names.
  void found(Code code, const LintedLine& line, std::string detail);

  bool check_index_state();
  bool check_writable();
  bool is_key_file(const Name& name) const;
  void check_line(const LintedLine& line);
  void check_entry(const LintedLine& line);
  void check_reach(const LintedLine& line);
  void check_lines();
  void check_names();
  /// Reports a name that differs from an earlier name of @p table only in letter case. @p shown is
  /// the name in the report.
  void check_case(NameTable& table, std::string_view name, std::string_view shown);
  void check_name(const Name& name, std::uint32_t number);
  void check_unclaimed(const Name& name);
  void check_file_name(const Name& name);
  void check_counter();
  void check_unfinished(const std::string& sub_folder);
  void check_leftover(const std::string& name);
  void check_sub_folder(const Name& name);
  void note_number(std::string_view name);

  void check_document(const LintedLine& line);
  void check_key_files();
  void check_key_file(const std::string& file, Code code);
  void check_parts(const std::string& root);
  void check_renditions(const std::string& type_folder, bool is_root);

  const CheckOptions& m_options;
  CheckSummary& m_summary;
  const FindingSink& m_sink;
  FolderView m_view;
  IndexLint m_lint;
  NameTable m_folded_keys;
  NameTable m_folded_names;
  NameTable m_logical_names;
  std::deque<std::string> m_folded_texts;  ///< the names to which both folded tables refer
  std::size_t m_folded_used = 0;
  std::vector<std::string> m_key_files;
  std::vector<std::string> m_category_files;
  std::uint32_t m_bucket = 0;  ///< the number in the folder's name
  std::int32_t m_highest_number = 0;
  std::uint64_t m_data_files = 0;
  bool m_path_is_long = false;
};

}  // namespace admin
