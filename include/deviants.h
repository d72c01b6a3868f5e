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
STOCK_API void *std_dlopen(const char *name);

STOCK_END_DECLS

#endif
