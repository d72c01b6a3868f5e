/*
 * deviants.h - the platform layer: what differs between operating systems.
 */

#ifndef DEVIANTS_H
#define DEVIANTS_H

#include "stock/export.h"

STOCK_BEGIN_DECLS

STOCK_API double std_now(void);
STOCK_API char *getexecname(void);
STOCK_API int my_hostname(char *buffer);

/*
 * Whether memory can be read. Null: the n bytes at the address can be, as far
 * as is known; anything else, such as the first bad address, keeps the dumps
 * from touching it. What stands here knows nothing and says null. It is a weak
 * symbol: a program that knows its memory defines its own.
 */
STOCK_API void *nomem(const void *address, int n);

STOCK_API void *std_dlopen(const char *name);

STOCK_END_DECLS

#endif
