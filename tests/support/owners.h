// Owners of what the library hands out, shared by all tests.

#pragma once

#include <cstdlib>
#include <memory>

#include "stock.h"

struct FreeText {
    void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;  // freed with free

struct FreeTbl {
    void operator()(Tbl *tbl) const { freetbl(tbl, nullptr); }
};
using TblPtr = std::unique_ptr<Tbl, FreeTbl>;  // freed with freetbl, its entries left alone

struct FreeArr {
    void operator()(Arr *arr) const { freearr(arr, nullptr); }
};
using ArrPtr = std::unique_ptr<Arr, FreeArr>;  // freed with freearr, its values left alone

struct FreePf {
    void operator()(Pf *pf) const { pffree(pf); }
};
using PfPtr = std::unique_ptr<Pf, FreePf>;  // freed with pffree
