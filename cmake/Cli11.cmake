# CLI11::CLI11: headers alone, taken through a link, as those beside them need not be the target's.
find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp REQUIRED NO_CMAKE_FIND_ROOT_PATH)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/include)
file(CREATE_LINK ${CLI11_INCLUDE_DIR}/CLI ${PROJECT_BINARY_DIR}/include/CLI SYMBOLIC)
add_library(CLI11::CLI11 INTERFACE IMPORTED)
target_include_directories(CLI11::CLI11 INTERFACE ${PROJECT_BINARY_DIR}/include)
