# Compiler settings every target of the project shares: strict warnings, hardening in
# optimised builds and the optional sanitizers.
add_library(ambrel_hygiene_flags INTERFACE)
target_compile_options(ambrel_hygiene_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual -Wshadow -Werror)
# Test code (targets with the AMBREL_TEST_CODE property) is compiled without optimisation and
# hardening even in an optimised build: what the tests check is the program's code, built as
# shipped, and unoptimised tests build in half the time.
set(ambrel_is_test_code "$<BOOL:$<TARGET_PROPERTY:AMBREL_TEST_CODE>>")
set(ambrel_is_optimised "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
target_compile_options(ambrel_hygiene_flags INTERFACE
    "$<$<AND:${ambrel_is_optimised},$<NOT:${ambrel_is_test_code}>>:-fstack-protector-strong;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>"
    "$<$<AND:${ambrel_is_optimised},${ambrel_is_test_code}>:-O0>")
target_compile_definitions(ambrel_hygiene_flags INTERFACE QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII)

# The same settings with the whole source root to include from: for programs, tests, benchmarks
# and fuzzers. The layer libraries (ambrel_library below) see only the folders they may include.
add_library(ambrel_hygiene INTERFACE)
target_link_libraries(ambrel_hygiene INTERFACE ambrel_hygiene_flags)
target_include_directories(ambrel_hygiene INTERFACE ${PROJECT_SOURCE_DIR})

if(TOVRIN_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
elseif(TOVRIN_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(NOT TOVRIN_SANITIZE STREQUAL "")
    message(FATAL_ERROR "TOVRIN_SANITIZE must be empty, 'address' or 'thread', not '${TOVRIN_SANITIZE}'")
endif()
# The sanitizer builds keep line tables only: enough for every report to name its lines, at a
# fraction of the build time of full debug information.
if(TOVRIN_SANITIZE)
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        add_compile_options(-gline-tables-only)
    else()
        add_compile_options(-g1)
    endif()
endif()

# Which folders each folder may include: scripts/check-layers.py holds the table, the build reads
# it from there.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(AMBREL_LAYERS_SCRIPT "${PROJECT_SOURCE_DIR}/scripts/check-layers.py")
set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
             "${AMBREL_LAYERS_SCRIPT}")
execute_process(COMMAND "${Python3_EXECUTABLE}" "${AMBREL_LAYERS_SCRIPT}" --allowed-table
                OUTPUT_VARIABLE ambrel_layer_table RESULT_VARIABLE ambrel_layer_result
                OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT ambrel_layer_result EQUAL 0)
    message(FATAL_ERROR "check-layers.py --allowed-table failed: ${ambrel_layer_result}")
endif()
string(REPLACE "\n" ";" ambrel_layer_lines "${ambrel_layer_table}")
set(AMBREL_LAYERS "")
foreach(line IN LISTS ambrel_layer_lines)
    if(NOT line MATCHES "^([^:]+):(.*)$")
        message(FATAL_ERROR "check-layers.py --allowed-table: unreadable line '${line}'")
    endif()
    list(APPEND AMBREL_LAYERS "${CMAKE_MATCH_1}")
    string(REPLACE "/" "_" key "${CMAKE_MATCH_1}")
    string(REPLACE "," ";" allowed "${CMAKE_MATCH_2}")
    set(AMBREL_ALLOWED_${key} "${allowed}")
endforeach()

# The layer (folder of the table) of a path relative to the source root.
function(ambrel_layer_of relative out)
    if(relative MATCHES "^platform/(linux|qt)(/|$)")
        set(${out} "platform/${CMAKE_MATCH_1}" PARENT_SCOPE)
    else()
        string(REGEX REPLACE "/.*$" "" first "${relative}")
        set(${out} "${first}" PARENT_SCOPE)
    endif()
endfunction()

# Gives library `name` an include root of its own in the build tree that holds only the folders
# it may include (the table) and can reach (its own and those of the libraries it links), so
# that including anything else fails to compile. Linking a library of folders it may not include
# fails here already.
function(ambrel_layer_root name sources depends)
    file(RELATIVE_PATH here "${PROJECT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}")
    ambrel_layer_of("${here}" layer)
    set(own "${layer}")
    foreach(source IN LISTS sources)
        get_filename_component(path "${source}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_SOURCE_DIR}")
        file(RELATIVE_PATH relative "${PROJECT_SOURCE_DIR}" "${path}")
        if(NOT relative MATCHES "^\\.\\.")
            ambrel_layer_of("${relative}" layer)
            list(APPEND own "${layer}")
        endif()
    endforeach()
    list(REMOVE_DUPLICATES own)
    set(allowed "")
    foreach(layer IN LISTS own)
        if(NOT layer IN_LIST AMBREL_LAYERS)
            message(FATAL_ERROR "${name}: the folder ${layer}/ has no place in the layer table "
                                "of scripts/check-layers.py")
        endif()
        string(REPLACE "/" "_" key "${layer}")
        list(APPEND allowed ${AMBREL_ALLOWED_${key}})
    endforeach()
    set(reachable ${own})
    foreach(dependency IN LISTS depends)
        if(NOT TARGET "${dependency}")
            continue()
        endif()
        get_target_property(dependency_own "${dependency}" AMBREL_OWN_LAYERS)
        if(NOT dependency_own)
            continue()
        endif()
        # ambrel_platform holds both the interfaces and their Linux implementations: a library
        # may link it for the interfaces it may include, and sees only those.
        set(includable FALSE)
        foreach(layer IN LISTS dependency_own)
            if(layer IN_LIST own OR layer IN_LIST allowed)
                set(includable TRUE)
            endif()
        endforeach()
        if(NOT includable)
            message(FATAL_ERROR "${name} (${own}) may not link ${dependency} (${dependency_own}): "
                                "see the layer table of scripts/check-layers.py")
        endif()
        get_target_property(dependency_reachable "${dependency}" AMBREL_REACHABLE_LAYERS)
        list(APPEND reachable ${dependency_reachable})
    endforeach()
    list(REMOVE_DUPLICATES reachable)
    set_target_properties(${name} PROPERTIES AMBREL_OWN_LAYERS "${own}"
                                             AMBREL_REACHABLE_LAYERS "${reachable}")

    set(root "${PROJECT_BINARY_DIR}/layer-roots/${name}")
    file(REMOVE_RECURSE "${root}")
    file(MAKE_DIRECTORY "${root}")
    foreach(layer IN LISTS reachable)
        if(NOT layer IN_LIST own AND NOT layer IN_LIST allowed)
            continue()
        endif()
        if(layer MATCHES "^platform/")
            file(MAKE_DIRECTORY "${root}/platform")
            file(CREATE_LINK "${PROJECT_SOURCE_DIR}/${layer}" "${root}/${layer}" SYMBOLIC)
        elseif(layer STREQUAL "platform")
            # The interfaces only: platform/linux and platform/qt are layers of their own.
            file(MAKE_DIRECTORY "${root}/platform")
            file(GLOB headers CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/platform/*.h")
            foreach(header IN LISTS headers)
                get_filename_component(file_name "${header}" NAME)
                file(CREATE_LINK "${header}" "${root}/platform/${file_name}" SYMBOLIC)
            endforeach()
        else()
            file(CREATE_LINK "${PROJECT_SOURCE_DIR}/${layer}" "${root}/${layer}" SYMBOLIC)
        endif()
    endforeach()
    target_include_directories(${name} PRIVATE "${root}")
endfunction()

# One static library per folder, named ambrel_<folder>.
function(ambrel_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_link_libraries(${name} PUBLIC ambrel_hygiene_flags ${ARG_DEPENDS})
    ambrel_layer_root(${name} "${ARG_SOURCES}" "${ARG_DEPENDS}")
endfunction()
