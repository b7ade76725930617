# Script run by tests that need a program's whole life many times over
# (cmake -P): runs QEL_PROGRAM QEL_RUNS times, each a fresh process, and
# fails on the first run that exits with an error or prints anything.
#
# Under wine, now and then (one run in a few hundred) wine itself prints
# "wine client error:<thread>:" and nothing else as the process exits, a
# thread's link to wine's server having broken. That run, whose program
# exited without error, is run once more, and the test fails if the second
# run prints anything too.
function(run_once output_variable result_variable)
    execute_process(COMMAND ${QEL_EMULATOR} ${QEL_PROGRAM} RESULT_VARIABLE result
                    OUTPUT_VARIABLE output ERROR_VARIABLE output)
    set(${output_variable} "${output}" PARENT_SCOPE)
    set(${result_variable} "${result}" PARENT_SCOPE)
endfunction()

set(retried 0)
foreach(run RANGE 1 ${QEL_RUNS})
    run_once(output result)
    if(result EQUAL 0 AND QEL_EMULATOR MATCHES "wine"
       AND output MATCHES "^wine client error:[0-9a-f]+:[^\n]*\n?$")
        math(EXPR retried "${retried} + 1")
        string(STRIP "${output}" line)
        message(STATUS "run ${run}: wine printed \"${line}\"; run again")
        run_once(output result)
    endif()
    if(NOT result EQUAL 0 OR NOT output STREQUAL "")
        message(FATAL_ERROR "run ${run} of ${QEL_PROGRAM} (exit ${result}) printed:\n${output}")
    endif()
endforeach()
message(STATUS "${QEL_RUNS} runs, nothing printed (${retried} run again after wine's own error)")
