# 32-bit x86 Linux, for machines of 64 bits. Some of those run such programs themselves; an emulator runs them on others.
set(triplet i686-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
set(CMAKE_SYSTEM_PROCESSOR i686)

# Named in the programs, so that no other libraries for 32 bits are taken that the machine has.
set(libraries /usr/i686-linux-gnu/lib)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--dynamic-linker=${libraries}/ld-linux.so.2 -Wl,-rpath,${libraries}")

execute_process(COMMAND ${libraries}/ld-linux.so.2 --version RESULT_VARIABLE result OUTPUT_QUIET ERROR_QUIET)
if(NOT result EQUAL 0)
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-i386-static)
endif()
