# The benchmark programs (./dev bench): the library as a host program uses it.

# Beside the literal way alone: runs everywhere.
add_executable(storage_bench_plain ${VU_BENCH_PLAIN_SOURCES} bench/literal.cpp)
vu_program(storage_bench_plain)
target_include_directories(storage_bench_plain PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(storage_bench_plain PRIVATE vu_storage::vu_storage)

if(NOT UNIX)
  return()
endif()

# Beside bare system calls, SQLite and LMDB.

find_package(benchmark REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(nlohmann_json REQUIRED)
find_library(VU_LMDB_LIBRARY lmdb REQUIRED)
find_path(VU_LMDB_INCLUDE lmdb.h REQUIRED)

add_executable(storage_bench ${VU_BENCH_SOURCES})
vu_program(storage_bench)
target_include_directories(storage_bench PRIVATE ${PROJECT_SOURCE_DIR})
target_include_directories(storage_bench SYSTEM PRIVATE ${VU_LMDB_INCLUDE})
target_link_libraries(storage_bench PRIVATE vu_storage::vu_storage benchmark::benchmark
  SQLite::SQLite3 nlohmann_json::nlohmann_json vu_xxhash ${VU_LMDB_LIBRARY})

# Trees of up to a million documents.
add_executable(storage_growth ${VU_BENCH_GROWTH_SOURCES} bench/bare.cpp bench/folder.cpp)
vu_program(storage_growth)
target_include_directories(storage_growth PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(storage_growth PRIVATE vu_storage::vu_storage)

# Watched from outside: instructions, system calls.
add_executable(storage_operations ${VU_BENCH_OPERATIONS_SOURCES} bench/bare.cpp bench/folder.cpp)
vu_program(storage_operations)
target_include_directories(storage_operations PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(storage_operations PRIVATE vu_storage::vu_storage)

# Several processes in one folder.
add_executable(storage_crowd ${VU_BENCH_CROWD_SOURCES} bench/bare.cpp bench/folder.cpp)
vu_program(storage_crowd)
target_include_directories(storage_crowd PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(storage_crowd PRIVATE vu_storage::vu_storage)

# Looks inside: the macros that the library traces with.
add_executable(trace_cost ${VU_BENCH_TRACE_SOURCES} platform/host/trace.cpp)
vu_program(trace_cost)
target_include_directories(trace_cost PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(trace_cost PRIVATE vu_storage::vu_storage)
