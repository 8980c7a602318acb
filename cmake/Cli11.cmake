# CLI11::CLI11, also where the package brings its headers alone.
find_package(CLI11 QUIET)
if(NOT CLI11_FOUND)
  find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp REQUIRED)
  add_library(CLI11::CLI11 INTERFACE IMPORTED)
  target_include_directories(CLI11::CLI11 INTERFACE ${CLI11_INCLUDE_DIR})
endif()
