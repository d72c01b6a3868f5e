// Pieces gathered and handed on together.

#include "base/gatherer.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Keep {
    std::vector<std::string> *handed_on;
    void operator()(std::string_view text) const { handed_on->emplace_back(text); }
};

using Gatherer = stock::Gatherer<8, Keep>;
using Texts = std::vector<std::string>;

}  // namespace

TEST(Gatherer, HandsOnWhatItHasWhenAPieceDoesNotFit)
{
    Texts handed_on;
    Gatherer gather(Keep{&handed_on});
    gather("north ");
    gather("12");
    EXPECT_EQ(handed_on, Texts{});
    gather(" mm");
    EXPECT_EQ(handed_on, Texts{"north 12"});
}

TEST(Gatherer, HandsOnTheRestAtTheEndAndNothingTwice)
{
    Texts handed_on;
    {
        Gatherer gather(Keep{&handed_on});
        gather("north");
        gather.flush();
        gather.flush();
        gather("");
        gather("south");
    }
    EXPECT_EQ(handed_on, (Texts{"north", "south"}));
}

TEST(Gatherer, HandsOnAPieceLargerThanItsBufferByItselfAndInOrder)
{
    Texts handed_on;
    Gatherer gather(Keep{&handed_on});
    gather("a");
    gather("the north gauge");
    gather("b");
    gather.flush();
    EXPECT_EQ(handed_on, (Texts{"a", "the north gauge", "b"}));
}

TEST(Gatherer, GivesRoomToWriteIn)
{
    Texts handed_on;
    {
        Gatherer gather(Keep{&handed_on});
        gather("north");
        gather.room_for(4)[0] = 'x';
        gather.advance(1);
        gather("y");
    }
    EXPECT_EQ(handed_on, (Texts{"north", "xy"}));
}
