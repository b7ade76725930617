# Packages that cpack makes from the install: a .deb on Linux, a .zip on
# Windows, each with the library, its headers, the CMake and pkg-config
# files and qeltool.
set(CPACK_PACKAGE_NAME qelbase)
set(CPACK_PACKAGE_VENDOR qel)
set(CPACK_PACKAGE_CONTACT "qel Base developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
if(WIN32)
    set(CPACK_GENERATOR ZIP)
    if(CMAKE_SIZEOF_VOID_P EQUAL 8)
        set(CPACK_SYSTEM_NAME win64)
    else()
        set(CPACK_SYSTEM_NAME win32)
    endif()
else()
    set(CPACK_GENERATOR DEB)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
    endif()
    # Its dependencies are read from the binaries (dpkg-shlibdeps, which
    # needs Debian's dpkg-dev and file), and its shlibs file runs ldconfig.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
endif()
include(CPack)
