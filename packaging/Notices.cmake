# Writes the open-source notices shipped in the program's resource folder: Tovrin's own licence,
# a list of the components it uses with their licences, then each component's copyright file as
# this system's Debian package states it, then the full texts of the licences they refer to.
# The texts are read when the program is built, so the notices describe the very libraries it
# was built against.
#
#   cmake -DOUTPUT=<file> -DLICENSE_FILE=<LICENSE> -DVERSION=<x.y>
#         [-DDOC_ROOT=/usr/share/doc] [-DCOMMON_LICENSES=/usr/share/common-licenses]
#         -P Notices.cmake

foreach(required IN ITEMS OUTPUT LICENSE_FILE VERSION)
    if(NOT DEFINED ${required})
        message(FATAL_ERROR "Notices.cmake needs -D${required}=...")
    endif()
endforeach()
if(NOT DEFINED DOC_ROOT)
    set(DOC_ROOT /usr/share/doc)
endif()
if(NOT DEFINED COMMON_LICENSES)
    set(COMMON_LICENSES /usr/share/common-licenses)
endif()

include(${CMAKE_CURRENT_LIST_DIR}/NoticeComponents.cmake)

find_program(DPKG_QUERY dpkg-query)
function(debian_version package out)
    set(${out} "" PARENT_SCOPE)
    if(DPKG_QUERY)
        execute_process(COMMAND ${DPKG_QUERY} -W -f=\${Version} ${package}
                        OUTPUT_VARIABLE version ERROR_QUIET RESULT_VARIABLE failed)
        if(NOT failed)
            set(${out} "${version}" PARENT_SCOPE)
        endif()
    endif()
endfunction()

set(rule "--------------------------------------------------------------------------------")
set(text "Tovrin ${VERSION} — Open Source Notices\n")
string(APPEND text "================================\n\n")
string(APPEND text
"Tovrin is free software under the MIT License; its full text is in section 1.
Tovrin uses the components below, each under its own licence. Section 2 gives each
component's copyright notices as its Debian package states them; section 3 holds the full
texts of the licences those notices refer to. On Debian the same texts are also in
${DOC_ROOT}/<package>/copyright and ${COMMON_LICENSES}/.

What Tovrin keeps: everything stays on this computer, in ~/.local/share/Ambrel (or
$XDG_DATA_HOME/Ambrel). battery-cache.json holds the iPhone's last reading;
battery-history.sqlite3 holds one row per new reading of each battery (time, level,
charging, plugged in, and how the phone was reached), kept 30 days; battery-health.json
holds the iPhone's battery health as last read. Deleting any of them is safe at any time:
Tovrin starts afresh.

")

string(APPEND text "Components\n----------\n\n")
set(index 0)
foreach(component IN LISTS TOVRIN_NOTICE_COMPONENTS)
    math(EXPR index "${index} + 1")
    debian_version(${${component}_PACKAGE} version)
    if(version STREQUAL "")
        set(version "not installed when this copy was built")
    endif()
    string(APPEND text "${${component}_NAME} (section 2.${index})\n")
    string(APPEND text "    Use:      ${${component}_USE}\n")
    string(APPEND text "    Licence:  ${${component}_LICENSE}\n")
    string(APPEND text "    Debian:   ${${component}_PACKAGE} ${version}\n")
    string(APPEND text "    Upstream: ${${component}_URL}\n\n")
endforeach()

file(READ ${LICENSE_FILE} own_license)
string(APPEND text "${rule}\n1. Tovrin — MIT License\n${rule}\n\n${own_license}\n")

set(index 0)
foreach(component IN LISTS TOVRIN_NOTICE_COMPONENTS)
    math(EXPR index "${index} + 1")
    set(copyright "${DOC_ROOT}/${${component}_PACKAGE}/copyright")
    string(APPEND text "${rule}\n2.${index} ${${component}_NAME} — ${${component}_LICENSE}\n")
    string(APPEND text "${rule}\n\n")
    if(EXISTS ${copyright})
        file(READ ${copyright} notice)
        string(APPEND text "From ${copyright}:\n\n${notice}\n")
    else()
        string(APPEND text
            "The copyright file of the Debian package ${${component}_PACKAGE} was not present "
            "when this copy was built.\n${${component}_NAME} is licensed under "
            "${${component}_LICENSE}; its notices are published at ${${component}_URL}.\n\n")
    endif()
endforeach()

string(APPEND text "${rule}\n3. Licence texts\n${rule}\n\n")
set(index 0)
foreach(license IN LISTS TOVRIN_NOTICE_LICENSE_TEXTS)
    math(EXPR index "${index} + 1")
    set(path "${COMMON_LICENSES}/${license}")
    string(APPEND text "${rule}\n3.${index} ${license}\n${rule}\n\n")
    if(EXISTS ${path})
        file(READ ${path} body)
        string(APPEND text "${body}\n")
    else()
        string(APPEND text "Not present on the system this copy was built on; the text is "
                           "published at https://www.gnu.org/licenses/.\n\n")
    endif()
endforeach()

file(WRITE ${OUTPUT}.partial "${text}")
file(RENAME ${OUTPUT}.partial ${OUTPUT})
