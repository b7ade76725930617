# Script run by the install_consumer test (cmake -P): installs the library,
# moves the installed tree elsewhere (nothing in it may name the place it
# was installed to), builds the consumer project against it through
# find_package and pkg-config, and runs the programs and the installed
# qeltool.
cmake_policy(VERSION 3.20)
set(staging ${QEL_WORK_DIR}/staging)
set(prefix ${QEL_WORK_DIR}/prefix)
set(build ${QEL_WORK_DIR}/build)
file(REMOVE_RECURSE ${QEL_WORK_DIR})

# run(PATTERN COMMAND...): the command succeeds and prints PATTERN.
function(run pattern)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
    if(NOT result EQUAL 0 OR (pattern AND NOT out MATCHES "${pattern}"))
        message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}")
    endif()
endfunction()

run("" ${CMAKE_COMMAND} --install ${QEL_BUILD_DIR} --prefix ${staging})
file(RENAME ${staging} ${prefix})

# Only this tree's pkg-config file, and the library found through the
# run path the tool carries, not through the environment.
set(ENV{PKG_CONFIG_LIBDIR} ${prefix}/${QEL_INSTALL_LIBDIR}/pkgconfig)
unset(ENV{PKG_CONFIG_PATH})
unset(ENV{LD_LIBRARY_PATH})

set(args -S ${QEL_CONSUMER_SOURCE} -B ${build} -G ${QEL_GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
if(QEL_TOOLCHAIN_FILE)
    # A cross build looks for packages below its root paths only.
    list(APPEND args -DCMAKE_TOOLCHAIN_FILE=${QEL_TOOLCHAIN_FILE} -DCMAKE_FIND_ROOT_PATH=${prefix})
endif()
if(QEL_CXX_FLAGS)
    list(APPEND args "-DCMAKE_CXX_FLAGS=${QEL_CXX_FLAGS}")
endif()
run("" ${CMAKE_COMMAND} ${args})
run("" ${CMAKE_COMMAND} --build ${build})

set(suffix "")
if(EXISTS ${build}/consumer.exe)
    set(suffix .exe)
endif()
run("consumer ok" ${QEL_EMULATOR} ${build}/consumer${suffix})
if(EXISTS ${build}/consumer_pc${suffix})
    # Linked with -L and -l only: the library is found through the loader's path.
    run("consumer ok" ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${QEL_INSTALL_LIBDIR}
        ${QEL_EMULATOR} ${build}/consumer_pc${suffix})
endif()
if(EXISTS ${prefix}/${QEL_INSTALL_BINDIR}/qeltool${suffix})
    run("^qeltool " ${QEL_EMULATOR} ${prefix}/${QEL_INSTALL_BINDIR}/qeltool${suffix} --version)
endif()
