# Makes linxipc::zeromq where this machine has a libzmq to link with. One that is there may
# be for another machine than that which is built for: only linking tells.
include(CheckCXXSourceCompiles)

find_path(LINXIPC_ZEROMQ_INCLUDE_DIR zmq.h)
find_library(LINXIPC_ZEROMQ_LIBRARY zmq)
mark_as_advanced(LINXIPC_ZEROMQ_INCLUDE_DIR LINXIPC_ZEROMQ_LIBRARY)
if(NOT LINXIPC_ZEROMQ_INCLUDE_DIR OR NOT LINXIPC_ZEROMQ_LIBRARY)
  return()
endif()
set(CMAKE_REQUIRED_INCLUDES ${LINXIPC_ZEROMQ_INCLUDE_DIR})
set(CMAKE_REQUIRED_LIBRARIES ${LINXIPC_ZEROMQ_LIBRARY})
check_cxx_source_compiles("#include <zmq.h>
int main() { char key[41]; return zmq_curve_public(key, key) + ZMQ_EVENT_HANDSHAKE_FAILED_AUTH; }" LINXIPC_ZEROMQ_LINKS)
unset(CMAKE_REQUIRED_INCLUDES)
unset(CMAKE_REQUIRED_LIBRARIES)
if(NOT LINXIPC_ZEROMQ_LINKS)
  return()
endif()
add_library(linxipc::zeromq UNKNOWN IMPORTED GLOBAL)
set_target_properties(linxipc::zeromq PROPERTIES IMPORTED_LOCATION ${LINXIPC_ZEROMQ_LIBRARY}
                      INTERFACE_INCLUDE_DIRECTORIES ${LINXIPC_ZEROMQ_INCLUDE_DIR})
