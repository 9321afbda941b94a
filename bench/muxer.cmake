# A USB read through the program's muxer next to the same read straight to the system muxer
# (the simulated iPhone), and the memory the muxer adds.
if(TOVRIN_IDEVICEINFO)
    find_package(Python3 REQUIRED COMPONENTS Interpreter)
    ambrel_benchmark(ambrel_muxer_bench
        SOURCES ${CMAKE_CURRENT_LIST_DIR}/MuxerBench.cpp
        DEPENDS ambrel_muxer ambrel_test_fakes)
    target_compile_definitions(ambrel_muxer_bench PRIVATE
        TOVRIN_PYTHON="${Python3_EXECUTABLE}"
        TOVRIN_SIMPHONE_SCRIPT="${PROJECT_SOURCE_DIR}/tests/simphone/simphone.py"
        TOVRIN_IDEVICEINFO="${TOVRIN_IDEVICEINFO}")
endif()
