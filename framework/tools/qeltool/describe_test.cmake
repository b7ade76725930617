# Script run by the qeltool_describe test (cmake -P): resource files cut in
# their header are reported as truncated, exit status 1, and nothing of them
# is described.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
# The cut texts hold no zero byte, which CMake strings cannot carry.
string(ASCII 1 one)
set(cuts "" "qel/" "qel/b0-l" "qel/b0-l${one}${one}" "qel/b0-l${one}${one}${one}${one}${one}")
set(index 0)
foreach(cut IN LISTS cuts)
    set(path ${WORK}/cut${index}.bin)
    file(WRITE ${path} "${cut}")
    execute_process(COMMAND ${EMULATOR} ${QELTOOL} describe ${path} RESULT_VARIABLE result
                    OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT result EQUAL 1 OR NOT err MATCHES "cut${index}.bin: truncated resource file"
       OR out MATCHES "File Version")
        message(FATAL_ERROR "describe of a file of ${index} cut: ${result}\n${out}${err}")
    endif()
    math(EXPR index "${index} + 1")
endforeach()
