# CLI11::CLI11: headers alone, which serve every target. Searched last, as those beside them are this machine's.
find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp REQUIRED NO_CMAKE_FIND_ROOT_PATH)
add_library(CLI11::CLI11 INTERFACE IMPORTED)
target_compile_options(CLI11::CLI11 INTERFACE "SHELL:-idirafter ${CLI11_INCLUDE_DIR}")
