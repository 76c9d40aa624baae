# Warnings and hardening, for all that is compiled here, and what makes each build the same.

include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel,None>)

add_library(checks INTERFACE)
target_compile_options(checks INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
target_compile_definitions(checks INTERFACE _GLIBCXX_ASSERTIONS)

# For what only tests the rest and is compiled in each build: quickly. Debian's own flags want
# _FORTIFY_SOURCE, which is nothing without optimising.
add_library(test_flags INTERFACE)
target_compile_options(test_flags INTERFACE -O0 -U_FORTIFY_SOURCE)
target_link_libraries(test_flags INTERFACE checks)

if(KELVO_STATIC)
  set(static -static)
  # Debian's C library for armhf cannot be at any address when it is linked statically.
  check_linker_flag(CXX -static-pie linker_has_static_pie)
  if(linker_has_static_pie)
    set(static -static-pie)
  endif()
endif()

add_library(build_flags INTERFACE)
target_link_libraries(build_flags INTERFACE checks)
target_compile_options(build_flags INTERFACE -fstack-protector-strong)
target_link_options(build_flags INTERFACE
  -Wl,-z,relro -Wl,-z,now ${static})

# Which of these there are depends on the processor: jumps are guarded by the second on amd64, by
# the third on arm64. Clang only warns of one that it has no use for.
set(CMAKE_REQUIRED_FLAGS -Werror)
foreach(flag IN ITEMS -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER "compiler_has${flag}" has_flag)
  check_cxx_compiler_flag(${flag} ${has_flag})
  target_compile_options(build_flags INTERFACE $<$<BOOL:${${has_flag}}>:${flag}>)
endforeach()
unset(CMAKE_REQUIRED_FLAGS)

# It needs an optimised build, and for its third level GCC 12 or Clang.
set(fortify_level 3)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 12)
  set(fortify_level 2)
endif()
target_compile_options(build_flags INTERFACE
  $<${optimised}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=${fortify_level}>)

# No file names the folder in which it was built; for a debugger of a debug build each does. Who
# builds a system may have a name of his own for the folder.
if(NOT CMAKE_CXX_FLAGS MATCHES prefix-map)
  foreach(folder IN ITEMS ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
    target_compile_options(build_flags INTERFACE $<${optimised}:-ffile-prefix-map=${folder}=.>)
  endforeach()
endif()

# Which package a file belongs to, for who finds it alone.
set(KELVO_PACKAGE_NOTE "" CACHE STRING "The executables' package note, JSON (default: as a source's)")
check_linker_flag(CXX LINKER:--package-metadata={} linker_has_package_metadata)
function(add_package_note target)
  set(note "${KELVO_PACKAGE_NOTE}")
  if(note STREQUAL "")
    set(note "{\"type\":\"source\",\"name\":\"kelvo-pwr\",\"version\":\"${PROJECT_VERSION}\"}")
  endif()
  if(linker_has_package_metadata)
    # The linker's own word, for the compiler would part what is passed on at each comma.
    target_link_options(${target} PRIVATE "SHELL:-Xlinker '--package-metadata=${note}'")
  endif()
endfunction()
