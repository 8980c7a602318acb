include(cmake/GoogleTest.cmake)
find_package(Threads REQUIRED)

# linx_compile_quickly(TARGET): for a program of many tests, whose own speed matters less than that of its compilation.
function(linx_compile_quickly target)
  target_compile_options(${target} PRIVATE -O0)
  get_target_property(sources ${target} SOURCES)
  list(LENGTH sources count)
  if(count LESS 4)  # compiling the test framework for them once takes longer than each time
    return()
  endif()
  target_precompile_headers(${target} PRIVATE "$<$<COMPILE_LANGUAGE:CXX>:<gmock/gmock.h$<ANGLE-R>>"
                             "$<$<COMPILE_LANGUAGE:CXX>:<gtest/gtest.h$<ANGLE-R>>")
endfunction()

# linx_add_test(NAME SOURCES file... LIBRARIES target...)
# A GoogleTest program whose cases CTest runs one by one, each with a time limit of its own. Parameters are not in the
# names: those that are pointers would change them from build to build.
#
# linx_add_test(NAME COMMAND word... [TIMEOUT seconds] [ENVIRONMENT VARIABLE=value...] [PROPERTIES name value...])
# Any other test: a command that returns 0 when it has passed and 77 when this machine cannot run it.
function(linx_add_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LIBRARIES;COMMAND;ENVIRONMENT;PROPERTIES" ${ARGN})
  if(arg_COMMAND)
    add_test(NAME ${name} COMMAND ${arg_COMMAND})
    set_tests_properties(${name} PROPERTIES TIMEOUT 120 SKIP_RETURN_CODE 77 ENVIRONMENT "${arg_ENVIRONMENT}")
    if(arg_TIMEOUT)
      set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT})
    endif()
    if(arg_PROPERTIES)
      set_tests_properties(${name} PROPERTIES ${arg_PROPERTIES})
    endif()
    return()
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock GTest::gtest_main)
  linx_compile_quickly(${name})
  gtest_discover_tests(${name} TEST_PREFIX "${name}." NO_PRETTY_VALUES PROPERTIES TIMEOUT 120 DISCOVERY_TIMEOUT 60)
endfunction()
