/*
 * stock.h - everything of stock, one header per family.
 */

#ifndef STOCK_H
#define STOCK_H

#include "stock/arr.h"
#include "stock/elog.h"
#include "stock/redblack.h"
#include "stock/restat.h"
#include "stock/shellsort.h"
#include "stock/ssearch.h"
#include "stock/tbl.h"

#endif
