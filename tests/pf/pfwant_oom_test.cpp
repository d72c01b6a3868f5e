// What declared parameters say when memory runs out: nothing is half set, and it is named.

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock.h"
#include "support/out_of_memory.h"
#include "support/temp_dir.h"

namespace {

using testing::IsSupersetOf;

int keep;
char *state;
Tbl *gauges;
Arr *limits;

const Pfwant kWants[] = {
    {"keep", PFWANT_INT(&keep), "100", 1, 1e6, nullptr},
    {"state", PFWANT_TEXT(&state), "here", 0, 0, nullptr},
    {"gauges", PFWANT_LIST(&gauges, PFWANT_TEXT), "north\nsouth", 0, 0, nullptr},
    {"limits", PFWANT_TABLE(&limits, PFWANT_DOUBLE), "north 5", 0, 0, nullptr},
    PFWANT_END,
};

}  // namespace

TEST(PfwantOutOfMemory, NamesWhatItCannotKeep)
{
    EXPECT_THAT(
        asked_for([] {
            const bool done = pfwant(nullptr, kWants) == 0;
            pfwant_free(kWants);
            return done;
        }),
        IsSupersetOf({"pfwant: values", "pfwant: value", "pfwant: address", "pfwant: default"}));
}

TEST(PfwantOutOfMemory, NamesWhatItCannotFollow)
{
    const TempDir dir;
    dir.file("gauge.pf", "keep 5\nlimits &Arr{\nsouth 5\n}\n");
    setenv("PFPATH", dir.path().c_str(), 1);
    // Leaves the parser its buffer: without memory for that it faults.
    Pf *pf = nullptr;
    pfread("gauge", &pf);
    pffree(pf);
    EXPECT_THAT(asked_for([] {
                    const bool done = pffollow("gauge", kWants) == 1 && keep == 5;
                    pfwant_free(kWants);
                    return done;
                }),
                IsSupersetOf({"pffollow: follower", "pffollow: text", "pfwant: values"}));
}
