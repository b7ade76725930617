# Compiler settings shared by every target of the project.

# Warnings are errors in the project's own presets and CI only: a user's build
# with a newer compiler must not break on a warning that compiler adds.
option(QEL_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)

function(qel_target_defaults target)
    target_compile_options(${target} PRIVATE -Wall -Wextra)
    if(QEL_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    # Report sites print their source path relative to the repository root.
    target_compile_options(${target} PRIVATE "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
    # The library's exported functions call each other directly and may be
    # inlined into each other: GCC would otherwise route every such call
    # through the PLT in case a preloaded library replaced the callee. And
    # no guessed targets for virtual calls: an allocator calling another
    # through the interface would otherwise inline itself into its own
    # path, in case the callee were one of its kind.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${target} PRIVATE -fno-semantic-interposition
                                                 -fno-devirtualize-speculatively)
    endif()
endfunction()

# Sanitizers come in through CMAKE_CXX_FLAGS (see CMakePresets.json), so that
# they reach every target, GoogleTest and the install test's consumer alike.

if(MINGW)
    # Link the GCC runtime statically so that the DLL and the programs need
    # nothing beyond what Windows ships.
    add_link_options(-static -static-libgcc -static-libstdc++)
endif()
