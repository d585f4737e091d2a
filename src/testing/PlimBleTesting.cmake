# plim_add_ble_test(NAME SOURCE... [LINK TARGET...])
# Adds a QtTest program and a test of the same name that runs it. The program includes PlimBleTest.h, which gives it a
# message bus and a Bluetooth daemon of its own. LINK names what is under test.
function(plim_add_ble_test name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" LINK)
    add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    target_link_libraries(${name} PRIVATE plim::ble_testing ${ARG_LINK})
    target_compile_definitions(${name} PRIVATE PLIM_BLUEZ_SIMULATOR="$<TARGET_FILE:plim::bluez-simulator>")
    add_dependencies(${name} plim::bluez-simulator)
    add_test(NAME ${name} COMMAND ${name})
    # QTest ends a test function that takes longer than this, with its name.
    set_tests_properties(${name} PROPERTIES ENVIRONMENT QTEST_FUNCTION_TIMEOUT=60000)
endfunction()
