add_compile_options(-Wall -Wextra -Wconversion -Wshadow -Werror)
