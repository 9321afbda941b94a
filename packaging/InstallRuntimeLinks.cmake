# Install-time part of the program's tool folder: links share/tovrin/Runtime/bin/<tool> to the
# libimobiledevice tools the installed program is to run. Expects TOVRIN_RUNTIME_TOOLS, a list
# of <name>=<path found at configure time> (the path may be a -NOTFOUND value), and
# TOVRIN_TOOL_LINK_FOLDER (may be empty).
#
# Where the links point:
#   - TOVRIN_TOOL_LINK_FOLDER/<name> when that is set (for packagers of other systems);
#   - /usr/bin/<name> when installing into /usr: a system install (the Debian package among them)
#     runs the system's own tools, wherever a developer's PATH found them;
#   - otherwise the tool found when the build was configured.

cmake_path(SET prefix NORMALIZE "${CMAKE_INSTALL_PREFIX}/")
set(folder "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/share/tovrin/Runtime/bin")
file(MAKE_DIRECTORY "${folder}")

foreach(entry IN LISTS TOVRIN_RUNTIME_TOOLS)
    string(FIND "${entry}" "=" split)
    string(SUBSTRING "${entry}" 0 ${split} name)
    math(EXPR start "${split} + 1")
    string(SUBSTRING "${entry}" ${start} -1 found)

    if(NOT TOVRIN_TOOL_LINK_FOLDER STREQUAL "")
        set(target "${TOVRIN_TOOL_LINK_FOLDER}/${name}")
    elseif(prefix STREQUAL "/usr/")
        set(target "/usr/bin/${name}")
    elseif(found AND NOT found MATCHES "-NOTFOUND$")
        set(target "${found}")
    else()
        message(WARNING "Not linking ${name}: it was not found when the build was configured "
                        "(Debian: libimobiledevice-utils). The installed program will report "
                        "its iPhone helper as missing.")
        continue()
    endif()

    set(link "${folder}/${name}")
    message(STATUS "Installing: ${link} -> ${target}")
    file(CREATE_LINK "${target}" "${link}" SYMBOLIC RESULT failure)
    if(failure)
        message(FATAL_ERROR "Could not link ${link} to ${target}: ${failure}")
    endif()
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${link}")
endforeach()
