/*
 * stock.h - a support library for programs that process data and run for a long time: message log,
 * parameter files, lists, arrays, times, text, packed numbers, paths, files, state across restarts.
 *
 * This header includes the headers of all families. Each describes its functions; what holds for
 * the whole family is at its top. Two rules hold everywhere:
 *
 * - A pointer argument must not be null unless its description says what null means.
 * - Running out of memory ends the process with a message and status 1, unless a description says
 *   that the function returns null then.
 */

#ifndef STOCK_H
#define STOCK_H

#include "stock/arr.h"
#include "stock/asciidump.h"
#include "stock/basicread.h"
#include "stock/bury.h"
#include "stock/convert.h"
#include "stock/datasearch.h"
#include "stock/debugchar.h"
#include "stock/elog.h"
#include "stock/elog_fault.h"
#include "stock/epoch.h"
#include "stock/expand_env.h"
#include "stock/fix_strtod.h"
#include "stock/gettaluvine.h"
#include "stock/h2e.h"
#include "stock/halt.h"
#include "stock/hexdump.h"
#include "stock/hook.h"
#include "stock/ieee754.h"
#include "stock/is_file.h"
#include "stock/mapfile.h"
#include "stock/path.h"
#include "stock/pf.h"
#include "stock/pfwant.h"
#include "stock/pushstr.h"
#include "stock/redblack.h"
#include "stock/restat.h"
#include "stock/shellsort.h"
#include "stock/signal_desc.h"
#include "stock/ssearch.h"
#include "stock/str2epoch.h"
#include "stock/strdbl.h"
#include "stock/strings.h"
#include "stock/strmatches.h"
#include "stock/tbl.h"
#include "stock/tblfile.h"
#include "stock/time.h"
#include "stock/usermethod.h"
#include "stock/wait_for_time.h"
#include "stock/xargs.h"
#include "stock/yesno.h"

#endif
