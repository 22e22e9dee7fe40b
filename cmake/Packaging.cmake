# What find_package() and pkg-config read. Both files find the library relative to themselves, so
# that the installed tree may be moved.

include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/${TARVISNET_PACKAGE}")

configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/Config.cmake.in"
    "${PROJECT_BINARY_DIR}/${TARVISNET_PACKAGE}Config.cmake"
    INSTALL_DESTINATION "${package_dir}"
    NO_SET_AND_CHECK_MACRO)

write_basic_package_version_file(
    "${PROJECT_BINARY_DIR}/${TARVISNET_PACKAGE}ConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)

install(EXPORT ${TARVISNET_PACKAGE}Targets
    NAMESPACE TarvisNet::
    DESTINATION "${package_dir}"
    COMPONENT Development)

install(FILES
    "${PROJECT_BINARY_DIR}/${TARVISNET_PACKAGE}Config.cmake"
    "${PROJECT_BINARY_DIR}/${TARVISNET_PACKAGE}ConfigVersion.cmake"
    DESTINATION "${package_dir}"
    COMPONENT Development)

file(RELATIVE_PATH pc_prefix
    "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
configure_file(
    "${PROJECT_SOURCE_DIR}/cmake/tarvisnet.pc.in"
    "${PROJECT_BINARY_DIR}/${TARVISNET_FILE_NAME}.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/${TARVISNET_FILE_NAME}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    COMPONENT Development)

# The Debian packages: the library itself, and what building against it takes.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${TARVISNET_FILE_NAME})
set(CPACK_PACKAGE_CONTACT "The TarvisNet developers <tarvisnet@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_COMPONENTS_ALL Runtime Development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "${TARVISNET_DEBIAN_RUNTIME}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME "lib${TARVISNET_FILE_NAME}-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${TARVISNET_DEBIAN_RUNTIME} (= ${PROJECT_VERSION}), ${TARVISNET_DEBIAN_QT} (>= ${TARVISNET_QT_MINIMUM})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} (development files)")
include(CPack)
