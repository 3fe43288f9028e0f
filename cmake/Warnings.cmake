# Every target of the project builds with warnings as errors.
add_compile_options(-Wall -Wextra -Werror)
