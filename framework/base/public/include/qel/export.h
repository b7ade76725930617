// Symbol export for the qelbase library.
//
// QEL_API marks every class and function that the library exports. Building
// the library defines QEL_BASE_BUILD; a static build (and its users) defines
// QEL_BASE_STATIC, which makes QEL_API empty.
#pragma once

#if defined(QEL_BASE_STATIC)
#define QEL_API
#elif defined(_WIN32)
#if defined(QEL_BASE_BUILD)
#define QEL_API __declspec(dllexport)
#else
#define QEL_API __declspec(dllimport)
#endif
#else
#define QEL_API __attribute__((visibility("default")))
#endif
