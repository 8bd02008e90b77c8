# Every source file of the project, by what it becomes. A check compares these lists with the folders.

set(VU_LIBRARY_SOURCES
  platform/host/host.cpp
  platform/host/trace.cpp
  platform/i18n/strings.cpp
  file/file_internal.cpp
  file/folder_entries.cpp
  file/handle_core.cpp
  file/lines.cpp
  file/temp_root.cpp
  file/vu_file.cpp
  file/vu_file_base.cpp
  file/vu_file_except.cpp
  file/vu_file_system.cpp
  file/vu_fileutf8.cpp
  file/vu_fileutf8_system.cpp
  file/vu_path.cpp
  index/cleaning.cpp
  index/folder_files.cpp
  index/index_entries.cpp
  index/index_format.cpp
  index/index_naming.cpp
  index/index_operations.cpp
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
set(VU_UNIT_TEST_SOURCES)

# With the library alone, through its exported headers.
set(VU_API_TEST_SOURCES)

# As above, with several processes.
set(VU_MULTI_TEST_SOURCES)

# One program each: hello.cpp becomes hello_storage, demo.cpp becomes storage_demo.
set(VU_EXAMPLES)
