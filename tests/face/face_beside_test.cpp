// The C++ face and the library's own names share a namespace: one source may see both.

#include "stock.hpp"

#include "arrays/node.h"
#include "base/alloc.h"
#include "base/ascii.h"
#include "base/fixed_text.h"
#include "base/growing_text.h"
#include "base/guards.h"
#include "base/number.h"
#include "base/regex.h"
#include "base/thread.h"
#include "files/files_state.h"
#include "numbers/decimal.h"
#include "pf/node.h"
#include "pf/scan.h"
#include "time/token_scanner.h"

#include <gtest/gtest.h>

namespace stock {

TEST(FaceBeside, the_names_of_the_library)
{
    // The C functions are what their names say here, too.
    Tbl *words = newtbl(0);
    pushtbl(words, "a");
    const list<const char *> owner(words);
    EXPECT_STREQ(owner.at(0), "a");
    EXPECT_EQ(epoch(1970002), 86400);
    const text copied(copy_text("b", "text"));
    EXPECT_EQ(copied, "b");
    EXPECT_EQ(floor_div(-1.0, 2.0), -1);
}

}  // namespace stock
