# SPDX-License-Identifier: Apache-2.0
# Interface targets carry the compiler's settings, so that they reach what is built here and nothing
# else: vx_flags for everything, vx_plain_runtime for what must run on libc alone, vx_linking for what
# is linked and shipped, vx_padding for code whose speed is its loops'.
include(CheckCXXSourceCompiles)

add_library(vx_flags INTERFACE)
target_compile_options(vx_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Wformat-nonliteral
  -Wimplicit-fallthrough
  # Paths in trace records, messages and debug information start at the source tree, whoever builds.
  "-ffile-prefix-map=${PROJECT_BINARY_DIR}/=build/"
  "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
if(VX_WERROR)
  target_compile_options(vx_flags INTERFACE -Werror)
endif()

# No exceptions, no RTTI, no guards around local statics: nothing of the C++ run-time library is
# referenced, and C programs link the library with a plain cc. A section for each function and datum
# lets the linker leave out what a program does not use.
add_library(vx_plain_runtime INTERFACE)
target_compile_options(vx_plain_runtime INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
  -ffunction-sections -fdata-sections)

add_library(vx_linking INTERFACE)
target_link_options(vx_linking INTERFACE -Wl,--as-needed)
if(VX_SANITIZE)
  add_compile_options(-fsanitize=${VX_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all -g)
  add_link_options(-fsanitize=${VX_SANITIZE} -fno-sanitize-recover=all)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # Instrumented std::regex looks uninitialized to g++ 12.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    # Its check of called functions' types needs the C++ run-time library.
    add_compile_options(-fno-sanitize=function)
  endif()
else()
  target_link_options(vx_linking INTERFACE -Wl,--gc-sections)
endif()

# vx_add_known_flags(RESULT WHEN FLAG...): append the flags that this compiler and linker accept.
# A check takes a while, so all are tried at once first, and one by one only if that fails.
function(vx_add_known_flags result when)
  set(CMAKE_REQUIRED_QUIET ON)
  list(JOIN ARGN " " CMAKE_REQUIRED_${when})
  string(APPEND CMAKE_REQUIRED_${when} " -Werror")
  if(when STREQUAL LINK_OPTIONS)
    separate_arguments(CMAKE_REQUIRED_LINK_OPTIONS)
  endif()
  string(MAKE_C_IDENTIFIER "vx_knows${ARGN}" knows)
  check_cxx_source_compiles("int main() { return 0; }" ${knows})
  if(${knows})
    list(APPEND ${result} ${ARGN})
  elseif(ARGC GREATER 3)
    foreach(flag IN LISTS ARGN)
      vx_add_known_flags(${result} ${when} ${flag})
    endforeach()
  endif()
  set(${result} ${${result}} PARENT_SCOPE)
endfunction()

set(vx_release "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")

# Processors of the Skylake kind decode a jump anew each time when it touches the end of 32 bytes of
# code: a loop's speed would hang on where the linker puts it. The assembler pads such jumps away in
# the library and in what it is measured against; the command waits for the kernel, not for loops.
add_library(vx_padding INTERFACE)
vx_add_known_flags(vx_padding_flags FLAGS -Wa,-mbranches-within-32B-boundaries)
target_compile_options(vx_padding INTERFACE "$<${vx_release}:${vx_padding_flags}>")

# The OpenSSF's list for C and C++, as far as this compiler and linker know it, but for
# _GLIBCXX_ASSERTIONS: its checks call into the C++ run-time library.
if(VX_HARDENING AND NOT VX_SANITIZE)
  vx_add_known_flags(vx_compile_flags FLAGS
    -fstack-protector-strong -fstack-clash-protection -fcf-protection=full
    -fno-delete-null-pointer-checks -fno-strict-overflow -fno-strict-aliasing)
  vx_add_known_flags(vx_compile_flags FLAGS -ftrivial-auto-var-init=zero)
  if(NOT vx_compile_flags MATCHES "auto-var-init") # clang below 16 wants to be told twice
    vx_add_known_flags(vx_compile_flags FLAGS -ftrivial-auto-var-init=zero
      -enable-trivial-auto-var-init-zero-knowing-it-will-be-removed-from-clang)
  endif()
  vx_add_known_flags(vx_compile_flags FLAGS -fstrict-flex-arrays=3)
  vx_add_known_flags(vx_link_flags LINK_OPTIONS
    -Wl,-z,noexecstack -Wl,-z,relro -Wl,-z,now -Wl,-z,separate-code
    -Wl,--no-copy-dt-needed-entries)
  target_compile_options(vx_flags INTERFACE
    "$<${vx_release}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3;-Werror=format-security>"
    "$<${vx_release}:${vx_compile_flags}>")
  target_link_options(vx_linking INTERFACE "$<${vx_release}:${vx_link_flags}>")
endif()
