# cpp-httplib, of which this uses the server. Debian builds it as a library with everything in it, and
# its types have one form only with the same macros; elsewhere it is a header, of which the plain form does.
find_path(FERRY_HTTPLIB_INCLUDE httplib.h REQUIRED)
find_library(FERRY_HTTPLIB_LIBRARY cpp-httplib)
find_package(Threads REQUIRED)
add_library(ferry_httplib INTERFACE)
target_include_directories(ferry_httplib SYSTEM INTERFACE ${FERRY_HTTPLIB_INCLUDE})
target_link_libraries(ferry_httplib INTERFACE Threads::Threads)
if(FERRY_HTTPLIB_LIBRARY)
  target_link_libraries(ferry_httplib INTERFACE ${FERRY_HTTPLIB_LIBRARY})
  target_compile_definitions(ferry_httplib INTERFACE CPPHTTPLIB_OPENSSL_SUPPORT
    CPPHTTPLIB_ZLIB_SUPPORT CPPHTTPLIB_BROTLI_SUPPORT)
endif()
