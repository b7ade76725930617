# Script run by the umbrella_header test (cmake -P): <qel/base.h> includes
# every other header of the public folder QEL_HEADER_DIR, and no header that
# is not there.
file(GLOB headers RELATIVE ${QEL_HEADER_DIR} ${QEL_HEADER_DIR}/*.h)
list(REMOVE_ITEM headers base.h)
file(STRINGS ${QEL_HEADER_DIR}/base.h lines REGEX "^#include <qel/")
string(REGEX REPLACE "#include <qel/([^>]+)>" "\\1" included "${lines}")

set(missing ${headers})
list(REMOVE_ITEM missing ${included})
set(unknown ${included})
list(REMOVE_ITEM unknown ${headers})
if(missing OR unknown)
    message(FATAL_ERROR "qel/base.h does not include: ${missing}\n"
                        "qel/base.h includes what is not there: ${unknown}")
endif()
