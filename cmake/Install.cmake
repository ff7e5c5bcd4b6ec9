# What `cmake --install` lays out: DLL, message file, headers, both import libraries, CMake package, pkg-config
# file. Nothing in the installed tree names the place that it was installed to.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

foreach(folder BINDIR LIBDIR INCLUDEDIR)
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
        message(FATAL_ERROR "CMAKE_INSTALL_${folder} is a folder of the installed tree and has to be relative to it")
    endif()
endforeach()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/general)

install(TARGETS general EXPORT generalTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS general_message_file LIBRARY DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${general_microsoft_import_library} DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT generalTargets NAMESPACE general:: DESTINATION ${package_dir})

configure_package_config_file(cmake/generalConfig.cmake.in ${PROJECT_BINARY_DIR}/generalConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/generalConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/generalConfig.cmake ${PROJECT_BINARY_DIR}/generalConfigVersion.cmake
    DESTINATION ${package_dir})

file(RELATIVE_PATH pkgconfig_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/general.pc.in ${PROJECT_BINARY_DIR}/general.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/general.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
