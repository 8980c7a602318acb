include(cmake/GoogleTest.cmake)
find_package(Threads REQUIRED)

# The test framework is compiled once for all test programs, and once for those to whom files may be larger than a 32-bit
# offset reaches. By executables, as test programs are: libraries are compiled with other options.
set(frameworkOnly ${CMAKE_CURRENT_BINARY_DIR}/test_framework.cpp)
file(GENERATE OUTPUT ${frameworkOnly} CONTENT "int main() {}\n")
foreach(framework linxtestframework linxtestframework64)
  add_executable(${framework} EXCLUDE_FROM_ALL ${frameworkOnly})
  target_link_libraries(${framework} PRIVATE GTest::gmock Threads::Threads)
  target_compile_options(${framework} PRIVATE -O0)
  target_precompile_headers(${framework} PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
endforeach()
target_compile_definitions(linxtestframework64 PRIVATE _FILE_OFFSET_BITS=64)

# linx_run_in_shards(NAME COUNT): the cases of a program in so many processes.
function(linx_run_in_shards name count)
  math(EXPR last "${count} - 1")
  foreach(shard RANGE ${last})
    add_test(NAME ${name}.shard.${shard} COMMAND ${name})
    set_tests_properties(${name}.shard.${shard} PROPERTIES TIMEOUT 300
                         ENVIRONMENT "GTEST_TOTAL_SHARDS=${count};GTEST_SHARD_INDEX=${shard}")
  endforeach()
endfunction()

# linx_runnable(TARGET VARIABLE [word...]): what other programs execute to run the program: its path, or that of a script
# which brings the emulator along and these first arguments.
function(linx_runnable target variable)
  set(path $<TARGET_FILE:${target}>)
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(path ${CMAKE_CURRENT_BINARY_DIR}/${target}.emulated)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    list(JOIN ARGN " " arguments)
    file(GENERATE OUTPUT ${path}
         CONTENT "#!/bin/sh\nexec ${emulator} \"$<TARGET_FILE:${target}>\" ${arguments} \"$@\"\n"
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  endif()
  set(${variable} ${path} PARENT_SCOPE)
endfunction()

# linx_add_test(NAME SOURCES file... LIBRARIES target... [SHARDS count] [PREFIX word] [LARGE_FILES])
# A GoogleTest program whose cases CTest runs one by one, each with a time limit of its own. Parameters are not in the
# names: those that are pointers would change them from build to build. Where a program takes longer to start than a case
# to run, under sanitizers and in an emulator, those with SHARDS run in that many parts. Cases are named after the program,
# or the PREFIX.
#
# linx_add_test(NAME COMMAND word... [LONG] [TIMEOUT seconds] [ENVIRONMENT VARIABLE=value...] [PROPERTIES name value...])
# Any other test: a command that returns 0 when it has passed and 77 when this machine cannot run it. Those that are LONG
# start first, or one of them would run on alone at the end.
function(linx_add_test name)
  cmake_parse_arguments(arg "LONG;LARGE_FILES" "TIMEOUT;SHARDS;PREFIX" "SOURCES;LIBRARIES;COMMAND;ENVIRONMENT;PROPERTIES" ${ARGN})
  if(arg_COMMAND)
    add_test(NAME ${name} COMMAND ${arg_COMMAND})
    set_tests_properties(${name} PROPERTIES TIMEOUT 300 SKIP_RETURN_CODE 77 ENVIRONMENT "${arg_ENVIRONMENT}")
    if(arg_TIMEOUT)
      set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT})
    endif()
    if(arg_LONG)
      set_tests_properties(${name} PROPERTIES COST 100)
    endif()
    if(arg_PROPERTIES)
      set_tests_properties(${name} PROPERTIES ${arg_PROPERTIES})
    endif()
    return()
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock GTest::gtest_main)
  target_compile_options(${name} PRIVATE -O0)  # compiling them takes longer than running them
  set(framework linxtestframework)
  if(arg_LARGE_FILES)
    target_compile_definitions(${name} PRIVATE _FILE_OFFSET_BITS=64)
    set(framework linxtestframework64)
  endif()
  target_precompile_headers(${name} REUSE_FROM ${framework})
  if(arg_SHARDS AND (LINXIPC_SANITIZE OR CMAKE_CROSSCOMPILING))
    linx_run_in_shards(${name} ${arg_SHARDS})
  else()
    if(NOT arg_PREFIX)
      set(arg_PREFIX ${name})
    endif()
    gtest_discover_tests(${name} TEST_PREFIX "${arg_PREFIX}." NO_PRETTY_VALUES PROPERTIES TIMEOUT 300 DISCOVERY_TIMEOUT 60)
  endif()
endfunction()
