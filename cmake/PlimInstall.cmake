# What an installed consumer finds: the CMake package plim_ble with plim::ble and plim::peripheral, and the pkg-config
# files plim_ble and plim_peripheral. PlimQt says how they are named in a build with Qt 6.
#
# Every install rule of this project names its component, for cmake --install --component:
#   runtime             what a finished device needs: the shared libraries
#   peripheral-runtime  the same of the layer for products
#   dev                 what building against them takes: headers, linker names, CMake and pkg-config files
#   tools               programs for people: the stand-in daemon, the doctor; not with Qt 6

include(CMakePackageConfigHelpers)

set(PLIM_CMAKE_PACKAGE plim_ble${PLIM_PACKAGE_SUFFIX})
set(PLIM_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/${PLIM_CMAKE_PACKAGE})
set(config ${PROJECT_BINARY_DIR}/${PLIM_CMAKE_PACKAGE}Config.cmake)
set(configVersion ${PROJECT_BINARY_DIR}/${PLIM_CMAKE_PACKAGE}ConfigVersion.cmake)
configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/plim_bleConfig.cmake.in ${config}
    INSTALL_DESTINATION ${PLIM_CMAKE_DIR} PATH_VARS CMAKE_INSTALL_BINDIR)
write_basic_package_version_file(${configVersion} COMPATIBILITY SameMajorVersion)
install(FILES ${config} ${configVersion} ${PROJECT_SOURCE_DIR}/cmake/Findlog4cplus.cmake
    DESTINATION ${PLIM_CMAKE_DIR} COMPONENT dev)
install(EXPORT plim_bleTargets NAMESPACE plim:: DESTINATION ${PLIM_CMAKE_DIR} COMPONENT dev)

# Where Qt's headers refuse to be compiled without -fPIC, its CMake targets pass it on; its pkg-config files do not.
get_target_property(PLIM_QT_FLAGS Qt${PLIM_QT}::Core INTERFACE_COMPILE_OPTIONS)
if(NOT PLIM_QT_FLAGS) # as for Qt 6.8, and for Qt 6.4 on arm64
    set(PLIM_QT_FLAGS "")
endif()
list(JOIN PLIM_QT_FLAGS " " PLIM_QT_FLAGS)
set(AT @)
# The prefix is not known before installation (cmake --install --prefix), so a file is finished then.
function(plim_install_pkg_config template)
    set(name ${template}${PLIM_PACKAGE_SUFFIX})
    configure_file(${PROJECT_SOURCE_DIR}/packaging/${template}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc.in @ONLY)
    install(CODE "
        set(prefix \"\${CMAKE_INSTALL_PREFIX}\")
        configure_file(\"${PROJECT_BINARY_DIR}/${name}.pc.in\" \"${PROJECT_BINARY_DIR}/${name}.pc\" @ONLY)"
        COMPONENT dev)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endfunction()
plim_install_pkg_config(plim_ble)
if(PLIM_BUILD_PERIPHERAL)
    plim_install_pkg_config(plim_peripheral)
endif()
