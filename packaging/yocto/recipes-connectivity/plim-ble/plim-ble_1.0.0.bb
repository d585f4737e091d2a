SUMMARY = "Bluetooth Low Energy peripherals through BlueZ, for Qt 5"
DESCRIPTION = "A Qt 5 program builds a GATT tree and an advertisement, and one manager registers them with the \
BlueZ daemon, again and again as that comes and goes."
SECTION = "libs"
# The sources name no licence yet; put it here, with LIC_FILES_CHKSUM, once they do.
LICENSE = "CLOSED"

DEPENDS = "qtbase log4cplus"

# Where your copy of the repository is, and which commit of it; set both in your distribution's configuration.
PLIM_BLE_REPOSITORY ??= "git://example.org/plim_ble.git;protocol=https;branch=main"
PLIM_BLE_REVISION ??= "${AUTOREV}"
SRC_URI = "${PLIM_BLE_REPOSITORY}"
SRCREV = "${PLIM_BLE_REVISION}"
S = "${WORKDIR}/git"

inherit cmake_qt5 pkgconfig

EXTRA_OECMAKE += "-DPLIM_BUILD_EXAMPLES=OFF -DPLIM_BUILD_TESTS=OFF"

# The stand-in daemon, to test programs on the device without its radio, and the doctor.
PACKAGECONFIG ??= ""
PACKAGECONFIG[tools] = "-DPLIM_BUILD_TOOLS=ON,-DPLIM_BUILD_TOOLS=OFF"

PACKAGES =+ "${PN}-tools"
FILES:${PN}-tools = "${bindir}/plim-*"
RRECOMMENDS:${PN} = "bluez5"
