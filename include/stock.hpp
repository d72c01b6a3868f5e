/*
 * stock.hpp - stock for programs in C++20 and later, header only.
 *
 * The functions of stock.h with the language's own means: what is owned is freed,
 * lists and arrays are ranges, and types are checked when a program is compiled.
 *
 *     stock/strings.hpp   text: a string that free frees; zstring: an argument
 *     stock/tbl.hpp       list: a Tbl of records or pointers, a contiguous range
 *     stock/arr.hpp       array: an Arr, a bidirectional range in key order
 *     stock/pf.hpp        params: a parameter tree; typed values, tables, lists
 *     stock/elog.hpp      report::complain ...: messages with checked formats
 *     stock/epoch.hpp     to_epoch, from_epoch: times of std::chrono
 *     stock/convert.hpp   convert: packed external numbers, by type and order
 *
 *     stock::params settings;
 *     if (settings.read("daemon") != 0)
 *         stock::report::die("can't read %s", "daemon.pf");
 *     const int interval = settings.get<int>("interval", 60);
 *     for (std::string_view host : settings.get<stock::params_list<>>("hosts"))
 *         stock::report::notify("%.*s every %d s", host, interval);
 *
 * Each function is the one of stock.h that its description names, and what that
 * promises holds for it: messages, threads, what running out of memory does. It costs
 * what that one costs, unless its description says more. Nothing is thrown.
 *
 * An owner is moved, never copied; copy() makes a copy where one is wanted. What
 * was moved from, or released, is empty, and may be used as any other that is empty.
 * Each owner takes over what a function of stock.h returned (the constructor), shows
 * it to one (tbl(), arr(), pf(), c_str()) and gives it up (release()).
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
#include "stock/strings.hpp"
#include "stock/tbl.hpp"

#endif
