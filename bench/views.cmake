# Rendering the widget card offscreen.
if(TOVRIN_WITH_GUI)
    ambrel_benchmark(ambrel_card_render_bench
        SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/CardRenderBench.cpp
        DEPENDS ambrel_views)
endif()
