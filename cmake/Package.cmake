# What other programs find the libraries by: pkg-config files and a CMake package. Both tell the
# places relative to their own, so that an installation may be moved.
include(CMakePackageConfigHelpers)

file(RELATIVE_PATH to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" to_prefix "${to_prefix}")

# bxm_pkg_config(NAME library description)
function(bxm_pkg_config name library description)
  configure_file(cmake/bxm.pc.in ${CMAKE_BINARY_DIR}/package/${name}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/package/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endfunction()
bxm_pkg_config(bxm bxm_r "Durable message queues, embedded in the program")
bxm_pkg_config(bxic bxic_r "Durable message queues in a PostgreSQL database")

set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/bxm)
configure_package_config_file(cmake/bxmConfig.cmake.in ${CMAKE_BINARY_DIR}/package/bxmConfig.cmake
  INSTALL_DESTINATION ${cmake_folder})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/bxmConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package/bxmConfig.cmake
  ${CMAKE_BINARY_DIR}/package/bxmConfigVersion.cmake
  DESTINATION ${cmake_folder} COMPONENT dev)

set(documents ${CMAKE_INSTALL_DOCDIR})
if(FERRY_PACKAGES)
  set(documents ${CMAKE_INSTALL_DATAROOTDIR}/doc/bxm-dev)
endif()
install(DIRECTORY examples DESTINATION ${documents} COMPONENT dev USE_SOURCE_PERMISSIONS)
