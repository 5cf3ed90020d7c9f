# The Debian package: `cpack -G DEB` in a build folder makes velmora_<version>_<arch>.deb with
# everything VelmoraInstall.cmake installs, under /usr. Configure the build with
# -DCMAKE_INSTALL_PREFIX=/usr so that the library lands in Debian's multiarch folder
# (/usr/lib/<multiarch>); with the default prefix it goes to /usr/lib.
#
# Depends is computed by dpkg-shlibdeps (package dpkg-dev) from what the library and the tool
# actually load: the OpenCV runtime packages, libc, libstdc++ and libgcc. The colour step and the
# video steps start rawtherapee-cli and ffmpeg, and the Python package needs python3, hence the
# Recommends; the batch's job script submits through Slurm's client commands, hence the Suggests.
set(VELMORA_PACKAGE_MAINTAINER "Velmora maintainers <velmora@localhost>"
    CACHE STRING "Maintainer field of the Debian package")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velmora)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${VELMORA_PACKAGE_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "panoramas from the shots of a rotating two-camera rig")
set(CPACK_PACKAGE_DESCRIPTION
    "Velmora turns the shots of a rotating two-camera panoramic rig into equirectangular
panoramas: optical-flow stitching, exposure fusion, panorama repair, a colour step and a
video stitch driven by external tools. The package holds the shared library, its C header,
the CMake package and the pkg-config file for linking it, the velmora command-line tool, the
Linux colour-step script with its profiles, the Python package velmora, and the batch's Slurm
job script and Kubernetes Job.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The tool loads libvelmora.so.1 from this same package: dpkg-shlibdeps looks it up here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
# A shlibs file, so that packages built against this one depend on it, and the ldconfig trigger.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "rawtherapee, ffmpeg, python3")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "slurm-client")

include(CPack)
