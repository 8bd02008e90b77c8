# Third-party libraries. Each is one target; other files use only the target and do not depend on its source:
#   vu_poco     POCO Foundation (the storage mutex)
#   vu_utf8cpp  utfcpp, header-only (the string classes)
#   vu_gtest    GoogleTest
#   vu_cli11    CLI11, header-only (the client's command line)
#   vu_json     nlohmann-json, header-only (the client's JSON)
#   vu_fmt      fmt, header-only (the client's text)
#   vu_xxhash   xxhash, inline (checksums of saved texts and of the client)

set(VU_STAGED_INCLUDE "" CACHE PATH "Folder with header-only libraries for a cross build")

find_package(Poco 1.11 REQUIRED COMPONENTS Foundation)
add_library(vu_poco INTERFACE)
target_link_libraries(vu_poco INTERFACE $<LINK_ONLY:Poco::Foundation>)
target_include_directories(vu_poco SYSTEM INTERFACE
  $<TARGET_PROPERTY:Poco::Foundation,INTERFACE_INCLUDE_DIRECTORIES>)
# Removes definitions of POCO that would change system headers in project code.
get_target_property(vu_poco_definitions Poco::Foundation INTERFACE_COMPILE_DEFINITIONS)
if(vu_poco_definitions)
  list(FILTER vu_poco_definitions EXCLUDE REGEX "^_?UNICODE$|^_XOPEN_SOURCE|^_FILE_OFFSET_BITS")
  target_compile_definitions(vu_poco INTERFACE ${vu_poco_definitions})
endif()

add_library(vu_utf8cpp INTERFACE)
if(VU_STAGED_INCLUDE)
  if(NOT EXISTS ${VU_STAGED_INCLUDE}/utf8.h)
    message(FATAL_ERROR "utf8.h is not in ${VU_STAGED_INCLUDE}: run './dev setup windows'")
  endif()
  target_include_directories(vu_utf8cpp SYSTEM INTERFACE ${VU_STAGED_INCLUDE})
else()
  find_package(utf8cpp REQUIRED)
  # Since version 4 the target has a namespace.
  target_link_libraries(vu_utf8cpp INTERFACE $<IF:$<TARGET_EXISTS:utf8cpp::utf8cpp>,utf8cpp::utf8cpp,utf8cpp>)
endif()

# vu_header_library(<target> <header> <package> <imported target>): a header-only library. Uses the staged headers if
# there are any, else the CMake configuration of the package, else only the path of the header.
function(vu_header_library target header package imported)
  add_library(${target} INTERFACE)
  if(VU_STAGED_INCLUDE)
    if(NOT EXISTS ${VU_STAGED_INCLUDE}/${header})
      message(FATAL_ERROR "${header} is not in ${VU_STAGED_INCLUDE}: run './dev setup windows'")
    endif()
    target_include_directories(${target} SYSTEM INTERFACE ${VU_STAGED_INCLUDE})
    return()
  endif()
  find_package(${package} CONFIG QUIET)
  if(TARGET ${imported})
    target_link_libraries(${target} INTERFACE ${imported})
    return()
  endif()
  find_path(VU_${target}_INCLUDE ${header} REQUIRED)
  target_include_directories(${target} SYSTEM INTERFACE ${VU_${target}_INCLUDE})
endfunction()

vu_header_library(vu_xxhash xxhash.h xxHash xxHash::xxhash)
target_compile_definitions(vu_xxhash INTERFACE XXH_INLINE_ALL=1)
if(VU_BUILD_CLIENT)
  vu_header_library(vu_cli11 CLI/CLI.hpp CLI11 CLI11::CLI11)
  vu_header_library(vu_json nlohmann/json.hpp nlohmann_json nlohmann_json::nlohmann_json)
endif()
# The interleavings compile parts of the client.
if(VU_BUILD_CLIENT OR VU_BUILD_TESTS)
  vu_header_library(vu_fmt fmt/format.h fmt fmt::fmt-header-only)
  target_compile_definitions(vu_fmt INTERFACE FMT_HEADER_ONLY=1)
endif()

# GoogleTest is built from the system's sources, if there are any, so that it has this build's sanitizers and runtime.
set(VU_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest's sources; an installed one otherwise")
if(VU_BUILD_TESTS)
  add_library(vu_gtest INTERFACE)
  if(EXISTS ${VU_GTEST_SOURCE}/CMakeLists.txt)
    set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    add_subdirectory(${VU_GTEST_SOURCE} googletest EXCLUDE_FROM_ALL)
    target_compile_options(gtest PRIVATE $<IF:$<CXX_COMPILER_ID:MSVC>,/w,-w;-O0;${vu_test_debug}>)
    target_include_directories(vu_gtest SYSTEM INTERFACE
      $<TARGET_PROPERTY:gtest,INTERFACE_INCLUDE_DIRECTORIES>)
    target_link_libraries(vu_gtest INTERFACE gtest)
  else()
    find_package(GTest REQUIRED)
    target_link_libraries(vu_gtest INTERFACE GTest::gtest)
  endif()
endif()
