# How this project's targets are compiled. Nothing in here reaches a consumer of the installed package.

# Warnings, sanitizers and the language level for one of our own targets.
function(plim_target_defaults target)
    target_compile_features(${target} PRIVATE cxx_std_17)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF AUTOMOC ON)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                             -Wold-style-cast -Woverloaded-virtual -Wconversion
                                             -Wno-sign-conversion -Wsuggest-override)
    # Log lines name their source file; the folder it was built in is nobody's business.
    target_compile_options(${target} PRIVATE -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
    if(PLIM_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(PLIM_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=${PLIM_SANITIZE} -fno-sanitize-recover=all
                                                 -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${PLIM_SANITIZE})
    endif()
endfunction()

# Installed files have a run path relative to their own folder, so that they work in any prefix. Debian packages install
# where the loader looks anyway, and must not have one (debian/rules).
file(RELATIVE_PATH PLIM_BINDIR_TO_LIBDIR ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})

# Installs one of the programs for people, and its manual page from PROGRAM.1.in.
function(plim_install_tool program)
    configure_file(${program}.1.in ${program}.1 @ONLY)
    if(NOT PLIM_INSTALL_TOOLS)
        return()
    endif()
    set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/${PLIM_BINDIR_TO_LIBDIR}")
    install(TARGETS ${program} ${ARGN} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endfunction()

# plim_compile_for_size(FILE...)
# For code that runs at the start, at a registration or after an error, and for what moc generates: no read, write or
# notification becomes slower by it. A file in the build folder needs its full path.
function(plim_compile_for_size)
    if(PLIM_SMALL AND NOT PLIM_SANITIZE)
        set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "$<$<NOT:$<CONFIG:Debug>>:-Os>")
    endif()
endfunction()

# plim_add_library(NAME OUTPUT SOURCES FILE... HEADERS FILE... LINK LIBRARY... [COMPONENT NAME] [UMBRELLA HEADER])
# A shared library: target plim_<name>, file lib<output>.so.<major>, alias plim::<name>, in the component "runtime" or
# the one given. Its public headers are installed into include/plim/<name>, and found by their bare names; with an
# umbrella header, which is installed beside that folder, they are found as <plim/<umbrella>> and <plim/<name>/...> only.
function(plim_add_library name output)
    cmake_parse_arguments(ARG "" "COMPONENT;UMBRELLA" "SOURCES;HEADERS;LINK" ${ARGN})
    if(NOT ARG_COMPONENT)
        set(ARG_COMPONENT runtime)
    endif()
    add_library(plim_${name} SHARED ${ARG_SOURCES} ${ARG_HEADERS} ${ARG_UMBRELLA})
    add_library(plim::${name} ALIAS plim_${name})
    plim_target_defaults(plim_${name})
    target_compile_features(plim_${name} PUBLIC cxx_std_17)
    target_link_libraries(plim_${name} PUBLIC ${ARG_LINK})
    if(ARG_UMBRELLA)
        set(include ${CMAKE_CURRENT_BINARY_DIR}/include)
        file(MAKE_DIRECTORY ${include}/plim)
        file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${include}/plim/${name} SYMBOLIC)
        file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${ARG_UMBRELLA} ${include}/plim/${ARG_UMBRELLA} SYMBOLIC)
        target_include_directories(plim_${name}
            PUBLIC $<BUILD_INTERFACE:${include}> $<INSTALL_INTERFACE:${PLIM_INCLUDEDIR}>
            PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${CMAKE_CURRENT_BINARY_DIR})
        install(FILES ${ARG_UMBRELLA} DESTINATION ${PLIM_INCLUDEDIR}/plim COMPONENT dev)
    else()
        target_include_directories(plim_${name}
            PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}> $<BUILD_INTERFACE:${CMAKE_CURRENT_BINARY_DIR}>
                   $<INSTALL_INTERFACE:${PLIM_INCLUDEDIR}/plim/${name}>)
    endif()
    string(TOUPPER ${name} upper)
    target_compile_definitions(plim_${name} PRIVATE PLIM_${upper}_LIBRARY QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII)
    set_target_properties(plim_${name} PROPERTIES
        OUTPUT_NAME ${output}${PLIM_LIBRARY_SUFFIX}
        EXPORT_NAME ${name}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        INSTALL_RPATH "$ORIGIN")
    install(TARGETS plim_${name} EXPORT plim_bleTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${ARG_COMPONENT} NAMELINK_COMPONENT dev)
    install(FILES ${ARG_HEADERS} DESTINATION ${PLIM_INCLUDEDIR}/plim/${name} COMPONENT dev)
endfunction()
