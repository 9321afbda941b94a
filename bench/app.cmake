# The footprint floor: a minimal Qt Widgets window the widget is compared with by
# bench/footprint/footprint.py (startup to first paint, resident memory, idle CPU).
if(TOVRIN_WITH_GUI)
    add_executable(tovrin_footprint_floor ${CMAKE_CURRENT_LIST_DIR}/footprint/FloorWindow.cpp)
    target_link_libraries(tovrin_footprint_floor PRIVATE ambrel_hygiene Qt6::Widgets)
    set_target_properties(tovrin_footprint_floor PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bench)
endif()
