# Script run by tests that need a program's whole life many times over
# (cmake -P): runs QEL_PROGRAM QEL_RUNS times, each a fresh process, and
# fails on the first run that exits with an error or prints anything.
foreach(run RANGE 1 ${QEL_RUNS})
    execute_process(COMMAND ${QEL_EMULATOR} ${QEL_PROGRAM} RESULT_VARIABLE result
                    OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0 OR NOT output STREQUAL "")
        message(FATAL_ERROR "run ${run} of ${QEL_PROGRAM} (exit ${result}) printed:\n${output}")
    endif()
endforeach()
message(STATUS "${QEL_RUNS} runs, nothing printed")
