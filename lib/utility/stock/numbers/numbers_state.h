// The variables of this room: what is found out once and then kept for the whole process.
//
// Both are written by whichever thread is first and only read afterwards, so they need no lock.

#pragma once

#include <atomic>
#include <locale>  // where systems differ on what declares locale_t, it knows

#include <locale.h>

#include "numbers/convert.h"

namespace stock {

struct NumbersState {
    // The loops that this processor runs fastest; null until the first conversion. Every
    // thread would choose the same.
    std::atomic<const Loops *> loops{nullptr};

    // The "C" locale for strtod_l; null until the first number that needs it. Never freed.
    std::atomic<locale_t> c_locale{nullptr};
};

extern constinit NumbersState Numbers_state;

}  // namespace stock
