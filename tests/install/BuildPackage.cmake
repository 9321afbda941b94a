# CTest's setup step for the package tests: makes the Debian package once, in a folder of its
# own, so that every package test inspects the same file.
#
#   cmake -DCPACK_COMMAND=<cpack> -DCONFIG=<CPackConfig.cmake> -DFOLDER=<folder> -P BuildPackage.cmake

file(REMOVE_RECURSE ${FOLDER})
file(MAKE_DIRECTORY ${FOLDER})
execute_process(COMMAND ${CPACK_COMMAND} --config ${CONFIG} -B ${FOLDER}
                WORKING_DIRECTORY ${FOLDER} RESULT_VARIABLE failed)
if(failed)
    message(FATAL_ERROR "cpack failed: ${failed}")
endif()
file(GLOB packages ${FOLDER}/*.deb)
list(LENGTH packages count)
if(NOT count EQUAL 1)
    message(FATAL_ERROR "cpack made ${count} packages, not one: ${packages}")
endif()
# The staging tree is not needed once the package exists.
file(REMOVE_RECURSE ${FOLDER}/_CPack_Packages)
message(STATUS "Made ${packages}")
