# Installs libnuvik.so, its public headers, a CMake package (find_package(nuvik)
# gives nuvik::nuvik) and a pkg-config file.
include(CMakePackageConfigHelpers)

set(NUVIK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/nuvik)
if(NUVIK_JSONCPP_BUNDLED)
  set(NUVIK_JSONCPP_SYSTEM OFF)
  set(NUVIK_PC_REQUIRES_PRIVATE "")
else()
  set(NUVIK_JSONCPP_SYSTEM ON)
  set(NUVIK_PC_REQUIRES_PRIVATE "jsoncpp")
endif()
if(NUVIK_SIMDJSON_BUNDLED)
  set(NUVIK_SIMDJSON_SYSTEM OFF)
else()
  set(NUVIK_SIMDJSON_SYSTEM ON)
  string(STRIP "${NUVIK_PC_REQUIRES_PRIVATE} simdjson" NUVIK_PC_REQUIRES_PRIVATE)
endif()

install(TARGETS nuvik EXPORT nuvikTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES include/nuvik/Nuvik.h include/nuvik/Suggestions.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nuvik)
install(EXPORT nuvikTargets NAMESPACE nuvik:: DESTINATION ${NUVIK_CMAKE_DIR})

configure_package_config_file(cmake/nuvikConfig.cmake.in
  ${PROJECT_BINARY_DIR}/nuvikConfig.cmake
  INSTALL_DESTINATION ${NUVIK_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/nuvikConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/nuvikConfig.cmake
  ${PROJECT_BINARY_DIR}/nuvikConfigVersion.cmake
  DESTINATION ${NUVIK_CMAKE_DIR})

# Relocatable: the prefix is found from where the .pc file lies.
file(RELATIVE_PATH NUVIK_PC_PREFIX_FROM_PCDIR
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/nuvik.pc.in ${PROJECT_BINARY_DIR}/nuvik.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/nuvik.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
