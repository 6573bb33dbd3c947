# ferry_library(NAME SOURCES file... USES target...): one static library of one folder. USES is the
# list of what the folder may include; nothing else reaches its include path by way of a target.
function(ferry_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_USES})
  ferry_warnings(${name})
endfunction()

# ferry_program(NAME SOURCES file... USES target...): an executable in build/<preset>/bin.
function(ferry_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${ARG_USES})
  ferry_warnings(${name})
endfunction()

# ferry_test(NAME SOURCES file... USES target... [MAIN]): a GoogleTest executable that
# ctest runs whole. With MAIN the sources bring their own main().
function(ferry_test name)
  cmake_parse_arguments(ARG "MAIN" "" "SOURCES;USES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  if(ARG_MAIN)
    target_link_libraries(${name} PRIVATE ${ARG_USES} GTest::gmock)
  else()
    target_link_libraries(${name} PRIVATE ${ARG_USES} GTest::gmock GTest::gtest_main)
  endif()
  ferry_warnings(${name})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests
                        BUILD_WITH_INSTALL_RPATH OFF INSTALL_RPATH "")
  set_target_properties(${name} PROPERTIES CXX_CLANG_TIDY "")
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES ENVIRONMENT
    "FERRY_BIN_DIR=${CMAKE_BINARY_DIR}/bin;FERRY_LIB_DIR=${CMAKE_BINARY_DIR}/lib")
endfunction()
