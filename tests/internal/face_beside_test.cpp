// The C++ face and the library's own names share a namespace: one source may see both.

#include "stock.hpp"

#include "internal/alloc.h"
#include "internal/ascii.h"
#include "internal/decimal.h"
#include "internal/growing_text.h"
#include "internal/guards.h"
#include "internal/line.h"
#include "internal/listing.h"
#include "internal/number.h"
#include "internal/pfget.h"
#include "internal/pflex.h"
#include "internal/pfnode.h"
#include "internal/rbnode.h"
#include "internal/regex.h"
#include "internal/thread.h"
#include "internal/token_scanner.h"
#include "internal/zone.h"

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
