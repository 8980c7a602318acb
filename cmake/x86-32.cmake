# Toolchain: 32-bit programs on and for a 64-bit x86 machine, which runs both.
set(CMAKE_C_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT}")

# What there is of libraries is for 64 bits; GoogleTest is built along.
set(LINXIPC_SYSTEMD OFF CACHE BOOL "")
set(LINXIPC_GOOGLETEST /usr/src/googletest CACHE PATH "")
