# The command runner: per-run overhead against a bare spawn, and draining a flood of output.
ambrel_benchmark(ambrel_command_runner_bench
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/CommandRunnerBench.cpp
    DEPENDS ambrel_phone ambrel_platform)
