// The state file when memory runs out.

#include "stock/bury.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/out_of_memory.h"
#include "support/temp_dir.h"

using testing::IsSupersetOf;

TEST(BuryOutOfMemory, NamesWhatItAskedFor)
{
    const TempDir dir;
    const std::string state = dir / "state";
    EXPECT_THAT(asked_for([&] {
                    static int count;
                    static const char *name = "&Tbl{";
                    unlink(state.c_str());
                    return exhume(state.c_str(), nullptr, 0, nullptr) == 0 &&
                           resurrect("count", &count, RELIC_INT) == 1 &&
                           resurrect("name", &name, RELIC_STRING) == 1 && bury() == 0;
                }),
                IsSupersetOf({"exhume: grave", "exhume: grave->name", "exhume: grave->alternate",
                              "resurrect: relic_record", "bury: pf->value.pffunct", "pfput: key"}));
}
