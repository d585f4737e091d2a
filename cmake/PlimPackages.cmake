# The Debian packages, one for each component of PlimInstall. scripts/package builds them with CPack, those for Qt 6 from a
# build of their own.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME plim-ble)
set(CPACK_PACKAGE_VENDOR plim_ble)
set(PLIM_PACKAGE_CONTACT "plim_ble maintainers <maintainers@example.org>" CACHE STRING
    "Who answers for the packages: NAME <ADDRESS>")
set(CPACK_PACKAGE_CONTACT ${PLIM_PACKAGE_CONTACT})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(runtimes runtime)
if(PLIM_BUILD_PERIPHERAL)
    list(APPEND runtimes peripheral-runtime)
endif()
set(CPACK_COMPONENTS_ALL ${runtimes} dev)
if(PLIM_INSTALL_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# Packages of programs that link the libraries ask for this version or a later one.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# Where dpkg-shlibdeps finds our own libraries, which no package on the machine holds.
set(libraries core dbus ble)
if(PLIM_BUILD_PERIPHERAL)
    list(APPEND libraries peripheral)
endif()
foreach(library IN LISTS libraries)
    get_target_property(folder plim_${library} BINARY_DIR)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${folder})
endforeach()

# Each package has a summary of its own; with a description of the project, CPack would put that above all of them.
set(CMAKE_PROJECT_DESCRIPTION "")
set(about " A Qt ${PLIM_QT} program builds a GATT tree and an advertisement, and one manager
 registers them with the BlueZ daemon, again and again as that comes and goes.")

# The libraries' packages are named after the SOVERSION, as Debian does: libplim-ble1, libplim-ble-qt6-1.
set(soname ${PLIM_LIBRARY_SUFFIX}${PROJECT_VERSION_MAJOR})
if(PLIM_LIBRARY_SUFFIX MATCHES "[0-9]$")
    set(soname ${PLIM_LIBRARY_SUFFIX}-${PROJECT_VERSION_MAJOR})
endif()
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libplim-ble${soname})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "Bluetooth Low Energy peripherals through BlueZ: shared libraries\n${about}")

set(CPACK_DEBIAN_PERIPHERAL-RUNTIME_PACKAGE_NAME libplim-peripheral${soname})
set(CPACK_DEBIAN_PERIPHERAL-RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PERIPHERAL-RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_PERIPHERAL-RUNTIME_DEPENDS runtime)
set(CPACK_COMPONENT_PERIPHERAL-RUNTIME_DESCRIPTION
    "Bluetooth Low Energy peripherals through BlueZ: the layer for products\n${about}
 This package holds the library for what a product needs beyond that: protected
 access, requests that know who asks and may be refused, subscribers.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libplim-ble${PLIM_LIBRARY_SUFFIX}-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS ${runtimes})
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${PLIM_QT_DEV} (>= ${PLIM_QT_MINIMUM}), liblog4cplus-dev (>= 2.0)")
# The stand-in daemon, for find_package(plim_ble COMPONENTS testing)
set(CPACK_DEBIAN_DEV_PACKAGE_RECOMMENDS "plim-ble-tools")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "Bluetooth Low Energy peripherals through BlueZ: headers\n${about}
 This package holds what building a program with the libraries takes.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME plim-ble-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "Bluetooth Low Energy peripherals through BlueZ: tools\n${about}
 This package holds a stand-in for the BlueZ daemon, to test programs with,
 and a program that finds out what keeps a machine from being a peripheral.")

include(CPack)
