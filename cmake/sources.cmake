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
