# Installation: libraries, public headers under include/xmldsig, the xmldsig tool, a CMake
# package (find_package(xmldsig) gives xmldsig::xmldsig and xmldsig::xmldsig_shared) and a
# pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS xmldsig xmldsig_shared EXPORT xmldsigTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS xmldsig_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The public headers, listed in InstalledHeaders.txt; the other headers stay internal.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/InstalledHeaders.txt XMLDSIG_INSTALLED_HEADERS REGEX "^[^#]")
foreach(header ${XMLDSIG_INSTALLED_HEADERS})
  get_filename_component(dir ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/xmldsig/${dir})
endforeach()

set(XMLDSIG_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/xmldsig)
install(EXPORT xmldsigTargets NAMESPACE xmldsig:: DESTINATION ${XMLDSIG_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/xmldsigConfig.cmake.in
  ${PROJECT_BINARY_DIR}/xmldsigConfig.cmake INSTALL_DESTINATION ${XMLDSIG_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/xmldsigConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/xmldsigConfig.cmake ${PROJECT_BINARY_DIR}/xmldsigConfigVersion.cmake
  DESTINATION ${XMLDSIG_CMAKE_DIR})

file(RELATIVE_PATH XMLDSIG_PC_TO_PREFIX "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/xmldsig.pc.in ${PROJECT_BINARY_DIR}/xmldsig.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/xmldsig.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
