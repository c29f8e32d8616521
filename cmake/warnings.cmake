# Strict warnings for every target of the project: warnings are errors.
add_compile_options(-Wall -Wextra -Werror -Wnon-virtual-dtor)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 reports false positives from inlined standard-library code at -O2.
  add_compile_options(-Wno-maybe-uninitialized -Wno-stringop-overflow -Wno-array-bounds -Wno-restrict)
endif()
