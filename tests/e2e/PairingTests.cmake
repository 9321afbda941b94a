# Read by CTest after the end-to-end tests are discovered. In these the real ideviceinfo finds no
# pair record and pairs: it makes two 2048-bit RSA keys first, seconds of CPU on a busy machine,
# inside the program's 8 s limit for the battery query. They run with no other test beside them,
# so that the suite's own load never takes that time from them.
foreach(test IN LISTS ambrel_e2e_tests_TESTS ambrel_e2e_through_muxer_TESTS)
    if(test MATCHES "MissingPairRecord|/(UserDenied|DialogPending|LockedNeverPaired)( |$)")
        set_tests_properties(${test} PROPERTIES RUN_SERIAL TRUE)
    endif()
endforeach()
