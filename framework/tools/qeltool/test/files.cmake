# qeltool's file commands on real files, as a user meets them: a sparse file
# past 4 GB streams whole and the stream ends, an empty one too, and file
# errors read "FILE: reason" with the system's reason.
#   cmake -DQELTOOL=<qeltool> [-DEMULATOR=wine] -DWORK=<scratch folder> -P files.cmake
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/folder)
file(WRITE ${WORK}/empty.bin "")

# run(<stdout regex> <stderr regex> <exit> args...)
function(run out err code)
    execute_process(COMMAND ${EMULATOR} ${QELTOOL} ${ARGN} WORKING_DIRECTORY ${WORK}
                    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE error TIMEOUT 600)
    if(NOT "${result}" STREQUAL "${code}" OR NOT output MATCHES "${out}" OR NOT error MATCHES "${err}")
        message(FATAL_ERROR "qeltool ${ARGN}: exit ${result} (expected ${code})\n"
                            "stdout: ${output}\nstderr: ${error}")
    endif()
endfunction()

string(REPEAT "n" 300 long)
run("" "^folder: Is a directory" 1 check folder)
run("" "^folder/${long}: Path too long" 1 check folder/${long})
run("" "^missing.txt: [^\n]+" 1 check missing.txt)
run("" "^folder: Is a directory" 1 stream folder 1M)
run("streamed 0 of 0 bytes" "" 0 stream empty.bin 1M)

# One byte past 4 GB: beyond a 32-bit size and a 31-bit target.
execute_process(COMMAND truncate -s 4294967297 big.bin WORKING_DIRECTORY ${WORK}
                RESULT_VARIABLE sparse ERROR_VARIABLE why)
if(NOT sparse EQUAL 0)
    message("skipped: the file system refuses a sparse file of 4 GB: ${why}")
else()
    run("streamed 4294967297 of 4294967297 bytes" "" 0 stream big.bin 1000M)
endif()
file(REMOVE_RECURSE ${WORK})
message("qeltool files: ok")
