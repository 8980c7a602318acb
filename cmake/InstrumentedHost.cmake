# linx_add_instrumented_host(NAME option...): the sources of host/, as they ship, over the cells of the folder instrumented/
# beside the caller.
function(linx_add_instrumented_host name)
  get_target_property(sources linxhostobjects SOURCES)
  get_target_property(validator linxvalidator SOURCES)
  list(APPEND sources ${validator})
  list(REMOVE_DUPLICATES sources)
  list(TRANSFORM sources PREPEND ${PROJECT_SOURCE_DIR}/host/)
  add_library(${name} OBJECT ${sources})
  target_include_directories(${name} BEFORE PUBLIC instrumented ${PROJECT_SOURCE_DIR})
  target_compile_definitions(${name} PUBLIC _FILE_OFFSET_BITS=64)
  target_compile_options(${name} PRIVATE ${ARGN})
  set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
endfunction()
