# Compiler settings every target of the project shares: strict warnings, hardening in
# optimised builds and the optional sanitizers.
add_library(ambrel_hygiene INTERFACE)
target_compile_options(ambrel_hygiene INTERFACE
    -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual -Wshadow -Werror)
target_include_directories(ambrel_hygiene INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(ambrel_hygiene INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
target_compile_definitions(ambrel_hygiene INTERFACE QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII)

if(TOVRIN_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
elseif(TOVRIN_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(NOT TOVRIN_SANITIZE STREQUAL "")
    message(FATAL_ERROR "TOVRIN_SANITIZE must be empty, 'address' or 'thread', not '${TOVRIN_SANITIZE}'")
endif()

# One static library per folder, named ambrel_<folder>.
function(ambrel_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_link_libraries(${name} PUBLIC ambrel_hygiene ${ARG_DEPENDS})
endfunction()
