# What holds for every target: language, warnings, sanitizers, where results go.
if(NOT FERRY_PACKAGES) # there GNUInstallDirs finds what Debian calls it for this machine
  set(CMAKE_INSTALL_LIBDIR lib CACHE STRING "Where libraries are installed")
endif()
include(GNUInstallDirs)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/archive)

# The tool finds the client library beside itself, in a build tree and in an installed prefix alike.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
file(RELATIVE_PATH to_libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib" "$ORIGIN/${to_libraries}")
list(REMOVE_DUPLICATES CMAKE_INSTALL_RPATH)
if(FERRY_PACKAGES) # the loader looks there by itself
  set(CMAKE_INSTALL_RPATH "")
endif()

find_program(FERRY_CCACHE ccache)
if(FERRY_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${FERRY_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${FERRY_CCACHE})
endif()

if(FERRY_SANITIZE)
  add_compile_options(-fsanitize=${FERRY_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${FERRY_SANITIZE})
endif()

# For a folder where nothing has to be fast: a sanitizer's checks in what is inlined from large headers
# take more time to optimise than all else together.
macro(ferry_sanitize_unoptimised)
  if(FERRY_SANITIZE)
    add_compile_options(-O0)
  endif()
endmacro()

# Warnings for our own code, in one place.
function(ferry_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wpointer-arith -Wcast-qual
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi>
    $<$<BOOL:${FERRY_WERROR}>:-Werror>)
  # g++ 12 warns of thread sanitizer's missing fences even where none matter.
  if(FERRY_SANITIZE STREQUAL "thread")
    target_compile_options(${target} PRIVATE -Wno-tsan)
  endif()
  if(FERRY_TIDY)
    find_program(FERRY_CLANG_TIDY clang-tidy REQUIRED)
    set_target_properties(${target} PROPERTIES CXX_CLANG_TIDY
      "${FERRY_CLANG_TIDY};--quiet;--extra-arg=-Wno-unknown-warning-option")
  endif()
endfunction()
