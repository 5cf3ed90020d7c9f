# What `cmake --install` puts where (GNU install directories under the prefix):
#
#   lib/libvelmora.so.<version>, libvelmora.so.<major> -> it, libvelmora.so -> libvelmora.so.<major>
#   include/velmora.h
#   bin/velmora                                   the command-line tool, when it is built
#   share/velmora/isp/isp.bat, asset/*.pp3        the Linux colour step
#   share/velmora/cluster/                        the batch's Slurm job script and Kubernetes Job
#   share/velmora/viewer/                         the report page's 360 viewer and stylesheet
#   share/doc/velmora/README.md
#   lib/python3/dist-packages/velmora/            the Python package (python/CMakeLists.txt)
#   lib/cmake/Velmora/                            find_package(Velmora) -> Velmora::velmora
#   lib/pkgconfig/velmora.pc
#
# (lib/ is lib/<multiarch> on Debian when the prefix is /usr.) The library's version comes from
# project() and nowhere else. A consumer links the library alone: OpenCV and the thread library
# are private dependencies of the shared object, and the header needs neither.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VELMORA_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Velmora)
set(VELMORA_INSTALL_DATADIR ${CMAKE_INSTALL_DATADIR}/velmora)
set(VELMORA_INSTALL_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/velmora)

# ---- The library and its header ---------------------------------------------------------------
set_target_properties(velmora PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  PUBLIC_HEADER ${PROJECT_SOURCE_DIR}/include/velmora.h)
# The same name a host uses after find_package, for projects that add Velmora as a subdirectory.
add_library(Velmora::velmora ALIAS velmora)

install(TARGETS velmora EXPORT VelmoraTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# ---- The command-line tool --------------------------------------------------------------------
# apps/ builds velmora_tool (output name `velmora`) when CLI11 and the simulator are there. The
# installed tool finds the library next to itself, wherever the tree is installed.
# VELMORA_INSTALLED_TOOL names the installed target, for the checks of the installed tree.
set(VELMORA_INSTALLED_TOOL "" CACHE INTERNAL "")
if(TARGET velmora_tool)
  set(VELMORA_INSTALLED_TOOL velmora_tool CACHE INTERNAL "")
  file(RELATIVE_PATH tool_to_libdir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(velmora_tool PROPERTIES INSTALL_RPATH "$ORIGIN/${tool_to_libdir}")
  install(TARGETS velmora_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  # The tool copies these into every report folder it writes.
  install(DIRECTORY ${VELMORA_VIEWER_STAGE}/ DESTINATION ${VELMORA_INSTALL_DATADIR}/viewer)
endif()

# ---- The Linux colour step, the cluster files and the README -------------------------------------
# USE_SOURCE_PERMISSIONS keeps isp.bat and the job script executable.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/share/isp/ DESTINATION ${VELMORA_INSTALL_DATADIR}/isp
        USE_SOURCE_PERMISSIONS)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/share/cluster/ DESTINATION ${VELMORA_INSTALL_DATADIR}/cluster
        USE_SOURCE_PERMISSIONS)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${VELMORA_INSTALL_DOCDIR})

# ---- CMake package ----------------------------------------------------------------------------
install(EXPORT VelmoraTargets NAMESPACE Velmora:: DESTINATION ${VELMORA_INSTALL_CMAKEDIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/VelmoraConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/VelmoraConfig.cmake
  INSTALL_DESTINATION ${VELMORA_INSTALL_CMAKEDIR})
# Within one major version the interface only grows, as the SONAME says.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/VelmoraConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/VelmoraConfig.cmake
              ${PROJECT_BINARY_DIR}/package/VelmoraConfigVersion.cmake
        DESTINATION ${VELMORA_INSTALL_CMAKEDIR})

# ---- pkg-config -------------------------------------------------------------------------------
# The prefix is written relative to the .pc file's own folder, so the file stays right when the
# tree is installed elsewhere (cmake --install --prefix, DESTDIR, a package).
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
  set(VELMORA_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
  set(VELMORA_PC_LIBDIR ${CMAKE_INSTALL_FULL_LIBDIR})
  set(VELMORA_PC_INCLUDEDIR ${CMAKE_INSTALL_FULL_INCLUDEDIR})
else()
  file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
  set(VELMORA_PC_PREFIX "\${pcfiledir}/${pc_to_prefix}")
  set(VELMORA_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(VELMORA_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/velmora.pc.in ${PROJECT_BINARY_DIR}/package/velmora.pc
               @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/velmora.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# ---- The install test -------------------------------------------------------------------------
if(VELMORA_BUILD_TESTS)
  add_subdirectory(${PROJECT_SOURCE_DIR}/tests/install ${PROJECT_BINARY_DIR}/tests/install)
endif()
