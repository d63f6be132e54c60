# Options that every target of the project is built with.
add_library(orva_options INTERFACE)
target_compile_options(orva_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
  # Results are compared bit for bit across machines: never fuse a multiplication and an addition.
  -ffp-contract=off)
if(ORVA_WARNINGS_AS_ERRORS)
  target_compile_options(orva_options INTERFACE -Werror)
endif()
if(ORVA_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
    message(FATAL_ERROR "ORVA_BUILD_FUZZ needs clang: configure with -DCMAKE_CXX_COMPILER=clang++")
  endif()
  if(NOT ORVA_SANITIZE)
    set(ORVA_SANITIZE address,undefined)  # a fuzzer without them sees next to nothing
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()

# Eigen without its own vector code: that fuses multiplications and additions by intrinsics where the machine can
# (arm64, x86-64 with FMA), whatever the compiler is told.
add_library(orva_eigen INTERFACE)
target_link_libraries(orva_eigen INTERFACE Eigen3::Eigen)
target_compile_definitions(orva_eigen INTERFACE EIGEN_DONT_VECTORIZE)

if(ORVA_SANITIZE)
  add_compile_options(-fsanitize=${ORVA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${ORVA_SANITIZE})
endif()

# What the packages are built with: a fault that is still in there shall end the program, not be of use to whoever
# found it. The hot loops are the same code with them, since they call nothing.
if(ORVA_HARDENED)
  # _FORTIFY_SOURCE=3 is known from g++ 12 and clang 9 on; a compiler's or a distribution's own level goes first.
  add_compile_options(-U_FORTIFY_SOURCE $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=3>
    -fstack-protector-strong -fstack-clash-protection -Wformat -Werror=format-security)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i.86)$")
    add_compile_options(-fcf-protection)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    add_compile_options(-mbranch-protection=standard)
  endif()
  add_link_options(-Wl,-z,relro -Wl,-z,now)
  include(CheckPIESupported)
  check_pie_supported()
endif()
