# The program's bundle in the build tree mirrors the installed one:
#   bin/tovrin, share/tovrin/Info,
#   share/tovrin/Runtime/bin/{idevice_id,ideviceinfo,idevicepair,idevicediagnostics,
#                             tovrin-lockdown}
set(TOVRIN_BUNDLE_IDENTIFIER "com.quenby.Tovrin")
set(TOVRIN_DISPLAY_NAME "Tovrin")
set(TOVRIN_BUILD_SHARE "${PROJECT_BINARY_DIR}/share/tovrin")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")

configure_file(${PROJECT_SOURCE_DIR}/app/Info.in ${TOVRIN_BUILD_SHARE}/Info @ONLY)

find_program(TOVRIN_IDEVICE_ID idevice_id)
find_program(TOVRIN_IDEVICEINFO ideviceinfo)
# Pairing, for the connection window's "Trust".
find_program(TOVRIN_IDEVICEPAIR idevicepair)
# The phone's battery health, through its diagnostics relay.
find_program(TOVRIN_IDEVICEDIAGNOSTICS idevicediagnostics)
file(MAKE_DIRECTORY ${TOVRIN_BUILD_SHARE}/Runtime/bin)
foreach(tool IN ITEMS IDEVICE_ID IDEVICEINFO IDEVICEPAIR IDEVICEDIAGNOSTICS)
    if(TOVRIN_${tool})
        get_filename_component(tool_name ${TOVRIN_${tool}} NAME)
        file(CREATE_LINK ${TOVRIN_${tool}} ${TOVRIN_BUILD_SHARE}/Runtime/bin/${tool_name} SYMBOLIC)
    else()
        message(WARNING "libimobiledevice's tools were not found (Debian: libimobiledevice-utils); "
                        "the program will report its iPhone helper as missing.")
    endif()
endforeach()
