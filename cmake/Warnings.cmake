# Told to everybody. Errors they are only in the presets of those who work on the code: another compiler may know more.
add_compile_options(-Wall -Wextra -Wconversion -Wshadow)
if(CMAKE_COMPILE_WARNING_AS_ERROR AND CMAKE_VERSION VERSION_LESS 3.24)  # which is the first to heed it by itself
  add_compile_options(-Werror)
endif()
