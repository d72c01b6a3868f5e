/*
 * export.h - how the library's headers declare things.
 *
 * Every public header includes this one. It defines the few marks that the
 * declarations carry; programs need none of them.
 */

#ifndef STOCK_EXPORT_H
#define STOCK_EXPORT_H

/*
 * Everything between the first two has C linkage: C, C++ and Fortran link the same
 * symbols. In C++ an inline function is one and the same for all sources, in C each
 * has its own.
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

/* Marks what the library exports; everything else is hidden. */
#ifndef STOCK_API
#define STOCK_API __attribute__((visibility("default")))
#endif

/* Argument f is a printf format and argument a the first that it prints (0: a va_list). */
#define STOCK_PRINTF(f, a) __attribute__((format(printf, f, a)))

/* The argument list ends with a null pointer. */
#define STOCK_SENTINEL __attribute__((sentinel))

#endif
