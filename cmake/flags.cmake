# SPDX-License-Identifier: Apache-2.0
# Two interface targets carry the compiler's settings: vx_flags for everything that is built here,
# vx_plain_runtime for what must run on libc alone.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

add_library(vx_flags INTERFACE)
target_compile_options(vx_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Wformat-nonliteral
  -Wimplicit-fallthrough
  # Paths in trace records and messages start at the source tree, whoever builds it.
  "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
if(VX_WERROR)
  target_compile_options(vx_flags INTERFACE -Werror)
endif()

# No exceptions, no RTTI, no guards around local statics: nothing of the C++ run-time library is
# referenced, and C programs link the library with a plain cc.
add_library(vx_plain_runtime INTERFACE)
target_compile_options(vx_plain_runtime INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)

if(VX_SANITIZE)
  add_compile_options(-fsanitize=${VX_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all -g)
  add_link_options(-fsanitize=${VX_SANITIZE} -fno-sanitize-recover=all)
endif()

# The OpenSSF's list for C and C++, as far as this compiler and linker know it, but for
# _GLIBCXX_ASSERTIONS: its checks call into the C++ run-time library.
if(VX_HARDENING AND NOT VX_SANITIZE)
  set(vx_release "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
  target_compile_options(vx_flags INTERFACE
    $<${vx_release}:-U_FORTIFY_SOURCE>
    $<${vx_release}:-Werror=format-security>)
  foreach(flag IN ITEMS -fstack-protector-strong -fstack-clash-protection -fcf-protection=full
      -ftrivial-auto-var-init=zero -fno-delete-null-pointer-checks -fno-strict-overflow
      -fno-strict-aliasing -fstrict-flex-arrays=3 "-D_FORTIFY_SOURCE=3")
    string(MAKE_C_IDENTIFIER "vx_has${flag}" known)
    check_cxx_compiler_flag("${flag}" ${known})
    if(${known})
      target_compile_options(vx_flags INTERFACE "$<${vx_release}:${flag}>")
    endif()
  endforeach()
  foreach(flag IN ITEMS -Wl,-z,noexecstack -Wl,-z,relro -Wl,-z,now -Wl,-z,separate-code
      -Wl,--as-needed -Wl,--no-copy-dt-needed-entries)
    string(MAKE_C_IDENTIFIER "vx_has${flag}" known)
    check_linker_flag(CXX "${flag}" ${known})
    if(${known})
      target_link_options(vx_flags INTERFACE "$<${vx_release}:${flag}>")
    endif()
  endforeach()
endif()
