/*
 * stock.hpp - the interface of stock for C++20 and later, header only.
 *
 * Its classes own and free what the functions of stock.h return, make lists and arrays ranges, and
 * check types when a program is compiled.
 *
 *     stock/strings.hpp   text: owns a string; zstring: a string argument
 *     stock/tbl.hpp       list: owns a Tbl of records or pointers, a contiguous range
 *     stock/arr.hpp       array: owns an Arr, a bidirectional range in the order of the keys
 *     stock/pf.hpp        params: owns a parameter tree; values by type, tables, lists
 *     stock/pfwant.hpp    wants: declares parameters, and owns what their variables hold
 *     stock/elog.hpp      report::complain ...: messages with checked formats
 *     stock/epoch.hpp     to_epoch, from_epoch: convert from and to times of std::chrono
 *     stock/convert.hpp   convert: converts packed numbers, by types and byte order
 *
 *     stock::params settings;
 *     if (settings.read("daemon") != 0)
 *         stock::report::die("can't read %s", "daemon.pf");
 *     const int interval = settings.get<int>("interval", 60);
 *     for (std::string_view host : settings.get<stock::params_list<>>("hosts"))
 *         stock::report::notify("%.*s every %d s", host, interval);
 *
 * Each function calls the function of stock.h that its description names. Everything that is said
 * about that function holds for it: messages, threads, and what happens when memory runs out. It
 * takes as much time as that function, unless its description says otherwise. It throws nothing.
 *
 * An owner can be moved, but not copied; copy() makes a copy. An owner that was moved from or
 * released is empty, and can be used like any other empty one. The constructor of an owner takes
 * over the result of a function of stock.h; tbl(), arr(), pf() or c_str() returns it for a call of
 * such a function; and release() gives it back to the caller.
 */

#ifndef STOCK_HPP
#define STOCK_HPP

#if __cplusplus <= 201703L
#error "stock.hpp is for C++20 and later: compile with -std=c++20"
#endif

#include "stock.h"
#include "stock/arr.hpp"
#include "stock/convert.hpp"
#include "stock/elog.hpp"
#include "stock/epoch.hpp"
#include "stock/pf.hpp"
#include "stock/pfwant.hpp"
#include "stock/strings.hpp"
#include "stock/tbl.hpp"

#endif
