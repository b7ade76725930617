# Script run by the qeltool_command_line test (cmake -P): every command of
# qeltool takes -h and --help, refuses a bad option and a wrong number of
# operands with exit 2, fails with exit 1, and writes help to standard output
# and everything else that goes wrong to standard error.
#
# QELTOOL: the tool; QEL_EMULATOR: what runs it (wine), if anything;
# QEL_WORK_DIR: an empty folder to run it in.
cmake_policy(VERSION 3.20)
file(REMOVE_RECURSE ${QEL_WORK_DIR})
file(MAKE_DIRECTORY ${QEL_WORK_DIR})
set(streams ${QEL_WORK_DIR}-streams)
file(MAKE_DIRECTORY ${streams})
set(ENV{WINEDEBUG} -all)

# expect(EXIT STREAM ARGS...): qeltool ARGS exits with EXIT and writes to
# STREAM ("out" or "err") and not to the other; its texts are left in out and
# err.
function(expect exit stream)
    # Files, not pipes: wine's server, started by the first run, would hold a
    # pipe open for seconds after the tool has ended.
    execute_process(COMMAND ${QEL_EMULATOR} ${QELTOOL} ${ARGN} WORKING_DIRECTORY ${QEL_WORK_DIR}
                    RESULT_VARIABLE result OUTPUT_FILE ${streams}/out ERROR_FILE ${streams}/err)
    file(READ ${streams}/out out)
    file(READ ${streams}/err err)
    string(REPLACE "\r" "" out "${out}")
    string(REPLACE "\r" "" err "${err}")
    set(problems "")
    if(NOT result STREQUAL exit)
        string(APPEND problems " exit ${result}, not ${exit};")
    endif()
    if(stream STREQUAL "out")
        set(expected "${out}")
        set(unexpected "${err}")
    else()
        set(expected "${err}")
        set(unexpected "${out}")
    endif()
    if(expected STREQUAL "")
        string(APPEND problems " nothing on std${stream};")
    endif()
    if(NOT unexpected STREQUAL "")
        string(APPEND problems " text on the other stream: ${unexpected}")
    endif()
    if(problems)
        string(REPLACE ";" " " line "${ARGN}")
        message(SEND_ERROR "qeltool ${line}:${problems}")
    endif()
    set(out "${out}" PARENT_SCOPE)
    set(err "${err}" PARENT_SCOPE)
endfunction()

# The tool itself.
expect(2 err)
expect(2 err --no-such-option)
expect(2 err no-such-command)
expect(0 out --version)
expect(0 out -h)
set(usage "${out}")
expect(0 out --help)
if(NOT out STREQUAL usage)
    message(SEND_ERROR "qeltool -h and --help print different texts")
endif()

# Help wins over a bad option; after "--" an option is a file name.
expect(0 out check --no-such-option --help)
expect(1 err check -- --help)
# Checks that commands make on their own operands.
expect(2 err find no-caret)
expect(2 err stream missing.bin 0)
expect(2 err memory --demo missing.txt)
expect(2 err memory -o) # an option without its value
# The demo's page has its page map and allocator table; a file that holds no
# dump is refused.
expect(0 out memory --demo)
if(NOT out MATCHES "<svg id=\"page-map-svg\"" OR NOT out MATCHES "<table id=\"allocator-table\""
   OR NOT out MATCHES "</html>")
    message(SEND_ERROR "qeltool memory --demo: no page map or allocator table")
endif()
file(WRITE ${QEL_WORK_DIR}/notes.txt "no dump here\n")
expect(1 err memory notes.txt)
file(REMOVE ${QEL_WORK_DIR}/notes.txt)

# Names are UTF-8 on every platform, also those no ANSI code page of Windows
# can spell. (Wine reads the Linux command line in the locale's encoding.)
set(ENV{LC_ALL} C.UTF-8)
set(name "σχήμα-語.xml")
file(WRITE ${QEL_WORK_DIR}/${name} "<σ>x</σ>\n")
expect(0 out xml ${name})
if(NOT out MATCHES "^σ: x")
    message(SEND_ERROR "qeltool xml ${name}: not its tree:\n${out}")
endif()
file(REMOVE ${QEL_WORK_DIR}/${name})
expect(1 err xml ${name})
if(NOT err MATCHES "^${name}: ")
    message(SEND_ERROR "qeltool xml ${name}: the failure does not name it whole:\n${err}")
endif()

# How each command runs without operands when it needs none (in an empty
# folder), and a command line on which it fails ("" when it cannot fail).
set(bare_tour 1 err) # ./samples is not there
set(bare_mounts 0 out)
set(bare_memory 2 err) # neither dumps nor --demo
set(fails_tour missing)
set(fails_mounts "")
set(fails_resolve /missing/x)
set(fails_check missing.txt)
set(fails_print missing.txt)
set(fails_find missing.txt^Scene)
set(fails_stream missing.bin 16M)
set(fails_describe missing.bin)
set(fails_xml missing.xml)
set(fails_memory missing.txt)

# Every command that `qeltool --help` lists.
string(REGEX MATCHALL "\n  [a-z]+[^\n]*" lines "${usage}")
if(NOT lines)
    message(FATAL_ERROR "qeltool --help lists no command:\n${usage}")
endif()
foreach(line ${lines})
    string(REGEX REPLACE "^\n  ([a-z]+).*" "\\1" command "${line}")
    string(REGEX REPLACE "^\n  [a-z]+ ?" "" synopsis "${line}")

    expect(0 out ${command} --help)
    set(help "${out}")
    if(NOT help MATCHES "^usage: qeltool ${command}")
        message(SEND_ERROR "qeltool ${command} --help does not begin with its usage line:\n${help}")
    endif()
    expect(0 out ${command} -h)
    if(NOT out STREQUAL help)
        message(SEND_ERROR "qeltool ${command}: -h and --help print different texts")
    endif()
    expect(2 err ${command} --no-such-option)
    if(NOT err MATCHES "--no-such-option" OR NOT err MATCHES "usage: qeltool ${command}")
        message(SEND_ERROR "qeltool ${command} --no-such-option: no usage line:\n${err}")
    endif()

    # Operands in brackets may be left out; any other is needed.
    string(REGEX REPLACE "\\[[^]]*\\]" "" needed "${synopsis}")
    if(needed MATCHES "[^ ]")
        expect(2 err ${command})
    elseif(DEFINED bare_${command})
        expect(${bare_${command}} ${command})
    else()
        message(SEND_ERROR "qeltool ${command} needs no operands: say above how it runs without")
    endif()

    if(NOT DEFINED fails_${command})
        message(SEND_ERROR "qeltool ${command}: give a command line above on which it fails")
    elseif(NOT fails_${command} STREQUAL "")
        expect(1 err ${command} ${fails_${command}})
        list(GET fails_${command} 0 name)
        string(REGEX REPLACE "\\^.*" "" name "${name}")
        if(NOT err MATCHES "${name}")
            message(SEND_ERROR "qeltool ${command}: the failure does not name ${name}:\n${err}")
        endif()
    endif()
endforeach()
