# The version of Qt that everything is built with. What a build with Qt 6 installs has other names, so that it can be
# beside what a build with Qt 5 installs:
#   PLIM_LIBRARY_SUFFIX  libplim_ble-qt6
#   PLIM_PACKAGE_SUFFIX  the CMake package and the pkg-config file plim_ble_qt6
#   PLIM_INCLUDEDIR      include/plim-qt6, with the same folders below as include has: <plim/peripheral.h>
# The tools are the same with both. Only a build with Qt 5 installs them; the other one builds them for its tests.

set(PLIM_QT 5 CACHE STRING "The major version of Qt: 5 or 6")
set_property(CACHE PLIM_QT PROPERTY STRINGS 5 6)

if(PLIM_QT STREQUAL "5")
    set(PLIM_QT_MINIMUM 5.15)
    set(PLIM_LIBRARY_SUFFIX "")
    set(PLIM_PACKAGE_SUFFIX "")
    set(PLIM_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
    set(PLIM_INSTALL_TOOLS ON)
elseif(PLIM_QT STREQUAL "6")
    set(PLIM_QT_MINIMUM 6.4)
    set(PLIM_LIBRARY_SUFFIX -qt6)
    set(PLIM_PACKAGE_SUFFIX _qt6)
    set(PLIM_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/plim-qt6)
    set(PLIM_INSTALL_TOOLS OFF)
else()
    message(FATAL_ERROR "PLIM_QT is \"${PLIM_QT}\"; it must be 5 or 6")
endif()
find_package(Qt${PLIM_QT} ${PLIM_QT_MINIMUM} REQUIRED COMPONENTS Core DBus)

# Qt::Test, in the calling folder. Qt defines the build folder's name for QFINDTESTDATA, which no test here uses. With it
# no clone could use what another one has compiled, and no test the headers that were compiled before.
macro(plim_find_qt_test)
    find_package(Qt${PLIM_QT} ${PLIM_QT_MINIMUM} REQUIRED COMPONENTS Test)
    set_property(TARGET Qt${PLIM_QT}::Test PROPERTY INTERFACE_COMPILE_DEFINITIONS QT_TESTLIB_LIB)
endmacro()
