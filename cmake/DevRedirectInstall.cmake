# SPDX-License-Identifier: LGPL-2.1-or-later
# The installed tree: the library, its headers, a CMake package, a pkg-config file and the licence.

include(CMakePackageConfigHelpers)
set(DEVREDIRECT_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/DevRedirect)

install(TARGETS devredirecthandler EXPORT DevRedirectTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(header ${DEVREDIRECT_PUBLIC_HEADERS})
    get_filename_component(room ${header} DIRECTORY)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/devredirect/${room})
endforeach()
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/include/devredirectexport.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/devredirect)

install(EXPORT DevRedirectTargets NAMESPACE DevRedirect:: DESTINATION ${DEVREDIRECT_CMAKE_DIR})
configure_package_config_file(cmake/DevRedirectConfig.cmake.in DevRedirectConfig.cmake
    INSTALL_DESTINATION ${DEVREDIRECT_CMAKE_DIR})
write_basic_package_version_file(DevRedirectConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/DevRedirectConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/DevRedirectConfigVersion.cmake DESTINATION ${DEVREDIRECT_CMAKE_DIR})

# Relative, so that the installed tree can be moved.
file(RELATIVE_PATH DEVREDIRECT_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/devredirecthandler.pc.in devredirecthandler.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/devredirecthandler.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
