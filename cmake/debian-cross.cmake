# What toolchain files for another machine have in common, which say its `triplet`: Debian's cross compiler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)

set(CMAKE_FIND_ROOT_PATH /usr/${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# What there is of libraries is for this machine; GoogleTest is built along.
set(LINXIPC_SYSTEMD OFF CACHE BOOL "")
set(LINXIPC_GOOGLETEST /usr/src/googletest CACHE PATH "")
