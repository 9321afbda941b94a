# Runs one fuzz target for a bounded time, for CTest: cmake -DFUZZER=<program>
# -DSTARTING_CORPUS=<checked-in folder> -DWORK=<scratch folder> -DDEFAULT_SECONDS=<n>
# -P RunFuzzer.cmake. The environment variable TOVRIN_FUZZ_SECONDS overrides the time.
#
# New inputs go to the scratch folder, never into the checked-in corpus. Any crash, sanitizer
# report, leak, input slower than 5 s or use of more than 2 GiB ends the run with a failure and
# leaves the input in the scratch folder's artifacts/.
if(DEFINED ENV{TOVRIN_FUZZ_SECONDS} AND NOT "$ENV{TOVRIN_FUZZ_SECONDS}" STREQUAL "")
    set(seconds "$ENV{TOVRIN_FUZZ_SECONDS}")
else()
    set(seconds "${DEFAULT_SECONDS}")
endif()
if(NOT seconds MATCHES "^[0-9]+$" OR seconds EQUAL 0)
    message(FATAL_ERROR "The fuzzing time must be a whole number of seconds, not '${seconds}'")
endif()

file(MAKE_DIRECTORY "${WORK}/corpus" "${WORK}/artifacts")
execute_process(
    COMMAND "${FUZZER}" -max_total_time=${seconds} -timeout=5 -rss_limit_mb=2048
            -print_final_stats=1 -artifact_prefix=${WORK}/artifacts/
            "${WORK}/corpus" "${STARTING_CORPUS}"
    RESULT_VARIABLE result
    OUTPUT_VARIABLE output
    ERROR_VARIABLE output)

string(REGEX MATCH "stat::number_of_executed_units: *([0-9]+)" ignored "${output}")
set(executions "${CMAKE_MATCH_1}")
string(REGEX MATCH "DONE +cov: *([0-9]+)" ignored "${output}")
set(coverage "${CMAKE_MATCH_1}")
if(result STREQUAL "0")
    get_filename_component(name "${FUZZER}" NAME)
    message(STATUS "${name}: ${seconds} s, ${executions} executions, coverage ${coverage}, clean")
else()
    # The report is at the end; the whole log stays beside the artifacts.
    file(WRITE "${WORK}/failed-run.log" "${output}")
    string(LENGTH "${output}" length)
    if(length GREATER 8000)
        math(EXPR start "${length} - 8000")
        string(SUBSTRING "${output}" ${start} -1 output)
    endif()
    message("${output}")
    message(FATAL_ERROR "Fuzzing failed (${result}); the input is in ${WORK}/artifacts, the log "
                        "in ${WORK}/failed-run.log")
endif()
