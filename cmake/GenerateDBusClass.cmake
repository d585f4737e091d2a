# Makes CLASS.h and CLASS.cpp from XML with qdbusxml2cpp, which leaves some things undone:
# - the header names the builder's folders, in a comment that does not belong into an installed file;
# - the class is not exported from the library: EXPORT goes in front of its name;
# - comments are dropped from the introspection text: one that closes the interface element is put back;
# - a method with two results is not passed on: the parent's slot gets its options, and sends the answer itself;
# - an adaptor searches its parent's class for the slot or property at each call: DBusDetail::invokeMethod() and
#   ParentProperty keep what they found.
#
# TOOL      qdbusxml2cpp
# KIND      -a for an adaptor, -p for a proxy
# INCLUDES  headers that the generated header includes, separated by commas

# Another version of the tool may write other texts: a text that is to be replaced and is missing ends the build.

# replace_required(VARIABLE TEXT REPLACEMENT)
function(replace_required variable text replacement)
    string(FIND "${${variable}}" "${text}" found)
    if(found EQUAL -1)
        message(FATAL_ERROR "${TOOL} made ${CLASS} without this text, which has to be replaced:\n${text}")
    endif()
    string(REPLACE "${text}" "${replacement}" result "${${variable}}")
    set(${variable} "${result}" PARENT_SCOPE)
endfunction()

# replace_required_regex(VARIABLE EXPRESSION REPLACEMENT)
function(replace_required_regex variable expression replacement)
    if(NOT ${variable} MATCHES "${expression}")
        message(FATAL_ERROR "${TOOL} made ${CLASS} without a text like this, which has to be replaced:\n${expression}")
    endif()
    string(REGEX REPLACE "${expression}" "${replacement}" result "${${variable}}")
    set(${variable} "${result}" PARENT_SCOPE)
endfunction()

string(REPLACE "," ";" includes "${INCLUDES}")
list(TRANSFORM includes PREPEND "-i;")
execute_process(COMMAND ${TOOL} ${includes} -c ${CLASS} ${KIND} ${CLASS} ${XML} COMMAND_ERROR_IS_FATAL ANY)

# Semicolons and brackets have a meaning in CMake lists; the files are treated as plain strings throughout.
file(READ ${CLASS}.h header)
replace_required_regex(header " \\* (Command line|Source file) was[: ][^\n]*\n" "")
replace_required(header "class ${CLASS}: public" "class ${EXPORT} ${CLASS}: public")

file(READ ${XML} xml)
set(interface "${xml}")
set(end "  </interface>\n")
string(FIND "${xml}" "-->\n${end}" commentEnd REVERSE)
if(KIND STREQUAL "-a" AND commentEnd GREATER -1)
    math(EXPR commentEnd "${commentEnd} + 4")
    string(SUBSTRING "${xml}" 0 ${commentEnd} xml)
    string(FIND "${xml}" "    <!--" commentBegin REVERSE)
    string(SUBSTRING "${xml}" ${commentBegin} -1 comment)
    string(REPLACE "\"" "\\\"" comment "${comment}")
    string(REGEX REPLACE "([^\n]*)\n" "\"\\1\\\\n\"\n" comment "${comment}")
    set(generatedEnd "\"  </interface>\\n\"\n")
    replace_required(header "${generatedEnd}" "${comment}${generatedEnd}")
endif()
file(WRITE ${CLASS}.h "${header}")

if(KIND STREQUAL "-a")
    file(READ ${CLASS}.cpp source)
    # Only methods with two results have this text.
    string(REGEX REPLACE "//return static_cast<YourObjectType \\*>\\(parent\\(\\)\\)->([A-Za-z]+)\\(options, mtu\\)."
        "QMetaObject::invokeMethod(parent(), \"\\1\", Q_ARG(QVariantMap, options));\n    mtu = 0;\n    return {};"
        source "${source}")
    if(source MATCHES "YourObjectType")
        message(FATAL_ERROR "${TOOL} left something to be written by hand in ${CLASS}.cpp")
    endif()
    if(interface MATCHES "<method ")
        replace_required(source "QMetaObject::invokeMethod(" "DBusDetail::invokeMethod(")
        # What the macros make is of another type from Qt 6.5 on.
        string(REGEX REPLACE "Q_ARG\\(([A-Za-z]+), ([A-Za-z]+)\\)" "QArgument<\\1>(\"\\1\", \\2)" source "${source}")
        string(REGEX REPLACE "Q_RETURN_ARG\\(([A-Za-z]+), ([A-Za-z]+)\\)" "QReturnArgument<\\1>(\"\\1\", \\2)"
            source "${source}")
    endif()
    if(interface MATCHES "<property ")
        replace_required_regex(source "return qvariant_cast< ([^\n]*) >\\(parent\\(\\)->property\\((\"[A-Za-z]+\")\\)\\)"
            "static thread_local ParentProperty property(\\2);\n    return property.read< \\1 >(parent())")
    endif()
    replace_required(source "#include \"${CLASS}.h\"\n"
        "#include \"${CLASS}.h\"\n#include \"DBusDetail.h\"\n#include \"ParentProperty.h\"\n")
    file(WRITE ${CLASS}.cpp "${source}")
endif()
