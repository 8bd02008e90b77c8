# Checks the file of the shared library: its name and version, the libraries that it needs, and that its search
# path has no folder of the build machine.
#
#   cmake -D LIBRARY=<file> -D VERSION=<x.y.z> -D OBJDUMP=<objdump> [-D WINDRES=<windres>, for a DLL]
#         [-D COMPILER=<compiler>, for the others] -D SCRATCH=<folder> -P library_file.cmake

cmake_minimum_required(VERSION 3.25)

string(REGEX MATCH "^[0-9]+" major ${VERSION})
file(MAKE_DIRECTORY ${SCRATCH})

# Sets `faults` from the header of an ELF library.
function(look_at_elf library)
  execute_process(COMMAND ${OBJDUMP} -p ${library} OUTPUT_VARIABLE header COMMAND_ERROR_IS_FATAL ANY)
  set(found)
  if(NOT header MATCHES "SONAME +libvu_storage\\.so\\.${major}\n")
    list(APPEND found "its SONAME is not libvu_storage.so.${major}")
  endif()
  if(header MATCHES "(RPATH|RUNPATH) +([^\n]*)")
    list(APPEND found "it searches ${CMAKE_MATCH_2} (${CMAKE_MATCH_1})")
  endif()
  string(REGEX MATCHALL "NEEDED +[^\n]+" needed "${header}")
  foreach(entry IN LISTS needed)
    if(NOT entry MATCHES " (libPocoFoundation|libstdc\\+\\+|libgcc_s|libc|libm|ld-linux-x86-64|libasan|libubsan|libtsan)\\.so[.0-9]*$")
      list(APPEND found "it needs another library: ${entry}")
    endif()
  endforeach()
  set(faults "${found}" PARENT_SCOPE)
endfunction()

# Sets `faults` from the header and the version resource of a DLL.
function(look_at_dll library)
  set(found)
  execute_process(COMMAND ${OBJDUMP} -p ${library} OUTPUT_VARIABLE header COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "DLL Name: [^\n]+" needed "${header}")
  foreach(entry IN LISTS needed)
    if(NOT entry MATCHES ": (KERNEL32|ADVAPI32|msvcrt|api-ms-win-crt-[a-z]+-l1-1-0|USER32|IPHLPAPI|WS2_32|libstdc\\+\\+-6|libgcc_s_seh-1|libwinpthread-1|vu_storage)\\.(dll|DLL)$")
      list(APPEND found "it needs another library: ${entry}")
    endif()
  endforeach()
  execute_process(COMMAND ${WINDRES} -O rc ${library} ${SCRATCH}/resources.rc COMMAND_ERROR_IS_FATAL ANY)
  file(READ ${SCRATCH}/resources.rc resources)
  # Each character may be followed by a 0 byte.
  string(REGEX REPLACE "\\\\000" "" resources "${resources}")
  string(REPLACE "." ", *" numbers ${VERSION})
  if(NOT resources MATCHES "FILEVERSION *${numbers}, *0\n")
    list(APPEND found "its resource does not have FILEVERSION ${VERSION}")
  endif()
  foreach(pair IN ITEMS "ProductVersion=${VERSION}" "FileVersion=${VERSION}" "ProductName=vu_storage"
      "OriginalFilename=vu_storage.dll")
    string(REGEX MATCH "^([^=]+)=(.*)$" matched ${pair})
    if(NOT resources MATCHES "\"${CMAKE_MATCH_1}\", *\"${CMAKE_MATCH_2}\"")
      list(APPEND found "its resource does not have ${pair}")
    endif()
  endforeach()
  set(faults "${found}" PARENT_SCOPE)
endfunction()

if(WINDRES)
  look_at_dll(${LIBRARY})
else()
  # Self test: every fault of a faulty library must be reported.
  file(WRITE ${SCRATCH}/faulty.cpp "int faulty() { return 0; }\n")
  execute_process(COMMAND ${COMPILER} -shared -fPIC ${SCRATCH}/faulty.cpp -o ${SCRATCH}/libneeded.so
    COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${COMPILER} -shared -fPIC ${SCRATCH}/faulty.cpp -o ${SCRATCH}/faulty.so
    -Wl,-soname,libvu_storage.so.9 -Wl,-rpath,/home/builder
    -Wl,--no-as-needed ${SCRATCH}/libneeded.so COMMAND_ERROR_IS_FATAL ANY)
  look_at_elf(${SCRATCH}/faulty.so)
  foreach(words IN ITEMS "its SONAME is not" "it searches /home/builder" "it needs another library")
    if(NOT faults MATCHES "${words}")
      message(FATAL_ERROR "the fault \"${words}\" of a faulty library is not reported. Correct this check. Reported: ${faults}")
    endif()
  endforeach()
  look_at_elf(${LIBRARY})
endif()
if(faults)
  list(JOIN faults "\n  " faults)
  message(FATAL_ERROR "${LIBRARY} is not as packages need it. Correct its link options:\n  ${faults}")
endif()
message(STATUS "${LIBRARY}: name, version and needed libraries are correct")
