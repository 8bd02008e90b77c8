# Every source file of the project, by what it becomes. A check compares these lists with the folders.

set(VU_LIBRARY_SOURCES
  platform/host/host.cpp
  platform/host/trace.cpp
  platform/i18n/strings.cpp
  file/file_internal.cpp
  file/folder_entries.cpp
  file/handle_core.cpp
  file/lines.cpp
  file/replacement.cpp
  file/temp_root.cpp
  file/vu_file.cpp
  file/vu_file_base.cpp
  file/vu_file_except.cpp
  file/vu_file_system.cpp
  file/vu_fileutf8.cpp
  file/vu_fileutf8_system.cpp
  file/vu_path.cpp
  index/cleaning.cpp
  index/entry_table.cpp
  index/folder_files.cpp
  index/index_entries.cpp
  index/index_format.cpp
  index/index_naming.cpp
  index/index_operations.cpp
  index/loaded_index.cpp
  index/migration.cpp
  index/read_list.cpp
  index/stg_index.cpp
  storage/document_copies.cpp
  storage/documents.cpp
  storage/file_lists.cpp
  storage/key_files.cpp
  storage/key_text.cpp
  storage/profiles.cpp
  storage/storage_mutex.cpp
  storage/storage_roots.cpp
  storage/storage_statics.cpp
  storage/sub_parts.cpp
  storage/user_storage.cpp)

set(VU_LIBRARY_SOURCES_POSIX
  platform/os/os_posix.cpp
  platform/os/posix_path.cpp)

set(VU_LIBRARY_SOURCES_WINDOWS
  platform/os/os_windows.cpp)

# In all test programs.
set(VU_TEST_SUPPORT_SOURCES
  tests/support/main.cpp
  tests/support/process.cpp
  tests/support/recording_sink.cpp
  tests/support/scratch.cpp)

# With the library's objects, able to look inside.
set(VU_UNIT_TEST_SOURCES
  tests/unit/call_counts_test.cpp
  tests/unit/file_close_faults_test.cpp
  tests/unit/file_handle_calls_test.cpp
  tests/unit/file_handle_faults_test.cpp
  tests/unit/file_internal_test.cpp
  tests/unit/file_replace_text_test.cpp
  tests/unit/file_replacement_test.cpp
  tests/unit/file_system_faults_test.cpp
  tests/unit/host_services_test.cpp
  tests/unit/index_cleaning_test.cpp
  tests/unit/index_entries_test.cpp
  tests/unit/index_format_test.cpp
  tests/unit/index_lines_test.cpp
  tests/unit/index_loading_test.cpp
  tests/unit/index_migration_test.cpp
  tests/unit/index_naming_test.cpp
  tests/unit/index_operations_test.cpp
  tests/unit/index_read_list_test.cpp
  tests/unit/index_saving_test.cpp
  tests/unit/os_changes_test.cpp
  tests/unit/os_copy_test.cpp
  tests/unit/os_faults_test.cpp
  tests/unit/os_files_test.cpp
  tests/unit/os_linux_copy_test.cpp
  tests/unit/os_linux_handles_test.cpp
  tests/unit/os_linux_names_test.cpp
  tests/unit/os_locks_test.cpp
  tests/unit/os_names_test.cpp
  tests/unit/os_questions_test.cpp
  tests/unit/posix_path_test.cpp
  tests/unit/storage_copies_test.cpp
  tests/unit/storage_documents_test.cpp
  tests/unit/storage_folders_test.cpp
  tests/unit/storage_guard_test.cpp
  tests/unit/storage_key_files_test.cpp
  tests/unit/storage_key_text_test.cpp
  tests/unit/storage_lists_test.cpp
  tests/unit/storage_profiles_test.cpp
  tests/unit/storage_questions_test.cpp
  tests/unit/storage_roots_test.cpp
  tests/unit/storage_sub_parts_test.cpp
  tests/unit/storage_update_decision_test.cpp
  tests/unit/storage_users_test.cpp
  tests/unit/trace_facility_test.cpp)

# The C library of Linux tells how large an allocation is.
set(VU_UNIT_TEST_SOURCES_POSIX
  tests/unit/heap_test.cpp)

# With the library alone, through its exported headers.
set(VU_API_TEST_SOURCES
  tests/api/documents_test.cpp
  tests/api/file_changes_test.cpp
  tests/api/file_handle_test.cpp
  tests/api/file_lines_test.cpp
  tests/api/file_lock_test.cpp
  tests/api/file_path_test.cpp
  tests/api/file_read_write_test.cpp
  tests/api/file_system_test.cpp
  tests/api/file_utf8_handle_test.cpp
  tests/api/host_storage_test.cpp
  tests/api/i18n_sequence_test.cpp
  tests/api/i18n_ucs2_test.cpp
  tests/api/i18n_utf8_test.cpp
  tests/api/index_cleaning_test.cpp
  tests/api/index_migration_test.cpp
  tests/api/index_operations_test.cpp
  tests/api/key_files_test.cpp
  tests/api/sub_parts_test.cpp
  tests/api/users_test.cpp)

# As above, with several processes.
set(VU_MULTI_TEST_SOURCES
  tests/multi/documents_test.cpp
  tests/multi/handles_test.cpp
  tests/multi/index_processes_test.cpp
  tests/multi/initialisation_test.cpp
  tests/multi/locks_test.cpp
  tests/multi/remote_file.cpp
  tests/multi/remote_index.cpp
  tests/multi/test_support_test.cpp)

# The program of the long runs, with the library's objects.
set(VU_RELIABILITY_SOURCES
  tests/reliability/alarms.cpp
  tests/reliability/checkers.cpp
  tests/reliability/crowd.cpp
  tests/reliability/folder_state.cpp
  tests/reliability/handles.cpp
  tests/reliability/kill_check.cpp
  tests/reliability/kill_field.cpp
  tests/reliability/kill_model.cpp
  tests/reliability/kill_worker.cpp
  tests/reliability/kills.cpp
  tests/reliability/kills_mail.cpp
  tests/reliability/main.cpp
  tests/reliability/operations.cpp
  tests/reliability/threads.cpp)
set(VU_RELIABILITY_SOURCES_POSIX
  tests/reliability/full_disk_posix.cpp
  tests/reliability/machine_posix.cpp
  tests/reliability/read_only_posix.cpp)
set(VU_RELIABILITY_SOURCES_WINDOWS
  tests/reliability/machine_windows.cpp
  tests/reliability/not_here_windows.cpp)

# One program each: hello.cpp becomes hello_storage.
set(VU_EXAMPLES
  examples/hello.cpp)

# The demonstration program, storage_demo.
set(VU_DEMO_SOURCES
  examples/demo.cpp
  examples/demo_cleaning.cpp
  examples/demo_copies.cpp
  examples/demo_files.cpp
  examples/demo_host.cpp
  examples/demo_index.cpp
  examples/demo_keys.cpp
  examples/demo_manifest.cpp
  examples/demo_migration.cpp
  examples/demo_options.cpp
  examples/demo_parts.cpp
  examples/demo_plan.cpp
  examples/demo_read.cpp
  examples/demo_report.cpp
  examples/demo_sources.cpp
  examples/demo_store.cpp
  examples/demo_tree.cpp
  examples/demo_users.cpp
  examples/demo_utf8.cpp
  examples/demo_versions.cpp)
set(VU_DEMO_SOURCES_WINDOWS
  examples/demo.rc)

# The benchmark program, storage_bench.
set(VU_BENCH_SOURCES
  bench/bare.cpp
  bench/bench.cpp
  bench/cleaning.cpp
  bench/copies.cpp
  bench/databases.cpp
  bench/documents.cpp
  bench/floor.cpp
  bench/folder.cpp
  bench/harness.cpp
  bench/index_changes.cpp
  bench/index_questions.cpp
  bench/key_files.cpp
  bench/literal.cpp
  bench/stage.cpp
  bench/storage_root.cpp
  bench/table.cpp)
set(VU_BENCH_OPERATIONS_SOURCES
  bench/operations.cpp)
set(VU_BENCH_TRACE_SOURCES
  bench/inside/trace_cost.cpp)
set(VU_BENCH_PLAIN_SOURCES
  bench/plain.cpp)
set(VU_BENCH_GROWTH_SOURCES
  bench/growth.cpp)

# tools/admin: reads a tree without changing it, and plans.
set(VU_ADMIN_SOURCES
  tools/admin/check.cpp
  tools/admin/checksum.cpp
  tools/admin/doctor.cpp
  tools/admin/entries.cpp
  tools/admin/explain.cpp
  tools/admin/explain_steps.cpp
  tools/admin/finding.cpp
  tools/admin/folder_check.cpp
  tools/admin/folder_check_files.cpp
  tools/admin/folder_view.cpp
  tools/admin/forecast.cpp
  tools/admin/index_lint.cpp
  tools/admin/inventory.cpp
  tools/admin/lookup.cpp
  tools/admin/parts.cpp
  tools/admin/portable_name.cpp
  tools/admin/stats.cpp
  tools/admin/text.cpp
  tools/admin/tree.cpp)
set(VU_ADMIN_SOURCES_POSIX
  tools/admin/system_posix.cpp)
set(VU_ADMIN_SOURCES_WINDOWS
  tools/admin/system_windows.cpp)
# The library's own files that it is built with: the seam, and rules that are pure text.
set(VU_ADMIN_WITH_LIBRARY
  index/index_format.cpp
  storage/key_text.cpp)
set(VU_ADMIN_WITH_LIBRARY_POSIX ${VU_LIBRARY_SOURCES_POSIX})
set(VU_ADMIN_WITH_LIBRARY_WINDOWS ${VU_LIBRARY_SOURCES_WINDOWS})

# The command-line client, stgctl.
set(VU_STGCTL_SOURCES
  tools/stgctl/application.cpp
  tools/stgctl/bars.cpp
  tools/stgctl/check_command.cpp
  tools/stgctl/clean_command.cpp
  tools/stgctl/commands.cpp
  tools/stgctl/compare_command.cpp
  tools/stgctl/completion.cpp
  tools/stgctl/completion_command.cpp
  tools/stgctl/context.cpp
  tools/stgctl/entry_commands.cpp
  tools/stgctl/explain_commands.cpp
  tools/stgctl/export_command.cpp
  tools/stgctl/export_names.cpp
  tools/stgctl/get_command.cpp
  tools/stgctl/import_command.cpp
  tools/stgctl/import_item.cpp
  tools/stgctl/import_journal.cpp
  tools/stgctl/index_commands.cpp
  tools/stgctl/init_command.cpp
  tools/stgctl/key_commands.cpp
  tools/stgctl/key_lines.cpp
  tools/stgctl/list_commands.cpp
  tools/stgctl/lock_wait.cpp
  tools/stgctl/look.cpp
  tools/stgctl/look_commands.cpp
  tools/stgctl/main.cpp
  tools/stgctl/manifest.cpp
  tools/stgctl/manual.cpp
  tools/stgctl/manual_command.cpp
  tools/stgctl/migrate_command.cpp
  tools/stgctl/mv_command.cpp
  tools/stgctl/new_file.cpp
  tools/stgctl/operations.cpp
  tools/stgctl/output.cpp
  tools/stgctl/progress.cpp
  tools/stgctl/put_command.cpp
  tools/stgctl/report.cpp
  tools/stgctl/rm_command.cpp
  tools/stgctl/show_commands.cpp
  tools/stgctl/stats_command.cpp
  tools/stgctl/status_commands.cpp
  tools/stgctl/sync_command.cpp
  tools/stgctl/target.cpp
  tools/stgctl/text.cpp
  tools/stgctl/trace_log.cpp
  tools/stgctl/usage.cpp
  tools/stgctl/user_commands.cpp
  tools/stgctl/what_if.cpp)
set(VU_STGCTL_SOURCES_POSIX
  tools/stgctl/terminal_posix.cpp)
set(VU_STGCTL_SOURCES_WINDOWS
  tools/stgctl/stgctl.rc
  tools/stgctl/terminal_windows.cpp)

# The reader's own tests, admin_tests.
set(VU_ADMIN_TEST_SOURCES
  tests/admin/check_test.cpp
  tests/admin/entries_test.cpp
  tests/admin/explain_test.cpp
  tests/admin/index_lint_test.cpp
  tests/admin/inventory_test.cpp
  tests/admin/portable_name_test.cpp
  tests/admin/system_test.cpp
  tests/admin/text_test.cpp
  tests/admin/tree_test.cpp)

# The client from outside, by starting it.
set(VU_STGCTL_TEST_SOURCES
  tests/stgctl/clean_sync_test.cpp
  tests/stgctl/completion_test.cpp
  tests/stgctl/explain_check_test.cpp
  tests/stgctl/export_import_test.cpp
  tests/stgctl/fixture.cpp
  tests/stgctl/garbage_test.cpp
  tests/stgctl/init_test.cpp
  tests/stgctl/keys_users_test.cpp
  tests/stgctl/locks_test.cpp
  tests/stgctl/look_test.cpp
  tests/stgctl/put_get_test.cpp
  tests/stgctl/rm_mv_test.cpp
  tests/stgctl/text_test.cpp
  tests/stgctl/what_if_test.cpp)
set(VU_STGCTL_TEST_SOURCES_POSIX
  tests/stgctl/import_posix_test.cpp
  tests/stgctl/manual_posix_test.cpp
  tests/stgctl/program_posix.cpp
  tests/stgctl/pseudo_terminal.cpp
  tests/stgctl/terminal_posix_test.cpp)
set(VU_STGCTL_TEST_SOURCES_WINDOWS
  tests/stgctl/program_windows.cpp)
# What of the client those tests look at directly.
set(VU_STGCTL_TEXT_WITH_TESTS
  tools/stgctl/key_lines.cpp
  tools/stgctl/text.cpp)
