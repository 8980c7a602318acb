# GoogleTest: as installed, or built along with the tests for a machine other than this one.
set(LINXIPC_GOOGLETEST "" CACHE PATH "Directory of GoogleTest's sources, to build it; empty for the installed one")

if(LINXIPC_GOOGLETEST)
  set(INSTALL_GTEST OFF)
  add_subdirectory(${LINXIPC_GOOGLETEST} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  foreach(library IN ITEMS gtest gtest_main gmock gmock_main)
    target_compile_options(${library} PRIVATE -w -O0)
  endforeach()
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)
