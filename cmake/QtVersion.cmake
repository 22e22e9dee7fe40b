# The Qt that the library is built on, and what it is called then. The one on Qt 5 has the plain
# names; the other stands beside it in the same prefix.

set(TARVISNET_QT 5 CACHE STRING "Version of Qt to build on: 5 or 6")
set_property(CACHE TARVISNET_QT PROPERTY STRINGS 5 6)

if(TARVISNET_QT STREQUAL "5")
    set(TARVISNET_QT_MINIMUM 5.15)
    set(TARVISNET_DEBIAN_QT qtbase5-dev)
    set(TARVISNET_PACKAGE TarvisNet)
    set(TARVISNET_FILE_NAME tarvisnet)
    set(TARVISNET_INCLUDE_DIR "${CMAKE_INSTALL_INCLUDEDIR}")
    set(TARVISNET_DEBIAN_RUNTIME "libtarvisnet${PROJECT_VERSION_MAJOR}")
elseif(TARVISNET_QT STREQUAL "6")
    set(TARVISNET_QT_MINIMUM 6.4)
    set(TARVISNET_DEBIAN_QT qt6-base-dev)
    set(TARVISNET_PACKAGE TarvisNetQt6)
    set(TARVISNET_FILE_NAME tarvisnet-qt6)
    set(TARVISNET_INCLUDE_DIR "${CMAKE_INSTALL_INCLUDEDIR}/tarvisnet-qt6")
    set(TARVISNET_DEBIAN_RUNTIME "libtarvisnet-qt6-${PROJECT_VERSION_MAJOR}")
else()
    message(FATAL_ERROR "TARVISNET_QT is ${TARVISNET_QT}, but has to be 5 or 6")
endif()

