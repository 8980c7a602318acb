# nlohmann_json::nlohmann_json: headers alone, found as those of CLI11 are.
find_path(NLOHMANN_JSON_INCLUDE_DIR nlohmann/json.hpp NO_CMAKE_FIND_ROOT_PATH)
if(NOT NLOHMANN_JSON_INCLUDE_DIR)
  message(FATAL_ERROR "nlohmann/json.hpp is missing (nlohmann-json3-dev): install it, or use -DLINXIPC_BUILD_TOOLS=OFF")
endif()
add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
target_compile_options(nlohmann_json::nlohmann_json INTERFACE "SHELL:-idirafter ${NLOHMANN_JSON_INCLUDE_DIR}")
