# A Debian package of the installed tree: the tools, their man pages, the library, its
# headers and its CMake package. `make package` builds it.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME twiss)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "twiss developers <twiss@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Beam optics at planes along a simulated beamline, and the Nexil library")
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libqt6core6 (>= 6.4), libqt6core5compat6 (>= 6.4), libqt6gui6 (>= 6.4), libqt6svg6 (>= 6.4), libhdf5-103-1, libzstd1, zlib1g, liblzma5, fonts-dejavu-core")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
