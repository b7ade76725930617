# Script run by the install_consumer test (cmake -P).
set(prefix ${QEL_WORK_DIR}/prefix)
set(build ${QEL_WORK_DIR}/build)
file(REMOVE_RECURSE ${QEL_WORK_DIR})

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed (${result}): ${ARGN}")
    endif()
endfunction()

run(${CMAKE_COMMAND} --install ${QEL_BUILD_DIR} --prefix ${prefix})
set(args -S ${QEL_CONSUMER_SOURCE} -B ${build} -G ${QEL_GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
if(QEL_TOOLCHAIN_FILE)
    # A cross build looks for packages below its root paths only.
    list(APPEND args -DCMAKE_TOOLCHAIN_FILE=${QEL_TOOLCHAIN_FILE} -DCMAKE_FIND_ROOT_PATH=${prefix})
endif()
if(QEL_CXX_FLAGS)
    list(APPEND args "-DCMAKE_CXX_FLAGS=${QEL_CXX_FLAGS}")
endif()
run(${CMAKE_COMMAND} ${args})
run(${CMAKE_COMMAND} --build ${build})

if(EXISTS ${build}/consumer.exe)
    set(program ${build}/consumer.exe)
else()
    set(program ${build}/consumer)
endif()
run(${QEL_EMULATOR} ${program})
