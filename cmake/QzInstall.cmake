# Installs libqzutil.so with its public headers, a CMake package
# (find_package(qzutil CONFIG), target qzutil::qzutil), a pkg-config file, and
# the qz tool when it is built. The package is relocatable: nothing in it
# names the prefix given at configure time, so `cmake --install --prefix` may
# put it anywhere.

include(CMakePackageConfigHelpers)

set(QZ_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/qzutil)
set(QZ_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Headers keep their folder below src/ (the file set's base), so users write
# the same "qzutil/<subsystem>/QzX.h" as the library does.
install(TARGETS qzutil EXPORT qzutilTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT qzutilTargets
  FILE qzutilTargets.cmake
  NAMESPACE qzutil::
  DESTINATION ${QZ_INSTALL_CMAKEDIR})

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/qzutilConfig.cmake.in
  ${PROJECT_BINARY_DIR}/qzutilConfig.cmake
  INSTALL_DESTINATION ${QZ_INSTALL_CMAKEDIR})

# 0.x releases are all one major version, so 0.1 users accept any 0.y >= 0.1.
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/qzutilConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)

install(FILES
  ${PROJECT_BINARY_DIR}/qzutilConfig.cmake
  ${PROJECT_BINARY_DIR}/qzutilConfigVersion.cmake
  DESTINATION ${QZ_INSTALL_CMAKEDIR})

# The .pc file finds the prefix from its own place, ${pcfiledir}, so it stays
# right wherever the tree is installed. Absolute install directories cannot
# move with it and are written as they are.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(QZ_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH qz_pc_up "/prefix/${QZ_INSTALL_PKGCONFIGDIR}" "/prefix")
  string(REGEX REPLACE "/$" "" qz_pc_up "${qz_pc_up}")
  set(QZ_PC_PREFIX "\${pcfiledir}/${qz_pc_up}")
endif()
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(QZ_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(QZ_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/qzutil.pc.in ${PROJECT_BINARY_DIR}/qzutil.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qzutil.pc DESTINATION ${QZ_INSTALL_PKGCONFIGDIR})

# The tool finds the library through $ORIGIN, so an installed qz runs from any
# prefix without LD_LIBRARY_PATH.
if(QZ_BUILD_TOOLS AND TARGET qz)
  file(RELATIVE_PATH qz_bin_to_lib "/prefix/${CMAKE_INSTALL_BINDIR}"
       "/prefix/${CMAKE_INSTALL_LIBDIR}")
  set_target_properties(qz PROPERTIES INSTALL_RPATH "$ORIGIN/${qz_bin_to_lib}")
  install(TARGETS qz RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
