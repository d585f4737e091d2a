# plim_add_scenarios(NAME)
# Test program NAME from NAME.cpp, each test function of which is a test NAME.FUNCTION with a process and a bus of its
# own: there is one manager per process, and it never ends.
function(plim_add_scenarios name)
    add_executable(${name} ${name}.cpp)
    plim_test_program(${name})
    target_link_libraries(${name} PRIVATE plim::ble plim_test_support)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}.cpp)
    file(STRINGS ${name}.cpp declarations REGEX "^    void [A-Za-z0-9]+\\(\\);$")
    foreach(declaration IN LISTS declarations)
        string(REGEX REPLACE "^    void ([A-Za-z0-9]+).*" "\\1" function "${declaration}")
        add_test(NAME ${name}.${function}
                 COMMAND ${PROJECT_SOURCE_DIR}/scripts/private-bus $<TARGET_FILE:${name}> ${function})
        set_tests_properties(${name}.${function} PROPERTIES LABELS bus ENVIRONMENT
            "QTEST_FUNCTION_TIMEOUT=60000;PLIM_SIMULATOR=$<TARGET_FILE:plim-bluez-simulator>")
    endforeach()
endfunction()
