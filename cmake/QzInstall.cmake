# Installation: the public headers, libqzbase and libqzvault (with their
# SOVERSION links), the exported CMake package "QzVault" and the pkg-config
# files. Internal targets (qzvault_core, test support, tests, benchmarks and
# examples) are never installed. Plug-ins are installed by their own rules
# into QZ_PLUGIN_INSTALL_DIR.
#
# Components: "Runtime" holds the shared libraries; "Development" holds the
# headers, the linker name links, the CMake package and the pkg-config files.
include(CMakePackageConfigHelpers)

set(QZ_CMAKE_INSTALL_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/QzVault"
    CACHE STRING "Directory of the installed CMake package, relative to the install prefix")
mark_as_advanced(QZ_CMAKE_INSTALL_DIR)

# libqzvault needs libqzbase at run time; both are installed side by side, so
# the loader finds one from the other even when a host links only libqzvault.
set_target_properties(qzbase qzvault PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS qzbase qzvault
  EXPORT QzVaultTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
          COMPONENT Runtime
          NAMELINK_COMPONENT Development
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")

# Only the headers under include/ are the library's interface.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/qzbase" "${PROJECT_SOURCE_DIR}/include/qzvault"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
  COMPONENT Development
  FILES_MATCHING PATTERN "*.h")

install(EXPORT QzVaultTargets
  NAMESPACE QzVault::
  FILE QzVaultTargets.cmake
  DESTINATION "${QZ_CMAKE_INSTALL_DIR}"
  COMPONENT Development)

configure_package_config_file(
  "${CMAKE_CURRENT_LIST_DIR}/QzVaultConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/cmake/QzVaultConfig.cmake"
  INSTALL_DESTINATION "${QZ_CMAKE_INSTALL_DIR}"
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR QZ_PLUGIN_INSTALL_DIR)
# Releases within one major version keep the interfaces and the ABI.
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/cmake/QzVaultConfigVersion.cmake"
  VERSION "${PROJECT_VERSION}"
  COMPATIBILITY SameMajorVersion)
install(FILES
    "${PROJECT_BINARY_DIR}/cmake/QzVaultConfig.cmake"
    "${PROJECT_BINARY_DIR}/cmake/QzVaultConfigVersion.cmake"
  DESTINATION "${QZ_CMAKE_INSTALL_DIR}"
  COMPONENT Development)

# pkg-config files. Their "prefix" must be the prefix actually installed into,
# which `cmake --install --prefix` may change after configuration, so they
# are written at install time from the templates under cmake/. A directory
# given relative to the prefix becomes "${prefix}/dir"; an absolute one stays.
function(qz_pc_dir out dir)
  if(IS_ABSOLUTE "${dir}")
    set(${out} "${dir}" PARENT_SCOPE)
  else()
    set(${out} "\${prefix}/${dir}" PARENT_SCOPE)
  endif()
endfunction()
qz_pc_dir(QZ_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
qz_pc_dir(QZ_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
qz_pc_dir(QZ_PC_PLUGINDIR "${QZ_PLUGIN_INSTALL_DIR}")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(QZ_PC_INSTALL_DIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
else()
  set(QZ_PC_INSTALL_DIR "\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endif()

foreach(pc_name IN ITEMS qzbase qzvault)
  install(CODE "
    set(QZ_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
    set(QZ_PC_LIBDIR [==[${QZ_PC_LIBDIR}]==])
    set(QZ_PC_INCLUDEDIR [==[${QZ_PC_INCLUDEDIR}]==])
    set(QZ_PC_PLUGINDIR [==[${QZ_PC_PLUGINDIR}]==])
    set(QZ_PC_VERSION [==[${PROJECT_VERSION}]==])
    set(QZ_PC_DESCRIPTION [==[${PROJECT_DESCRIPTION}]==])
    configure_file([==[${CMAKE_CURRENT_LIST_DIR}/${pc_name}.pc.in]==]
                   [==[${PROJECT_BINARY_DIR}/cmake/pkgconfig/${pc_name}.pc]==] @ONLY)
    file(INSTALL [==[${PROJECT_BINARY_DIR}/cmake/pkgconfig/${pc_name}.pc]==]
         DESTINATION \"${QZ_PC_INSTALL_DIR}\")
    " COMPONENT Development)
endforeach()
