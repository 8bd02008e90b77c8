# Checks every #include line against the architecture.
#
#   cmake -D ROOT=<project> -P include_arrows.cmake
#
# Rooms from the top: api, storage, index, file, platform. Each may include lower rooms, itself and the
# exported headers. Inside platform the order is host, i18n, os; os knows the string classes only.
# The client, the examples and the tests of the finished library include only exported headers. Exception:
# client/admin also includes the seam and rules that work on text alone, because a call of the library could change
# a tree. The laboratory includes client and library, the client includes the library, never the reverse.
# The rooms of the laboratory have one direction as well. The check also fails if the rules themselves allow a circle.

cmake_minimum_required(VERSION 3.25)

# SELF_TEST: a small tree without faults passes, with one fault it fails.
if(SELF_TEST)
  set(tree ${SCRATCH}/tree)

  function(source file)
    list(JOIN ARGN "\n" lines)
    file(WRITE ${tree}/${file} "${lines}\n")
  endfunction()

  function(sound_tree)
    file(REMOVE_RECURSE ${tree})
    source(include/vu_i18n.h "#include <string>")
    source(include/vu_storage.h "#include \"vu_i18n.h\"")
    source(platform/os/os.h "#include \"vu_i18n.h\"")
    source(platform/os/os_windows.cpp "#include <windows.h>" "#include \"platform/os/os.h\"")
    source(platform/i18n/strings.cpp "#include \"platform/os/os.h\"")
    source(platform/host/host.h "#include \"platform/os/os.h\"")
    source(file/core.h "#include \"platform/host/host.h\"")
    source(index/index.h "#include \"file/core.h\"")
    source(storage/storage_mutex.cpp "#include <Poco/Mutex.h>" "#include \"vu_storage.h\"")
    source(storage/roots.cpp "#include \"index/index.h\"" "#include \"platform/os/os.h\"")
    source(include/vu/storage.h "#include <stddef.h>")
    source(include/vu/storage.hpp "#include <filesystem>" "#include \"vu/storage.h\"")
    source(api/store.cpp "#include \"vu/storage.h\"" "#include \"index/index.h\"")
    source(examples/hello.cpp "#include <vu_storage.h>" "#include <Poco/Mutex.h>")
    source(index/index_format.h "#include <string>")
    source(storage/layout.h "#include <string>")
    source(client/admin/tree.cpp "#include \"platform/os/os.h\"" "#include \"index/index_format.h\""
      "#include \"storage/layout.h\"")
    source(platform/os/look_windows.cpp "#include <windows.h>")
    source(client/stgctl/main.cpp "#include \"vu_storage.h\"")
    source(tests/api/api_test.cpp "#include \"vu_storage.h\"")
    source(lab/reader/reader.h "#include <string>")
    source(lab/interleavings/tree.h "#include \"lab/reader/reader.h\"")
    source(lab/reliability/suites.cpp "#include \"lab/reader/reader.h\"" "#include \"lab/interleavings/tree.h\"")
  endfunction()

  function(run_check result)
    execute_process(COMMAND ${CMAKE_COMMAND} -D ROOT=${tree} -D "MORE_RULES=${ARGN}"
      -P ${CMAKE_CURRENT_LIST_FILE}
      RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
    set(${result} ${code} PARENT_SCOPE)
    set(output "${output}" PARENT_SCOPE)
  endfunction()

  sound_tree()
  run_check(code)
  if(NOT code STREQUAL "0")
    message(FATAL_ERROR "the tree without faults does not pass. Correct this check:\n${output}")
  endif()

  # finds(<file> <line> <words of the message>)
  function(finds file line words)
    sound_tree()
    file(APPEND ${tree}/${file} "${line}\n")
    run_check(code)
    # CMake breaks long messages into lines.
    string(REGEX REPLACE "[ \n]+" " " output "${output}")
    string(FIND "${output}" "${words}" at)
    if(code STREQUAL "0" OR at EQUAL -1)
      message(FATAL_ERROR "'${line}' in ${file} is not reported, expected \"${words}\". Correct this check:\n${output}")
    endif()
  endfunction()

  finds(index/index.h "#include \"storage/storage_mutex.cpp\"" "may not include storage/")
  finds(file/core.h "#include \"index/index.h\"" "may not include index/index.h")
  finds(file/core.h "  #  include \"../index/index.h\"" "may not include index/index.h")
  finds(platform/host/host.h "#include <file/core.h>" "may not include file/core.h")
  finds(platform/os/os.h "#include \"platform/host/host.h\"" "may not include platform/host/host.h")
  finds(platform/os/os.h "#include \"vu_storage.h\"" "may not include include/vu_storage.h")
  finds(storage/roots.cpp "#include \"api/store.cpp\"" "may not include api/store.cpp")
  finds(platform/i18n/strings.cpp "#include \"platform/host/host.h\"" "may not include platform/host")
  finds(examples/hello.cpp "#include \"platform/os/os.h\"" "may not include platform/os/os.h")
  finds(client/stgctl/main.cpp "#include \"file/core.h\"" "may not include file/core.h")
  finds(client/stgctl/main.cpp "#include \"platform/os/os.h\"" "may not include platform/os/os.h")
  finds(client/stgctl/main.cpp "#include \"index/index_format.h\"" "may not include index/index_format.h")
  finds(client/admin/tree.cpp "#include \"index/index.h\"" "may not include index/index.h")
  finds(client/admin/tree.cpp "#include \"client/stgctl/main.cpp\"" "may not include client/stgctl/main.cpp")
  finds(client/admin/tree.cpp "#include <windows.h>" "may not include <windows.h>")
  finds(index/index.h "#include \"client/admin/tree.cpp\"" "may not include client/admin/tree.cpp")
  finds(tests/api/api_test.cpp "#include \"file/core.h\"" "may not include file/core.h")
  finds(file/core.h "#include <Windows.h>" "may not include <Windows.h>")
  finds(client/stgctl/main.cpp "#include <CLI/CLI.hpp>" "may not include <CLI/CLI.hpp>")
  finds(client/stgctl/main.cpp "#include <nlohmann/json.hpp>" "may not include <nlohmann/json.hpp>")
  finds(client/admin/tree.cpp "#include <fmt/format.h>" "may not include <fmt/format.h>")
  finds(file/core.h "#include <Poco/Mutex.h>" "may not include <Poco/Mutex.h>")
  finds(storage/roots.cpp "#include <Poco/Mutex.h>" "may not include <Poco/Mutex.h>")
  finds(storage/roots.cpp "#include \"Poco/Mutex.h\"" "may not include <Poco/Mutex.h>")
  finds(include/vu_i18n.h "#include <sys/stat.h>" "may not include <sys/stat.h>")
  finds(include/vu/storage.hpp "#include <sys/stat.h>" "may not include <sys/stat.h>")
  finds(include/vu/storage.hpp "#include \"api/store.cpp\"" "may not include api/store.cpp")
  finds(lab/interleavings/tree.h "#include \"lab/reliability/suites.cpp\"" "may not include lab/reliability/suites.cpp")
  finds(lab/reader/reader.h "#include \"lab/interleavings/tree.h\"" "may not include lab/interleavings/tree.h")
  finds(file/core.h "#include \"missing.h\"" "the project has no file missing.h")
  finds(file/core.h "#include MACRO" "cannot read")

  # Rules that allow a circle: of two rooms, and over a third.
  foreach(more IN ITEMS "lab/reader = lab/reliability" "lab/model = lab/kit\;lab/kit = lab/fuzz")
    sound_tree()
    run_check(code "${more}")
    string(FIND "${output}" "the rules allow a circle" at)
    if(code STREQUAL "0" OR at EQUAL -1)
      message(FATAL_ERROR "the circle by '${more}' is not reported. Correct this check:\n${output}")
    endif()
  endforeach()

  # A room without files means that the check reads the wrong folder.
  sound_tree()
  file(REMOVE_RECURSE ${tree}/index)
  run_check(code)
  if(code STREQUAL "0")
    message(FATAL_ERROR "a missing room is not reported. Correct this check.")
  endif()
  message(STATUS "every injected fault was reported")
  return()
endif()

# folder = what its files may include of this project: folders or single files. The longest match is used.
set(rules
  "api             = api storage index file platform include"
  "storage         = storage index file platform include"
  "index           = index file platform include"
  "file            = file platform include"
  "platform/host   = platform/host platform/i18n platform/os include"
  "platform/i18n   = platform/i18n platform/os include"
  "platform/os     = platform/os include/vu_i18n.h"
  "include         = include"
  "examples        = examples include"
  "client/admin    = client/admin include platform/os file/replace_in_file.h file/replacement.h index/index_format.h index/index_reader.h index/folder_files.h index/name_index.h storage/layout.h storage/key_text.h"
  "client/stgctl   = client/stgctl client/admin include"
  "client/tests/admin  = client/tests/admin tests/support client/admin include index/index_format.h index/index_reader.h index/folder_files.h storage/layout.h"
  "client/tests/stgctl = client/tests/stgctl tests/support client/stgctl include"
  "tests/support   = tests/support platform/os include storage/roots.h index/index_state.h file/replacement.h"
  "tests/unit      = tests/unit tests/support storage index file platform include"
  "tests/api       = tests/api tests/support include"
  "tests/c_interface = tests/c_interface tests/support include"
  "tests/border   = tests/border include"
  "tests/multi     = tests/multi tests/support include"
  "tests/consumer  = include"
  "lab/bench       = lab/bench include"
  "lab/bench/inside = lab/bench index platform include"
  "lab/model       = lab/model"
  "lab/fuzz        = lab/fuzz lab/model tests/support storage index file platform include"
  "lab/kit         = lab/kit tests/support include"
  "lab/reader      = lab/reader tests/support include"
  "lab/interleavings    = lab/interleavings client/admin lab/reader tests/support platform/os include"
  "lab/reliability = lab/reliability lab/interleavings lab/reader lab/model tests/support platform/os include")
# For the self test.
list(APPEND rules ${MORE_RULES})

# Folders that may be missing. A missing folder of the others is a fault.
set(optional client examples tests lab)

# Third-party headers that only some files may include: pattern = files.
set(guarded
  "^windows\\.h$ = platform/os/os_windows.cpp platform/os/look_windows.cpp client/stgctl/terminal_windows.cpp tests/support client/tests/stgctl/program_windows.cpp lab/reliability/machine_windows.cpp lab/kit"
  "^cli/         = client/stgctl/command_line.cpp"
  "^fmt/         = client/admin/formatted.cpp"
  "^nlohmann/    = client/stgctl/json.cpp client/stgctl/manifest.cpp client/stgctl/repair.h client/stgctl/repair_plan.cpp client/stgctl/quarantine.cpp client/tests/stgctl/json_value.cpp client/tests/stgctl/repair_test.cpp lab/bench lab/kit"
  "^poco/        = storage/storage_mutex.cpp examples")

# Third-party headers that may also be included in quotation marks.
set(third_party "^(Poco|gtest|benchmark|CLI|fmt|nlohmann)/|^xxhash\\.h$|^utf8\\.h$")

# Exported headers include no system headers. Headers of the C++ library have no suffix; the two of C are for the
# C interface.
set(plain_library_header "^([a-z_0-9]+|stddef\\.h|stdint\\.h)$")

set(faults)

# is_below(<result> <path> <folder or file...>)
function(is_below result path)
  set(${result} FALSE PARENT_SCOPE)
  foreach(place IN LISTS ARGN)
    string(FIND "${path}/" "${place}/" at)
    if(at EQUAL 0)
      set(${result} TRUE PARENT_SCOPE)
    endif()
  endforeach()
endfunction()

# allowed_for(<result> <file>): the right-hand side of the longest rule that matches.
function(allowed_for result file)
  set(best "")
  set(found "")
  foreach(rule IN LISTS rules)
    string(REGEX MATCH "^([^ ]+) *= *(.*)$" matched "${rule}")
    set(folder ${CMAKE_MATCH_1})
    set(allowed "${CMAKE_MATCH_2}")
    is_below(below ${file} ${folder})
    string(LENGTH "${folder}" length)
    string(LENGTH "${best}" best_length)
    if(below AND length GREATER best_length)
      set(best ${folder})
      set(found "${allowed}")
    endif()
  endforeach()
  string(REPLACE " " ";" found "${found}")
  set(${result} "${found}" PARENT_SCOPE)
endfunction()

# The project file of an include name, or nothing: searched beside the file, at the root, in include/.
function(our_file result name file)
  cmake_path(GET file PARENT_PATH beside)
  set(${result} "" PARENT_SCOPE)
  foreach(place IN ITEMS "${beside}/${name}" "${name}" "include/${name}")
    cmake_path(NORMAL_PATH place)
    if(EXISTS ${ROOT}/${place} AND NOT IS_DIRECTORY ${ROOT}/${place})
      set(${result} ${place} PARENT_SCOPE)
    endif()
  endforeach()
endfunction()

# The arrows that the rules allow between rooms. Removes rooms without an arrow to another room that is left, until
# nothing changes. The rooms that are left form a circle, or lead to one.
set(rooms)
foreach(rule IN LISTS rules)
  string(REGEX MATCH "^([^ ]+) *= *(.*)$" matched "${rule}")
  list(APPEND rooms ${CMAKE_MATCH_1})
  string(REPLACE " " ";" places "${CMAKE_MATCH_2}")
  list(APPEND allowed_from_${CMAKE_MATCH_1} ${places})
endforeach()
list(REMOVE_DUPLICATES rooms)
foreach(room IN LISTS rooms)
  set(others ${rooms})
  list(REMOVE_ITEM others ${room})
  list(REMOVE_ITEM allowed_from_${room} ${room})
  foreach(place IN LISTS allowed_from_${room})
    foreach(other IN LISTS others)
      if("${other}/" MATCHES "^${place}/" OR "${place}/" MATCHES "^${other}/")
        list(APPEND arrows_from_${room} ${other})
      endif()
    endforeach()
  endforeach()
endforeach()
set(left_before)
while(NOT rooms STREQUAL left_before)
  set(left_before "${rooms}")
  foreach(room IN LISTS left_before)
    set(stays FALSE)
    foreach(other IN LISTS arrows_from_${room})
      if(other IN_LIST rooms)
        set(stays TRUE)
      endif()
    endforeach()
    if(NOT stays)
      list(REMOVE_ITEM rooms ${room})
    endif()
  endforeach()
endwhile()
if(rooms)
  list(JOIN rooms ", " rooms)
  list(APPEND faults "the rules allow a circle: ${rooms}")
endif()

set(files)
set(folders)
foreach(rule IN LISTS rules)
  string(REGEX REPLACE "[ /].*$" "" folder "${rule}")
  list(APPEND folders ${folder})
endforeach()
list(REMOVE_DUPLICATES folders)
foreach(folder IN LISTS folders)
  file(GLOB_RECURSE found RELATIVE ${ROOT} ${ROOT}/${folder}/*.h ${ROOT}/${folder}/*.hpp
    ${ROOT}/${folder}/*.cpp)
  if(NOT found AND NOT folder IN_LIST optional)
    list(APPEND faults "${folder}: no source file was found")
  endif()
  list(APPEND files ${found})
endforeach()

set(arrows 0)
foreach(file IN LISTS files)
  allowed_for(allowed ${file})
  # Brackets and semicolons are special in CMake's lists; no #include line needs them.
  file(READ ${ROOT}/${file} text)
  string(REGEX REPLACE "[][;]" " " text "${text}")
  string(REGEX MATCHALL "\n[ \t]*#[ \t]*include[^\n]*" lines "\n${text}")
  foreach(line IN LISTS lines)
    string(STRIP "${line}" line)
    if(NOT line MATCHES "include[ \t]*([<\"])([^>\"]+)[>\"]")
      list(APPEND faults "${file}: cannot read '${line}'")
      continue()
    endif()
    set(quote "${CMAKE_MATCH_1}")
    set(name "${CMAKE_MATCH_2}")
    math(EXPR arrows "${arrows} + 1")

    our_file(target ${name} ${file})
    if(target)
      is_below(good ${target} ${allowed})
      if(NOT good)
        list(APPEND faults "${file}: may not include ${target}")
      endif()
      continue()
    endif()
    if(quote STREQUAL "\"" AND NOT name MATCHES "${third_party}")
      list(APPEND faults "${file}: the project has no file ${name}")
      continue()
    endif()

    string(TOLOWER "${name}" lower)
    foreach(guard IN LISTS guarded)
      string(REGEX MATCH "^([^ ]+) *= *(.*)$" matched "${guard}")
      set(pattern "${CMAKE_MATCH_1}")
      string(REPLACE " " ";" owners "${CMAKE_MATCH_2}")
      is_below(good ${file} ${owners})
      if(lower MATCHES "${pattern}" AND NOT good)
        list(APPEND faults "${file}: may not include <${name}>")
      endif()
    endforeach()
    if(file MATCHES "^include/" AND NOT name MATCHES "${plain_library_header}")
      list(APPEND faults "${file}: an exported header may not include <${name}>")
    endif()
  endforeach()
endforeach()

list(LENGTH files count)
if(arrows EQUAL 0)
  list(APPEND faults "no #include line was found; correct this check")
endif()
if(faults)
  list(JOIN faults "\n  " faults)
  message(FATAL_ERROR "#include lines break the architecture (docs/architecture.md). Remove them or move the code:\n  ${faults}")
endif()
message(STATUS "${arrows} #include lines of ${count} files follow the architecture")
