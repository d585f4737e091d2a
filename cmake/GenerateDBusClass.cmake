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

string(REPLACE "," ";" includes "${INCLUDES}")
list(TRANSFORM includes PREPEND "-i;")
execute_process(COMMAND ${TOOL} ${includes} -c ${CLASS} ${KIND} ${CLASS} ${XML} COMMAND_ERROR_IS_FATAL ANY)

# Semicolons and brackets have a meaning in CMake lists; the files are treated as plain strings throughout.
file(READ ${CLASS}.h header)
string(REGEX REPLACE " \\* Command line was: [^\n]*\n" "" header "${header}")
string(REPLACE "class ${CLASS}: public" "class ${EXPORT} ${CLASS}: public" header "${header}")

file(READ ${XML} xml)
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
    string(REPLACE "${generatedEnd}" "${comment}${generatedEnd}" header "${header}")
endif()
file(WRITE ${CLASS}.h "${header}")

if(KIND STREQUAL "-a")
    file(READ ${CLASS}.cpp source)
    string(REGEX REPLACE "//return static_cast<YourObjectType \\*>\\(parent\\(\\)\\)->([A-Za-z]+)\\(options, mtu\\)."
        "QMetaObject::invokeMethod(parent(), \"\\1\", Q_ARG(QVariantMap, options));\n    mtu = 0;\n    return {};"
        source "${source}")
    string(REPLACE "QMetaObject::invokeMethod(" "DBusDetail::invokeMethod(" source "${source}")
    string(REGEX REPLACE "return qvariant_cast< ([^\n]*) >\\(parent\\(\\)->property\\((\"[A-Za-z]+\")\\)\\)"
           "static thread_local ParentProperty property(\\2);\n    return property.read< \\1 >(parent())" source "${source}")
    string(REPLACE "#include \"${CLASS}.h\"\n"
           "#include \"${CLASS}.h\"\n#include \"DBusDetail.h\"\n#include \"ParentProperty.h\"\n" source "${source}")
    file(WRITE ${CLASS}.cpp "${source}")
endif()
