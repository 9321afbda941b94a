# The battery history: adding rows, the file's size and the window's first paint.
if(TOVRIN_WITH_GUI)
    ambrel_benchmark(ambrel_history_bench
        SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/HistoryBench.cpp
        DEPENDS ambrel_views ambrel_history)
endif()
