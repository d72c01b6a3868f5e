/*
 * export.h - macros that the declarations in the public headers use.
 *
 * Every public header includes this one. Programs do not need the macros.
 */

#ifndef STOCK_EXPORT_H
#define STOCK_EXPORT_H

/*
 * Everything between STOCK_BEGIN_DECLS and STOCK_END_DECLS has C linkage, so that C, C++ and
 * Fortran link the same symbols. An inline function is static in C, so that each source has its
 * own copy.
 */
#ifdef __cplusplus
#define STOCK_BEGIN_DECLS extern "C" {
#define STOCK_END_DECLS }
#define STOCK_NORETURN [[noreturn]]
#define STOCK_INLINE inline
#define STOCK_CAST(type, value) reinterpret_cast<type>(value)
#else
#define STOCK_BEGIN_DECLS
#define STOCK_END_DECLS
#define STOCK_NORETURN __attribute__((__noreturn__))
#define STOCK_INLINE static inline
#define STOCK_CAST(type, value) ((type)(value))
#endif

/* Marks a symbol that the library exports; all others are hidden. */
#ifndef STOCK_API
#define STOCK_API __attribute__((visibility("default")))
#endif

/* Argument f is a printf format, and argument a the first one that it prints (0: a va_list). */
#define STOCK_PRINTF(f, a) __attribute__((format(printf, f, a)))

/* The argument list ends with a null pointer. */
#define STOCK_SENTINEL __attribute__((sentinel))

#endif
