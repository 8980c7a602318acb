# linxipc::toml: headers alone, which serve every target, as in Cli11.cmake. Not made where this machine has none.
find_path(LINXIPC_TOML_INCLUDE_DIR toml++/toml.h NO_CMAKE_FIND_ROOT_PATH)
mark_as_advanced(LINXIPC_TOML_INCLUDE_DIR)
if(LINXIPC_TOML_INCLUDE_DIR)
  add_library(linxipc::toml INTERFACE IMPORTED GLOBAL)
  target_compile_options(linxipc::toml INTERFACE "SHELL:-idirafter ${LINXIPC_TOML_INCLUDE_DIR}")
endif()
