# SPDX-License-Identifier: Apache-2.0
# The build of user.c by somebody else's project: one line finds the library.
cmake_minimum_required(VERSION 3.25)
project(user LANGUAGES C CXX)
if(VX_SOURCE)
  add_subdirectory(${VX_SOURCE} vxcore)
else()
  find_package(vxcore 1.0 REQUIRED COMPONENTS static shared)
  add_executable(user_shared user.${SUFFIX})
  target_link_libraries(user_shared PRIVATE vxcore::vxcore_shared)
endif()
add_executable(user user.${SUFFIX})
target_link_libraries(user PRIVATE vxcore::vxcore)
