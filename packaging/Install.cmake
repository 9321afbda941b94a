# Installing Tovrin and packaging it for Debian.
#
# The installed tree mirrors the build tree's bundle (the program finds its resources at
# <exe dir>/../share/tovrin, so bin/ and share/ stay siblings whatever the prefix):
#   bin/tovrin
#   share/tovrin/{Info, OpenSourceNotices.txt,
#                 Runtime/bin/{idevice_id, ideviceinfo, idevicepair, idevicediagnostics,
#                              tovrin-lockdown}}
#   share/applications/com.quenby.Tovrin.desktop
#   share/metainfo/com.quenby.Tovrin.metainfo.xml
#   share/icons/hicolor/{scalable, 16x16 … 256x256}/apps/com.quenby.Tovrin.{svg,png}
#   share/man/man1/tovrin.1.gz
#   share/doc/tovrin/copyright
# The same desktop files are made in the build tree, so tests and screenshots need no install.

set(TOVRIN_PROJECT_URL "https://quenby.example/tovrin" CACHE STRING
    "Home page named in the AppStream metadata and the Debian package")
set(TOVRIN_SCREENSHOT_URL "${TOVRIN_PROJECT_URL}/raw/main/docs" CACHE STRING
    "Folder URL under which the AppStream metadata finds card-light.png and card-dark.png")
set(TOVRIN_PACKAGE_MAINTAINER "Quenby" CACHE STRING "Maintainer field of the Debian package")
set(TOVRIN_TOOL_LINK_FOLDER "" CACHE PATH
    "Folder the installed Runtime/bin links point into (empty: /usr/bin for a /usr install, else where the tools were found)")

set(tovrin_packaging_dir ${PROJECT_SOURCE_DIR}/packaging)
set(tovrin_build_data ${PROJECT_BINARY_DIR}/share)
set(tovrin_app_id ${TOVRIN_BUNDLE_IDENTIFIER})
set(TOVRIN_ICON_SIZES 16 22 24 32 48 64 128 256)

# --- Files made at build time -------------------------------------------------------------------

# A tiny renderer for the icon's fixed sizes: the same SVG engine the program draws with.
add_executable(tovrin_render_icon ${tovrin_packaging_dir}/RenderIcon.cpp)
target_link_libraries(tovrin_render_icon PRIVATE ambrel_hygiene Qt6::Gui Qt6::Svg)
set_target_properties(tovrin_render_icon PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/packaging)

set(tovrin_icon_svg ${tovrin_packaging_dir}/${tovrin_app_id}.svg)
set(tovrin_desktop_outputs)
foreach(size IN LISTS TOVRIN_ICON_SIZES)
    set(png ${tovrin_build_data}/icons/hicolor/${size}x${size}/apps/${tovrin_app_id}.png)
    add_custom_command(OUTPUT ${png}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${tovrin_build_data}/icons/hicolor/${size}x${size}/apps
        COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen
                $<TARGET_FILE:tovrin_render_icon> ${tovrin_icon_svg} ${size} ${png}
        DEPENDS tovrin_render_icon ${tovrin_icon_svg}
        COMMENT "Rendering the ${size}x${size} application icon"
        VERBATIM)
    list(APPEND tovrin_desktop_outputs ${png})
endforeach()

set(tovrin_scalable_icon ${tovrin_build_data}/icons/hicolor/scalable/apps/${tovrin_app_id}.svg)
# The tray mark, for panels that tint symbolic icons to suit themselves.
set(tovrin_symbolic_icon
    ${tovrin_build_data}/icons/hicolor/symbolic/apps/${tovrin_app_id}-symbolic.svg)
set(tovrin_desktop_entry ${tovrin_build_data}/applications/${tovrin_app_id}.desktop)
foreach(pair IN ITEMS "${tovrin_icon_svg}|${tovrin_scalable_icon}"
                      "${tovrin_packaging_dir}/${tovrin_app_id}-symbolic.svg|${tovrin_symbolic_icon}"
                      "${tovrin_packaging_dir}/${tovrin_app_id}.desktop|${tovrin_desktop_entry}")
    string(REPLACE "|" ";" pair "${pair}")
    list(GET pair 0 from)
    list(GET pair 1 to)
    add_custom_command(OUTPUT ${to}
        COMMAND ${CMAKE_COMMAND} -E copy ${from} ${to}
        DEPENDS ${from}
        VERBATIM)
    list(APPEND tovrin_desktop_outputs ${to})
endforeach()

set(tovrin_metainfo ${tovrin_build_data}/metainfo/${tovrin_app_id}.metainfo.xml)
configure_file(${tovrin_packaging_dir}/${tovrin_app_id}.metainfo.xml.in ${tovrin_metainfo} @ONLY)

# Debian compresses manual pages; -n keeps the archive free of a time stamp.
find_program(TOVRIN_GZIP gzip)
set(tovrin_man_folder ${tovrin_build_data}/man/man1)
if(TOVRIN_GZIP)
    set(tovrin_man_page ${tovrin_man_folder}/tovrin.1.gz)
    add_custom_command(OUTPUT ${tovrin_man_page}
        COMMAND ${CMAKE_COMMAND} -E copy ${tovrin_packaging_dir}/tovrin.1 ${tovrin_man_folder}/tovrin.1
        COMMAND ${TOVRIN_GZIP} -9nf ${tovrin_man_folder}/tovrin.1
        DEPENDS ${tovrin_packaging_dir}/tovrin.1
        VERBATIM)
else()
    set(tovrin_man_page ${tovrin_man_folder}/tovrin.1)
    add_custom_command(OUTPUT ${tovrin_man_page}
        COMMAND ${CMAKE_COMMAND} -E copy ${tovrin_packaging_dir}/tovrin.1 ${tovrin_man_page}
        DEPENDS ${tovrin_packaging_dir}/tovrin.1
        VERBATIM)
endif()
list(APPEND tovrin_desktop_outputs ${tovrin_man_page})

include(${tovrin_packaging_dir}/NoticeComponents.cmake)
set(tovrin_notices ${TOVRIN_BUILD_SHARE}/OpenSourceNotices.txt)
set(tovrin_notice_inputs ${tovrin_packaging_dir}/Notices.cmake
                         ${tovrin_packaging_dir}/NoticeComponents.cmake ${PROJECT_SOURCE_DIR}/LICENSE)
foreach(component IN LISTS TOVRIN_NOTICE_COMPONENTS)
    if(EXISTS /usr/share/doc/${${component}_PACKAGE}/copyright)
        list(APPEND tovrin_notice_inputs /usr/share/doc/${${component}_PACKAGE}/copyright)
    endif()
endforeach()
add_custom_command(OUTPUT ${tovrin_notices}
    COMMAND ${CMAKE_COMMAND} -DOUTPUT=${tovrin_notices} -DLICENSE_FILE=${PROJECT_SOURCE_DIR}/LICENSE
            -DVERSION=${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
            -P ${tovrin_packaging_dir}/Notices.cmake
    DEPENDS ${tovrin_notice_inputs}
    COMMENT "Collecting the open-source notices"
    VERBATIM)
list(APPEND tovrin_desktop_outputs ${tovrin_notices})

add_custom_target(tovrin_desktop_files ALL DEPENDS ${tovrin_desktop_outputs})

# --- Install rules ------------------------------------------------------------------------------

install(TARGETS tovrin RUNTIME DESTINATION bin)
install(FILES ${TOVRIN_BUILD_SHARE}/Info ${tovrin_notices} DESTINATION share/tovrin)
if(TARGET tovrin-lockdown)
    install(TARGETS tovrin-lockdown RUNTIME DESTINATION share/tovrin/Runtime/bin)
endif()
install(CODE "set(TOVRIN_RUNTIME_TOOLS \"idevice_id=${TOVRIN_IDEVICE_ID};ideviceinfo=${TOVRIN_IDEVICEINFO};idevicepair=${TOVRIN_IDEVICEPAIR};idevicediagnostics=${TOVRIN_IDEVICEDIAGNOSTICS}\")
              set(TOVRIN_TOOL_LINK_FOLDER \"${TOVRIN_TOOL_LINK_FOLDER}\")")
install(SCRIPT ${tovrin_packaging_dir}/InstallRuntimeLinks.cmake)

install(FILES ${tovrin_desktop_entry} DESTINATION share/applications)
install(FILES ${tovrin_metainfo} DESTINATION share/metainfo)
install(FILES ${tovrin_scalable_icon} DESTINATION share/icons/hicolor/scalable/apps)
install(FILES ${tovrin_symbolic_icon} DESTINATION share/icons/hicolor/symbolic/apps)
foreach(size IN LISTS TOVRIN_ICON_SIZES)
    install(FILES ${tovrin_build_data}/icons/hicolor/${size}x${size}/apps/${tovrin_app_id}.png
            DESTINATION share/icons/hicolor/${size}x${size}/apps)
endforeach()
install(FILES ${tovrin_man_page} DESTINATION share/man/man1)
install(FILES ${tovrin_packaging_dir}/copyright DESTINATION share/doc/tovrin)

# --- Debian package -----------------------------------------------------------------------------

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tovrin)
set(CPACK_PACKAGE_VENDOR Quenby)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${TOVRIN_PACKAGE_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "this computer's and the paired iPhone's battery on the desktop")
set(CPACK_PACKAGE_DESCRIPTION
"Tovrin keeps a small glass card on the desktop, beneath all windows, with two
battery gauges: this computer's battery and the battery of the paired iPhone,
read over Wi-Fi or USB with the libimobiledevice tools. A tray item, start at
login, light and dark looks and a few command-line switches come with it.
The readings stay on this computer.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${TOVRIN_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${TOVRIN_PROJECT_URL})
# The libraries come from dpkg-shlibdeps; the tools are run, not linked, so they are named here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libimobiledevice-utils, usbmuxd")
# Wi-Fi phones are found through avahi-daemon; without it the program reads the phone by cable.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "avahi-daemon")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# A sanitizer build's package (some 30 MB of program) is only ever looked into by the tests:
# gzip makes it in a fraction of xz's time.
if(TOVRIN_SANITIZE)
    set(CPACK_DEBIAN_COMPRESSION_TYPE gzip)
else()
    set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
endif()
set(CPACK_VERBATIM_VARIABLES ON)
# `package_source` archives the source tree without build folders or Git's data.
set(CPACK_SOURCE_GENERATOR TXZ)
set(CPACK_SOURCE_IGNORE_FILES "/\\.git/" "/build[^/]*/" "/out/" "\\.swp$")
include(CPack)
