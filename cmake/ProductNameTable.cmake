# Turns phone/ProductNames.tsv into the entries of the table phone/ProductNames.cpp includes, one
# `{"type", "name"},` a line, in the file's order (the C++ side sorts them). Run at build time:
#   cmake -DINPUT=<tsv> -DOUTPUT=<inc> -P ProductNameTable.cmake
# A line that is neither a comment nor "<type><TAB><name>" stops the build, naming the line.
if(NOT INPUT OR NOT OUTPUT)
    message(FATAL_ERROR "ProductNameTable.cmake needs -DINPUT=<tsv> and -DOUTPUT=<inc>")
endif()

file(READ "${INPUT}" text)
# Line by line with string(FIND), not as a CMake list: a list would split at every ';' and
# glue lines together around an unbalanced '[' or ']'.
set(entries "")
set(number 0)
string(LENGTH "${text}" length)
set(start 0)
while(start LESS length)
    math(EXPR number "${number} + 1")
    string(SUBSTRING "${text}" ${start} -1 rest)
    string(FIND "${rest}" "\n" end)
    if(end EQUAL -1)
        set(line "${rest}")
        set(start ${length})
    else()
        string(SUBSTRING "${rest}" 0 ${end} line)
        math(EXPR start "${start} + ${end} + 1")
    endif()
    string(REGEX REPLACE "\r$" "" line "${line}")
    if(line STREQUAL "" OR line MATCHES "^#")
        continue()
    endif()
    # The name is printable ASCII without quotes or backslashes, so it goes into a C++ string
    # literal as it is.
    if(NOT line MATCHES "^((iPhone|iPad|iPod)[0-9]+,[0-9]+)\t([] !#-[^-~]+)$")
        message(FATAL_ERROR "${INPUT}:${number}: not \"<product type><TAB><name>\": '${line}'")
    endif()
    string(APPEND entries "{\"${CMAKE_MATCH_1}\", \"${CMAKE_MATCH_3}\"},\n")
endwhile()

file(WRITE "${OUTPUT}"
     "// Made by cmake/ProductNameTable.cmake from phone/ProductNames.tsv; edit that file.\n${entries}")
