# A whole phone read against stand-in tools of known duration: what the reader adds to them.
ambrel_benchmark(ambrel_phone_read_bench
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/PhoneReadBench.cpp
    DEPENDS ambrel_phone ambrel_platform ambrel_test_fakes)
