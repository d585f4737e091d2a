# Adaptors and proxies are generated at build time from the introspection XML beside the sources.

#   plim_add_dbus_adaptor(LIBRARY CLASS XML EXPORT MACRO INCLUDES HEADER...)
#   plim_add_dbus_proxy(LIBRARY CLASS XML EXPORT MACRO INCLUDES HEADER...)
# Adds class CLASS (CLASS.h, CLASS.cpp) to plim_LIBRARY, exported with MACRO. A proxy's header is public and installed.
function(plim_add_dbus_adaptor library class xml)
    plim_generate_dbus_class(${library} ${class} ${xml} -a ${ARGN})
endfunction()

function(plim_add_dbus_proxy library class xml)
    plim_generate_dbus_class(${library} ${class} ${xml} -p ${ARGN})
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${class}.h DESTINATION ${PLIM_INCLUDEDIR}/plim/${library}
        COMPONENT dev)
endfunction()

function(plim_generate_dbus_class library class xml kind)
    cmake_parse_arguments(ARG "" "EXPORT" "INCLUDES" ${ARGN})
    set(source ${CMAKE_CURRENT_SOURCE_DIR}/${xml})
    set(outputs ${CMAKE_CURRENT_BINARY_DIR}/${class}.h ${CMAKE_CURRENT_BINARY_DIR}/${class}.cpp)
    set(script ${PROJECT_SOURCE_DIR}/cmake/GenerateDBusClass.cmake)
    list(JOIN ARG_INCLUDES "," includes)
    add_custom_command(
        OUTPUT ${outputs}
        COMMAND ${CMAKE_COMMAND} -DTOOL=$<TARGET_FILE:Qt${PLIM_QT}::qdbusxml2cpp> -DKIND=${kind} -DCLASS=${class} -DXML=${source}
                -DEXPORT=${ARG_EXPORT} -DINCLUDES=${includes} -P ${script}
        DEPENDS ${source} ${script} Qt${PLIM_QT}::qdbusxml2cpp
        WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
        COMMENT "Generating ${class} from ${xml}"
        VERBATIM)
    target_sources(plim_${library} PRIVATE ${outputs})
endfunction()
