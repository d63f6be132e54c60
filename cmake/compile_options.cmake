# Options that every target of the project is built with.
add_library(orva_options INTERFACE)
target_compile_options(orva_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
  # Results are compared bit for bit across machines: never fuse a multiplication and an addition.
  -ffp-contract=off)
if(ORVA_WARNINGS_AS_ERRORS)
  target_compile_options(orva_options INTERFACE -Werror)
endif()
if(ORVA_SANITIZE)
  add_compile_options(-fsanitize=${ORVA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${ORVA_SANITIZE})
endif()
