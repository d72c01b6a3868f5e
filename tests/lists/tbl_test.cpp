// The ordered list: both ends, the middle, growth, and reading where nothing is.

#include "stock/tbl.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock/elog.h"
#include "support/child.h"
#include "support/logged.h"
#include "support/owners.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

struct Point {
    int32_t x, y;
    bool operator==(const Point &) const = default;
};

constexpr Point kOrigin{0, 0};
constexpr Point kNowhere{-1, -1};

char kA[] = "a", kB[] = "b", kC[] = "c", kD[] = "d", kE[] = "e";

TblPtr points(std::initializer_list<Point> list, const Point *null_value = nullptr)
{
    TblPtr tbl(inittbl(0, 0, 1, null_value, sizeof(Point)));
    for (const Point &point : list)
        pushtbl(tbl.get(), &point);
    return tbl;
}

TblPtr strings(std::initializer_list<const char *> list)
{
    TblPtr tbl(newtbl(0));
    for (const char *text : list)
        pushtbl(tbl.get(), text);
    return tbl;
}

Point point_at(const TblPtr &tbl, int64_t i)
{
    return *static_cast<Point *>(gettbl(tbl.get(), i));
}

std::string joined(const TblPtr &tbl, const char *separator = " ")
{
    return Text(jointbl(tbl.get(), separator)).get();
}

std::vector<int64_t> numbers(const TblPtr &tbl)
{
    std::vector<int64_t> list;
    for (int64_t i = 0; i < tbl->count; ++i)
        list.push_back(reinterpret_cast<int64_t>(gettbl(tbl.get(), i)));
    return list;
}

void *number(int64_t n)
{
    return reinterpret_cast<void *>(n);
}

std::vector<std::string> freed;

void note_text(void *entry)
{
    freed.emplace_back(static_cast<char *>(entry));
}

void note_point(void *entry)
{
    const auto *point = static_cast<const Point *>(entry);
    freed.push_back(std::to_string(point->x) + "," + std::to_string(point->y));
}

int by_text(const void *a, const void *b, void *)
{
    return strcmp(*static_cast<char *const *>(a), *static_cast<char *const *>(b));
}

int key_to_text(const void *key, const void *slot, void *)
{
    return strcmp(static_cast<const char *>(key), *static_cast<char *const *>(slot));
}

// Making a list.

TEST(Tbl, IsANewEmptyListWithoutMemoryForEntries)
{
    const TblPtr tbl(inittbl(3, 4, 1, &kNowhere, sizeof(Point)));
    EXPECT_EQ(tbl->base, nullptr);
    EXPECT_EQ(tbl->mapaddr, nullptr);
    ASSERT_NE(tbl->null_value, nullptr);
    EXPECT_NE(tbl->null_value, &kNowhere);
    EXPECT_EQ(*static_cast<Point *>(tbl->null_value), kNowhere);
    EXPECT_EQ(tbl->deleted, nullptr);
    EXPECT_EQ(tbl->left, 0);
    EXPECT_EQ(tbl->count, 0);
    EXPECT_EQ(tbl->nalloc, 0);
    EXPECT_EQ(tbl->size, 8);
    EXPECT_NE(tbl->direct, 0U);
    EXPECT_EQ(tbl->maplen, 0);
    EXPECT_EQ(tbl->fd, -1);
    EXPECT_EQ(tbl->prot, 0U);
    EXPECT_EQ(tbl->left_grow, 3);
    EXPECT_EQ(tbl->right_grow, 4);
}

TEST(Tbl, TakesAGrowthBelowOneAsTen)
{
    const TblPtr a(inittbl(0, -5, 0, nullptr, 8));
    EXPECT_EQ(a->left_grow, 10);
    EXPECT_EQ(a->right_grow, 10);
    const TblPtr b(inittbl(INT64_MIN, 1, 0, nullptr, 8));
    EXPECT_EQ(b->left_grow, 10);
    EXPECT_EQ(b->right_grow, 1);
    const TblPtr c(newtbl(0));
    EXPECT_EQ(c->right_grow, 10);
}

TEST(Tbl, OfNewtblHoldsPointersWithoutANullValue)
{
    const TblPtr tbl(newtbl(7));
    EXPECT_EQ(tbl->direct, 0U);
    EXPECT_EQ(tbl->size, 8);
    EXPECT_EQ(tbl->null_value, nullptr);
    EXPECT_EQ(tbl->left_grow, 10);
    EXPECT_EQ(tbl->right_grow, 7);
}

TEST(Tbl, OfPointersHasEntriesOfEightBytesWhateverSizeSays)
{
    const TblPtr tbl(inittbl(0, 0, 0, nullptr, 3));
    EXPECT_EQ(tbl->size, 8);
    pushtbl(tbl.get(), kA);
    EXPECT_EQ(gettbl(tbl.get(), 0), kA);
}

TEST(TblDeathTest, OfRecordsBelowOneByteEndsTheProcess)
{
    const Ended ended = in_child([] {
        errno = ENOENT;  // an old error, which is not the reason
        inittbl(0, 0, 1, nullptr, 0);
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, EndsWith(": inittbl needs an entry size of at least 1, not 0\n"));
}

// Reading and storing.

TEST(Tbl, ReadingOutsideGivesTheNullValue)
{
    const TblPtr tbl = strings({kA, kB});
    EXPECT_EQ(gettbl(tbl.get(), -1), nullptr);
    EXPECT_EQ(gettbl(tbl.get(), 2), nullptr);
    EXPECT_EQ(gettbl(tbl.get(), INT64_MIN), nullptr);
    EXPECT_EQ(gettbl(tbl.get(), INT64_MAX), nullptr);
    const TblPtr direct = points({{1, 2}}, &kNowhere);
    EXPECT_EQ(gettbl(direct.get(), 1), direct->null_value);
    EXPECT_EQ(gettbl(direct.get(), -1), direct->null_value);
}

TEST(Tbl, OfPointersGivesTheAddressOfItsNullValueOutside)
{
    void *null_value = kA;
    const TblPtr tbl(inittbl(0, 0, 0, &null_value, 8));
    EXPECT_EQ(gettbl(tbl.get(), 0), tbl->null_value);
    EXPECT_EQ(*static_cast<void **>(gettbl(tbl.get(), 0)), kA);
}

TEST(Tbl, GivesTheAddressOfASlotOrNull)
{
    const TblPtr tbl = strings({kA, kB});
    EXPECT_EQ(*static_cast<void **>(addrtbl(tbl.get(), 1)), kB);
    EXPECT_EQ(addrtbl(tbl.get(), -1), nullptr);
    EXPECT_EQ(addrtbl(tbl.get(), 2), nullptr);
    const TblPtr direct = points({{1, 2}, {3, 4}}, &kNowhere);
    EXPECT_EQ(addrtbl(direct.get(), 1), gettbl(direct.get(), 1));
    EXPECT_EQ(addrtbl(direct.get(), 2), nullptr);
}

TEST(Tbl, CopiesRecordsInPlace)
{
    Point point{1, 2};
    const TblPtr tbl(inittbl(0, 0, 1, nullptr, sizeof(Point)));
    EXPECT_EQ(pushtbl(tbl.get(), &point), 0);
    point.x = 9;
    EXPECT_EQ(point_at(tbl, 0), (Point{1, 2}));
    EXPECT_EQ(gettbl(tbl.get(), 0), tbl->base);
}

TEST(Tbl, SetAt100OnAnEmptyListReadsNullBefore)
{
    const TblPtr tbl(newtbl(0));
    EXPECT_EQ(settbl(tbl.get(), 100, kA), 100);
    EXPECT_EQ(tbl->count, 101);
    EXPECT_GE(tbl->nalloc, 101);
    for (int64_t i = 0; i < 100; ++i)
        EXPECT_EQ(gettbl(tbl.get(), i), nullptr);
    EXPECT_EQ(gettbl(tbl.get(), 100), kA);
}

TEST(Tbl, SetAtANegativeIndexAppends)
{
    const TblPtr tbl = strings({kA});
    EXPECT_EQ(settbl(tbl.get(), -1, kB), 1);
    EXPECT_EQ(settbl(tbl.get(), INT64_MIN, kC), 2);
    EXPECT_EQ(joined(tbl), "a b c");
}

TEST(Tbl, SetWithinTheListReplacesAndKeepsTheCount)
{
    const TblPtr tbl = strings({kA, kB, kC});
    EXPECT_EQ(settbl(tbl.get(), 1, kD), 1);
    EXPECT_EQ(joined(tbl), "a d c");
    EXPECT_EQ(settbl(tbl.get(), 1, nullptr), 1);
    EXPECT_EQ(gettbl(tbl.get(), 1), nullptr);
    EXPECT_EQ(tbl->count, 3);
}

TEST(Tbl, NullRecordStoresTheNullValueOrZeros)
{
    const TblPtr tbl = points({{1, 2}, {3, 4}}, &kNowhere);
    settbl(tbl.get(), 0, nullptr);
    pushtbl(tbl.get(), nullptr);
    unshifttbl(tbl.get(), nullptr);
    instbl(tbl.get(), 2, nullptr);
    for (int64_t i : {0, 1, 2, 4})
        EXPECT_EQ(point_at(tbl, i), kNowhere) << i;
    EXPECT_EQ(point_at(tbl, 3), (Point{3, 4}));
    const TblPtr plain = points({{1, 2}});
    settbl(plain.get(), 0, nullptr);
    EXPECT_EQ(point_at(plain, 0), kOrigin);
}

TEST(Tbl, FillsSkippedSlotsWithTheNullValue)
{
    const TblPtr tbl = points({}, &kNowhere);
    const Point point{1, 2};
    settbl(tbl.get(), 25, &point);
    for (int64_t i = 0; i < 25; ++i)
        EXPECT_EQ(point_at(tbl, i), kNowhere);
}

TEST(Tbl, OfPointersFillsSkippedSlotsWithACopyOfTheNullValue)
{
    void *null_value = kA;
    const TblPtr tbl(inittbl(0, 0, 0, &null_value, 8));
    settbl(tbl.get(), 3, kB);
    EXPECT_EQ(joined(tbl), "a a a b");
}

// Growing.

TEST(Tbl, GrowsBy10Then20Then40AtTheBack)
{
    const TblPtr tbl(newtbl(0));
    pushtbl(tbl.get(), kA);
    EXPECT_EQ(tbl->nalloc, 10);
    EXPECT_EQ(tbl->right_grow, 20);
    while (tbl->count < 11)
        pushtbl(tbl.get(), kA);
    EXPECT_EQ(tbl->nalloc, 30);
    EXPECT_EQ(tbl->right_grow, 40);
    while (tbl->count < 31)
        pushtbl(tbl.get(), kA);
    EXPECT_EQ(tbl->nalloc, 70);
    EXPECT_EQ(tbl->right_grow, 80);
    EXPECT_EQ(tbl->left, 0);
}

TEST(Tbl, GrowsByWhatIsNeededWhenThatIsMore)
{
    const TblPtr tbl(newtbl(4));
    settbl(tbl.get(), 99, kA);
    EXPECT_EQ(tbl->nalloc, 100);
    EXPECT_EQ(tbl->right_grow, 200);
    settbl(tbl.get(), 400, kA);  // 301 beyond the capacity
    EXPECT_EQ(tbl->nalloc, 401);
    EXPECT_EQ(tbl->right_grow, 602);
    const TblPtr partly_used(newtbl(10));
    pushtbl(partly_used.get(), kA);
    settbl(partly_used.get(), 100, kA);  // 91 beyond the capacity, 100 beyond the count
    EXPECT_EQ(partly_used->nalloc, 101);
    EXPECT_EQ(partly_used->right_grow, 182);
}

TEST(Tbl, GrowsBy10Then20AtTheFront)
{
    const TblPtr tbl(newtbl(0));
    EXPECT_EQ(unshifttbl(tbl.get(), kA), 0);
    EXPECT_EQ(tbl->left, -9);
    EXPECT_EQ(tbl->nalloc, 1);
    EXPECT_EQ(tbl->left_grow, 20);
    for (int i = 0; i < 9; ++i)
        unshifttbl(tbl.get(), kA);
    EXPECT_EQ(tbl->left, 0);
    EXPECT_EQ(tbl->nalloc, 10);
    unshifttbl(tbl.get(), kB);
    EXPECT_EQ(tbl->left, -19);
    EXPECT_EQ(tbl->nalloc, 11);
    EXPECT_EQ(tbl->left_grow, 40);
    EXPECT_EQ(joined(tbl), "b a a a a a a a a a a");
}

TEST(Tbl, UsesFreeFrontSlotsInsteadOfReallocatingAtTheBack)
{
    const TblPtr tbl(newtbl(10));
    for (int64_t i = 0; i < 10; ++i)
        pushtbl(tbl.get(), number(i));
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(shifttbl(tbl.get()), number(i));
    void *block = static_cast<void **>(tbl->base) - 10;
    EXPECT_EQ(tbl->left, -10);
    EXPECT_EQ(tbl->nalloc, 0);
    // An increment of 20: half of it is not less than the 10 free front slots.
    pushtbl(tbl.get(), number(20));
    EXPECT_EQ(tbl->left, -10);
    EXPECT_EQ(tbl->nalloc, 20);
    EXPECT_EQ(tbl->right_grow, 40);
    // 21 free front slots are more than half of 40: the entries move down.
    for (int64_t i = 21; i < 40; ++i)
        pushtbl(tbl.get(), number(i));
    for (int i = 0; i < 11; ++i)
        shifttbl(tbl.get());
    EXPECT_EQ(tbl->left, -21);
    block = static_cast<void **>(tbl->base) - 21;
    pushtbl(tbl.get(), number(40));
    EXPECT_EQ(tbl->base, block);
    EXPECT_EQ(tbl->left, 0);
    EXPECT_EQ(tbl->nalloc, 30);
    EXPECT_EQ(tbl->right_grow, 40);
    EXPECT_EQ(numbers(tbl), (std::vector<int64_t>{31, 32, 33, 34, 35, 36, 37, 38, 39, 40}));
    settbl(tbl.get(), 29, number(1));
    EXPECT_EQ(gettbl(tbl.get(), 28), nullptr);  // filled after the move
}

TEST(Tbl, UsesFreeBackSlotsInsteadOfReallocatingAtTheFront)
{
    const TblPtr tbl(inittbl(10, 10, 0, nullptr, 8));
    for (int64_t i = 0; i < 4; ++i)
        pushtbl(tbl.get(), number(i));
    // Six free back slots are more than half of 10: the entries move to the end.
    unshifttbl(tbl.get(), number(-1));
    EXPECT_EQ(tbl->left, -5);
    EXPECT_EQ(tbl->nalloc, 5);
    EXPECT_EQ(tbl->left_grow, 10);
    EXPECT_EQ(numbers(tbl), (std::vector<int64_t>{-1, 0, 1, 2, 3}));
}

TEST(Tbl, ReallocatesAtTheFrontWhenHalfTheIncrementOrLessIsFreeAtTheBack)
{
    const TblPtr tbl(inittbl(10, 10, 0, nullptr, 8));
    for (int64_t i = 0; i < 5; ++i)
        pushtbl(tbl.get(), number(i));
    unshifttbl(tbl.get(), number(-1));
    EXPECT_EQ(tbl->left, -9);
    EXPECT_EQ(tbl->nalloc, 11);
    EXPECT_EQ(tbl->left_grow, 20);
    EXPECT_EQ(numbers(tbl), (std::vector<int64_t>{-1, 0, 1, 2, 3, 4}));
}

TEST(Tbl, MovingDownThatIsNotEnoughReallocatesAsWell)
{
    const TblPtr tbl(newtbl(100));
    for (int64_t i = 0; i < 100; ++i)
        pushtbl(tbl.get(), number(i));
    for (int i = 0; i < 80; ++i)
        shifttbl(tbl.get());
    tbl->right_grow = 10;
    // 151 slots are needed and 80 are free at the front, more than half of 151.
    settbl(tbl.get(), 170, number(7));
    EXPECT_EQ(tbl->count, 171);
    EXPECT_GE(tbl->nalloc, 171);
    EXPECT_EQ(tbl->left, 0);
    EXPECT_EQ(gettbl(tbl.get(), 0), number(80));
    EXPECT_EQ(gettbl(tbl.get(), 20), nullptr);
    EXPECT_EQ(gettbl(tbl.get(), 170), number(7));
}

TEST(Tbl, PushesAfterThePrependThatMadeTheBlock)
{
    const TblPtr tbl(newtbl(0));
    unshifttbl(tbl.get(), kB);
    pushtbl(tbl.get(), kC);
    unshifttbl(tbl.get(), kA);
    EXPECT_EQ(joined(tbl), "a b c");
}

TEST(TblDeathTest, AnIndexThatNoMemoryHoldsEndsTheProcess)
{
    for (int64_t i : {INT64_MAX, INT64_MAX / 8, INT64_MAX / 8 + 1, INT64_MAX / 2}) {
        SCOPED_TRACE(i);
        const Ended ended = in_child([&] { settbl(newtbl(0), i, kA); });
        EXPECT_EQ(ended.status, 1);
        EXPECT_THAT(ended.err, HasSubstr("Out of memory in right_growtbl at line "));
    }
}

TEST(TblDeathTest, AGrowthThatNoMemoryHoldsEndsTheProcess)
{
    const Ended back = in_child([] { pushtbl(newtbl(INT64_MAX), kA); });
    EXPECT_EQ(back.status, 1);
    EXPECT_THAT(back.err, HasSubstr("Out of memory in right_growtbl at line "));
    const Ended front = in_child([] { unshifttbl(inittbl(INT64_MAX, 1, 0, nullptr, 8), kA); });
    EXPECT_EQ(front.status, 1);
    EXPECT_THAT(front.err, HasSubstr("Out of memory in left_growtbl at line "));
}

// Both ends and the middle.

TEST(Tbl, PushGivesTheOldCount)
{
    const TblPtr tbl(newtbl(0));
    EXPECT_EQ(pushtbl(tbl.get(), kA), 0);
    EXPECT_EQ(pushtbl(tbl.get(), kB), 1);
}

TEST(Tbl, PopsFromTheBackUntilTheNullValue)
{
    const TblPtr tbl = strings({kA, kB});
    EXPECT_EQ(poptbl(tbl.get()), kB);
    EXPECT_EQ(poptbl(tbl.get()), kA);
    EXPECT_EQ(poptbl(tbl.get()), nullptr);
    EXPECT_EQ(tbl->count, 0);
    const TblPtr direct = points({{1, 2}}, &kNowhere);
    EXPECT_EQ(poptbl(direct.get()), direct->base);
    EXPECT_EQ(poptbl(direct.get()), direct->null_value);
}

TEST(Tbl, LeavesAPoppedPointerInItsSlot)
{
    const TblPtr tbl = strings({kA, kB, kC});
    poptbl(tbl.get());
    poptbl(tbl.get());
    settbl(tbl.get(), 3, kD);
    EXPECT_EQ(joined(tbl), "a b c d");
}

TEST(Tbl, ShiftsFromTheFrontUntilTheNullValue)
{
    const TblPtr tbl = strings({kA, kB});
    EXPECT_EQ(shifttbl(tbl.get()), kA);
    EXPECT_EQ(tbl->left, -1);
    EXPECT_EQ(tbl->nalloc, 9);
    EXPECT_EQ(shifttbl(tbl.get()), kB);
    EXPECT_EQ(shifttbl(tbl.get()), nullptr);
    const TblPtr direct = points({{1, 2}, {3, 4}}, &kNowhere);
    EXPECT_EQ(*static_cast<Point *>(shifttbl(direct.get())), (Point{1, 2}));
    EXPECT_EQ(point_at(direct, 0), (Point{3, 4}));
    shifttbl(direct.get());
    EXPECT_EQ(shifttbl(direct.get()), direct->null_value);
}

TEST(Tbl, EmptyNeverUsedListPopsAndShiftsTheNullValue)
{
    const TblPtr tbl(newtbl(0));
    EXPECT_EQ(poptbl(tbl.get()), nullptr);
    EXPECT_EQ(shifttbl(tbl.get()), nullptr);
    EXPECT_EQ(deltbl(tbl.get(), 0), nullptr);
    EXPECT_EQ(tbl->count, 0);
}

TEST(Tbl, InsertsBeforeTheIndex)
{
    const TblPtr tbl = strings({kA, kD});
    EXPECT_EQ(instbl(tbl.get(), 1, kB), 1);
    EXPECT_EQ(instbl(tbl.get(), 2, kC), 2);
    EXPECT_EQ(instbl(tbl.get(), 0, kE), 0);
    EXPECT_EQ(joined(tbl), "e a b c d");
}

TEST(Tbl, InsertsAtMinus5InFrontAndAtCountPlus7Behind)
{
    const TblPtr tbl = strings({kB});
    EXPECT_EQ(instbl(tbl.get(), -5, kA), 0);
    EXPECT_EQ(instbl(tbl.get(), tbl->count + 7, kC), 2);
    EXPECT_EQ(instbl(tbl.get(), tbl->count, kD), 3);
    EXPECT_EQ(joined(tbl), "a b c d");
}

TEST(Tbl, InsertsIntoAFullBlock)
{
    const TblPtr tbl(newtbl(4));
    for (int64_t i = 0; i < 4; ++i)
        pushtbl(tbl.get(), number(i));
    EXPECT_EQ(instbl(tbl.get(), 2, number(9)), 2);
    EXPECT_EQ(numbers(tbl), (std::vector<int64_t>{0, 1, 9, 2, 3}));
}

TEST(Tbl, DeletesFromTheMiddleAndClearsTheLastSlot)
{
    const TblPtr tbl = strings({kA, kB, kC});
    EXPECT_EQ(deltbl(tbl.get(), 1), kB);
    EXPECT_EQ(joined(tbl), "a c");
    settbl(tbl.get(), 3, kD);
    EXPECT_EQ(gettbl(tbl.get(), 2), nullptr);
    EXPECT_EQ(deltbl(tbl.get(), 3), kD);
    EXPECT_EQ(deltbl(tbl.get(), 0), kA);
    EXPECT_EQ(tbl->count, 2);
}

TEST(Tbl, DeletingOutsideChangesNothing)
{
    const TblPtr tbl = strings({kA});
    EXPECT_EQ(deltbl(tbl.get(), 1), nullptr);
    EXPECT_EQ(deltbl(tbl.get(), -1), nullptr);
    EXPECT_EQ(tbl->count, 1);
}

TEST(Tbl, DeletingARecordGivesTheSameBufferEveryTime)
{
    const TblPtr tbl = points({{1, 1}, {2, 2}, {3, 3}}, &kNowhere);
    EXPECT_EQ(tbl->deleted, nullptr);
    auto *first = static_cast<Point *>(deltbl(tbl.get(), 0));
    EXPECT_EQ(first, tbl->deleted);
    EXPECT_EQ(*first, (Point{1, 1}));
    EXPECT_EQ(deltbl(tbl.get(), 1), first);
    EXPECT_EQ(*first, (Point{3, 3}));
    EXPECT_EQ(point_at(tbl, 0), (Point{2, 2}));
    const Point point{4, 4};
    settbl(tbl.get(), 3, &point);
    EXPECT_EQ(point_at(tbl, 1), kNowhere);
    EXPECT_EQ(point_at(tbl, 2), kNowhere);
}

// Growing used to overwrite a record of the list that was pushed onto the same list.
TEST(Tbl, TakesItsOwnRecordsBackWhileItGrows)
{
    TblPtr tbl = points({});
    for (int32_t i = 0; i < 10; ++i) {
        const Point point{i, i};
        pushtbl(tbl.get(), &point);
    }
    for (int32_t i = 0; i < 1000; ++i) {
        pushtbl(tbl.get(), shifttbl(tbl.get()));
        ASSERT_EQ(point_at(tbl, 9), (Point{i % 10, i % 10}));
    }
    for (int32_t i = 999; i >= 0; --i) {
        unshifttbl(tbl.get(), poptbl(tbl.get()));
        ASSERT_EQ(point_at(tbl, 0), (Point{i % 10, i % 10}));
    }
    for (int i = 0; i < 100; ++i)
        pushtbl(tbl.get(), gettbl(tbl.get(), 0));
    EXPECT_EQ(point_at(tbl, 109), (Point{0, 0}));
    instbl(tbl.get(), 1, gettbl(tbl.get(), 3));
    EXPECT_EQ(point_at(tbl, 1), (Point{3, 3}));
    unshifttbl(tbl.get(), gettbl(tbl.get(), 5));
    EXPECT_EQ(point_at(tbl, 0), (Point{4, 4}));
}

TEST(Tbl, TakesItsOwnLargeRecordsBackWhileItGrows)
{
    const TblPtr tbl(inittbl(1, 1, 1, nullptr, 1000));
    const std::string record(1000, 'r');
    pushtbl(tbl.get(), record.data());
    for (int i = 0; i < 20; ++i)
        pushtbl(tbl.get(), gettbl(tbl.get(), 0));
    for (int i = 0; i < 20; ++i)
        unshifttbl(tbl.get(), gettbl(tbl.get(), 0));
    for (int64_t i = 0; i < tbl->count; ++i)
        EXPECT_EQ(memcmp(gettbl(tbl.get(), i), record.data(), 1000), 0) << i;
}

TEST(Tbl, AgreesWithADequeOverRandomOperations)
{
    for (unsigned seed = 0; seed < 20; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const TblPtr tbl(inittbl(seed % 5, seed % 7, 1, nullptr, sizeof(int)));
        std::deque<int> deque;
        for (int step = 0; step < 4000; ++step) {
            const int value = static_cast<int>(random());
            const size_t at = deque.empty() ? 0 : random() % deque.size();
            const auto i = static_cast<int64_t>(at);
            switch (random() % 8) {
            case 0:
            case 1:
                deque.push_back(value);
                pushtbl(tbl.get(), &value);
                break;
            case 2:
            case 3:
                deque.push_front(value);
                unshifttbl(tbl.get(), &value);
                break;
            case 4:
                deque.insert(deque.begin() + i, value);
                instbl(tbl.get(), i, &value);
                break;
            case 5:
                if (!deque.empty()) {
                    ASSERT_EQ(*static_cast<int *>(deltbl(tbl.get(), i)), deque[at]);
                    deque.erase(deque.begin() + i);
                }
                break;
            case 6:
                if (!deque.empty()) {
                    ASSERT_EQ(*static_cast<int *>(poptbl(tbl.get())), deque.back());
                    deque.pop_back();
                }
                break;
            default:
                if (!deque.empty()) {
                    ASSERT_EQ(*static_cast<int *>(shifttbl(tbl.get())), deque.front());
                    deque.pop_front();
                }
            }
            ASSERT_EQ(tbl->count, static_cast<int64_t>(deque.size()));
            ASSERT_LE(tbl->count, tbl->nalloc);
            ASSERT_LE(tbl->left, 0);
        }
        for (size_t i = 0; i < deque.size(); ++i)
            ASSERT_EQ(*static_cast<int *>(gettbl(tbl.get(), static_cast<int64_t>(i))), deque[i]);
    }
}

// Freeing and shortening.

TEST(Tbl, FreesEntriesInOrderAndSkipsNullPointers)
{
    freed.clear();
    Tbl *tbl = strings({kA, nullptr, kB}).release();
    freetbl(tbl, note_text);
    EXPECT_EQ(freed, (std::vector<std::string>{"a", "b"}));
    freetbl(nullptr, note_text);
    freetbl(nullptr, nullptr);
    EXPECT_EQ(freed.size(), 2U);
}

TEST(Tbl, FreesRecordsUnlikeTheNullValue)
{
    freed.clear();
    freetbl(points({{1, 2}, kNowhere, kOrigin}, &kNowhere).release(), note_point);
    EXPECT_EQ(freed, (std::vector<std::string>{"1,2", "0,0"}));
    freed.clear();
    freetbl(points({{1, 2}, kNowhere, kOrigin}).release(), note_point);
    EXPECT_EQ(freed, (std::vector<std::string>{"1,2", "-1,-1"}));
}

TEST(Tbl, FreesTheCopiesOfANullPointerValueThatFillSlots)
{
    freed.clear();
    void *null_value = kA;
    Tbl *tbl = inittbl(0, 0, 0, &null_value, 8);
    settbl(tbl, 2, kB);
    settbl(tbl, 1, tbl->null_value);
    freetbl(tbl, note_text);
    EXPECT_EQ(freed, (std::vector<std::string>{"a", "b"}));
}

TEST(Tbl, TruncatesToTheCount)
{
    freed.clear();
    const TblPtr tbl = strings({kA, kB, kC, nullptr, kD});
    trunctbl(tbl.get(), 9, note_text);
    trunctbl(tbl.get(), 5, note_text);
    EXPECT_EQ(tbl->count, 5);
    EXPECT_TRUE(freed.empty());
    trunctbl(tbl.get(), 2, note_text);
    EXPECT_EQ(tbl->count, 2);
    EXPECT_EQ(freed, (std::vector<std::string>{"c", "d"}));
    trunctbl(tbl.get(), -3, nullptr);
    EXPECT_EQ(tbl->count, 0);
}

TEST(Tbl, TruncatedPointersStayInTheirSlots)
{
    freed.clear();
    const TblPtr tbl = strings({kA, kB, kC});
    clrtbl(tbl.get(), note_text);
    EXPECT_EQ(freed, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(tbl->count, 0);
    settbl(tbl.get(), 2, kD);
    EXPECT_EQ(joined(tbl), "a b d");
}

TEST(Tbl, TruncatedRecordsBecomeTheNullValueOnlyWhenFreed)
{
    freed.clear();
    const TblPtr tbl = points({{1, 1}, {2, 2}, {3, 3}}, &kNowhere);
    trunctbl(tbl.get(), 2, nullptr);
    trunctbl(tbl.get(), 1, note_point);
    EXPECT_EQ(freed, (std::vector<std::string>{"2,2"}));
    const Point point{4, 4};
    settbl(tbl.get(), 3, &point);
    EXPECT_EQ(point_at(tbl, 1), kNowhere);
    EXPECT_EQ(point_at(tbl, 2), (Point{3, 3}));
}

TEST(Tbl, TruncatedRecordsBecomeZerosWithoutANullValue)
{
    const TblPtr tbl = points({{1, 1}, {2, 2}});
    clrtbl(tbl.get(), [](void *) {});
    const Point point{4, 4};
    settbl(tbl.get(), 1, &point);
    EXPECT_EQ(point_at(tbl, 0), kOrigin);
}

// How often the entries of a queue of n pointers move in n steps.
int64_t moves_of_a_queue(Tbl *queue, int64_t n)
{
    int64_t moves = 0;
    for (int64_t i = 0; i < n; ++i)
        unshifttbl(queue, kA);
    for (int64_t i = 0; i < n; ++i) {
        const int64_t left = queue->left;
        pushtbl(queue, kA);
        moves += queue->left != left;
        shifttbl(queue);
    }
    return moves;
}

TEST(Tbl, AQueueThatGrewAtTheOtherEndMovesItsEntriesOftenUnlessItsIncrementIsLarge)
{
    EXPECT_GT(moves_of_a_queue(TblPtr(newtbl(0)).get(), 1264), 1264 / 7);
    EXPECT_LE(moves_of_a_queue(TblPtr(newtbl(1264)).get(), 1264), 2);
}

// The records used to be reset only after all of them had been freed, so the function saw
// freed ones.
TEST(Tbl, AFreeFunctionThatLooksAtTheListSeesNoFreedRecord)
{
    static Tbl *list = nullptr;
    static std::vector<std::string> seen;
    seen.clear();
    for (const Point *null_value : {static_cast<const Point *>(nullptr), &kNowhere}) {
        const TblPtr tbl = points({{1, 1}, {2, 2}, {3, 3}}, null_value);
        list = tbl.get();
        const auto look = [](void *) {
            std::string text;
            for (int64_t i = 0; i < list->count; ++i)
                text += std::to_string(static_cast<Point *>(gettbl(list, i))->x) + " ";
            seen.push_back(text);
        };
        trunctbl(list, 1, look);
        clrtbl(list, look);
    }
    EXPECT_EQ(seen,
              (std::vector<std::string>{"1 2 3 ", "1 0 3 ", "1 ", "1 2 3 ", "1 -1 3 ", "1 "}));
}

TEST(Tbl, AFreeFunctionThatLooksAtTheListSeesNoFreedPointer)
{
    static Tbl *list = nullptr;
    static std::vector<std::string> seen;
    seen.clear();
    const TblPtr tbl = strings({kA, kB, kC, kD});
    list = tbl.get();
    trunctbl(list, 2, [](void *) {
        const std::unique_ptr<char, decltype(&free)> text(jointbl(list, " "), free);
        seen.emplace_back(text.get());
    });
    EXPECT_EQ(seen, (std::vector<std::string>{"a b", "a b"}));
    EXPECT_EQ(tbl->count, 2);
}

// The whole list.

TEST(Tbl, AppliesToEntriesInOrderAndAddsTheResults)
{
    const TblPtr tbl = strings({"1", nullptr, "2", "4"});
    std::string seen;
    const int sum = applytbl(
        tbl.get(),
        [](void *entry, void *argument) {
            *static_cast<std::string *>(argument) += static_cast<char *>(entry);
            return atoi(static_cast<char *>(entry));
        },
        &seen);
    EXPECT_EQ(seen, "124");
    EXPECT_EQ(sum, 7);
}

TEST(Tbl, AppliesToAsManyAsThereWereBefore)
{
    const TblPtr tbl = strings({kA, kB});
    const int calls = applytbl(
        tbl.get(),
        [](void *entry, void *argument) {
            pushtbl(static_cast<Tbl *>(argument), entry);
            return 1;
        },
        tbl.get());
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(tbl->count, 4);
}

TEST(Tbl, AppliedSumWrapsAround)
{
    const TblPtr tbl = strings({kA, kB});
    EXPECT_EQ(applytbl(
                  tbl.get(), [](void *, void *) { return INT_MAX; }, nullptr),
              -2);
}

TEST(Tbl, AppliesToRecordsByAddress)
{
    const TblPtr tbl = points({{1, 2}, kOrigin});
    EXPECT_EQ(applytbl(
                  tbl.get(),
                  [](void *entry, void *) { return static_cast<Point *>(entry)->x + 10; }, nullptr),
              21);
}

TEST(Cattbl, AppendsAndTakesTheLargerIncrements)
{
    const TblPtr a(inittbl(3, 4, 0, nullptr, 8));
    const TblPtr b(inittbl(7, 2, 0, nullptr, 8));
    pushtbl(a.get(), kA);
    pushtbl(b.get(), kB);
    pushtbl(b.get(), kC);
    EXPECT_EQ(cattbl(a.get(), b.get()), 0);
    EXPECT_EQ(joined(a), "a b c");
    EXPECT_EQ(joined(b), "b c");
    EXPECT_EQ(a->left_grow, 7);
    EXPECT_EQ(a->right_grow, 8);
    EXPECT_EQ(gettbl(a.get(), 1), gettbl(b.get(), 0));
}

TEST(Cattbl, GrowsByTheSourcesCountWhenTooFewSlotsAreFree)
{
    const TblPtr a(newtbl(4));
    const TblPtr b(newtbl(4));
    for (int64_t i = 0; i < 3; ++i)
        pushtbl(a.get(), number(i));
    for (int64_t i = 0; i < 20; ++i)
        pushtbl(b.get(), number(i));
    a->right_grow = b->right_grow = 1;
    cattbl(a.get(), b.get());
    EXPECT_EQ(a->count, 23);
    EXPECT_EQ(a->nalloc, 24);
    EXPECT_EQ(a->right_grow, 40);
}

TEST(Cattbl, AppendsAListToItself)
{
    const TblPtr tbl = strings({kA, kB, kC, kD, kE});
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(cattbl(tbl.get(), tbl.get()), 0);
    EXPECT_EQ(tbl->count, 40);
    EXPECT_EQ(gettbl(tbl.get(), 39), kE);
}

TEST(Cattbl, AppendsNothingFromAnEmptyList)
{
    const TblPtr a(newtbl(0));
    const TblPtr b(newtbl(0));
    EXPECT_EQ(cattbl(a.get(), b.get()), 0);
    EXPECT_EQ(a->base, nullptr);
}

TEST(Cattbl, RefusesUnlikeListsWithAMessage)
{
    const Point null_point{1, 1};
    const struct {
        TblPtr a, b;
        const char *message;
    } cases[] = {
        {points({{1, 1}}), TblPtr(inittbl(0, 0, 1, nullptr, 16)),
         "tbl lists have different entry sizes: 8 16\n"},
        {points({{1, 1}}), strings({kA}), "tbl lists are not both direct or indirect.\n"},
        {points({{1, 1}}), points({}, &null_point), "tbl lists have different null values.\n"},
        {points({{1, 1}}, &null_point), points({}), "tbl lists have different null values.\n"},
        {points({{1, 1}}, &null_point), points({}, &kNowhere),
         "tbl lists have different null values.\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.message);
        elog_clear();
        const Tbl before = *c.a;
        const int64_t count = c.b->count;
        c.a->left_grow = 1;
        errno = ENOENT;  // an old error, which is not the reason
        EXPECT_EQ(cattbl(c.a.get(), c.b.get()), 1);
        EXPECT_EQ(take_log(), c.message);
        EXPECT_EQ(c.a->count, before.count);
        EXPECT_EQ(c.a->left_grow, 1);
        EXPECT_EQ(c.b->count, count);
    }
}

TEST(Cattbl, AcceptsEqualNullValues)
{
    const TblPtr a = points({{1, 1}}, &kNowhere);
    const TblPtr b = points({{2, 2}}, &kNowhere);
    EXPECT_EQ(cattbl(a.get(), b.get()), 0);
    EXPECT_EQ(point_at(a, 1), (Point{2, 2}));
}

TEST(Cmptbl, ComparesCountsSizesAndBytes)
{
    EXPECT_EQ(cmptbl(strings({kA, kB}).get(), strings({kA, kB}).get()), 0);
    EXPECT_EQ(cmptbl(strings({kA}).get(), strings({kA, kB}).get()), 1);
    EXPECT_EQ(cmptbl(points({{1, 2}}).get(), TblPtr(inittbl(0, 0, 1, nullptr, 4)).get()), 1);
    EXPECT_LT(cmptbl(points({{1, 2}}).get(), points({{1, 3}}).get()), 0);
    EXPECT_GT(cmptbl(points({{1, 3}}).get(), points({{1, 2}}).get()), 0);
    EXPECT_EQ(cmptbl(points({}).get(), points({}).get()), 0);
}

TEST(Cmptbl, OfPointersComparesThePointers)
{
    const char other[] = "a";
    EXPECT_NE(cmptbl(strings({kA}).get(), strings({other}).get()), 0);
}

TEST(Sorttbl, ComparesTheAddressesOfPointerSlots)
{
    const TblPtr tbl = strings({kC, kA, kE, kB, kD});
    sorttbl(tbl.get(), by_text, nullptr);
    EXPECT_EQ(joined(tbl), "a b c d e");
    const TblPtr empty(newtbl(0));
    sorttbl(empty.get(), by_text, nullptr);
    EXPECT_EQ(empty->count, 0);
}

TEST(Searchtbl, FindsThreeEqualKeysAt4To6)
{
    const TblPtr tbl = strings({"a", "b", "c", "d", "k", "k", "k", "x"});
    int64_t first = -9;
    int64_t last = -9;
    EXPECT_EQ(searchtbl("k", tbl.get(), key_to_text, nullptr, &first, &last), 3);
    EXPECT_EQ(first, 4);
    EXPECT_EQ(last, 6);
    EXPECT_EQ(searchtbl("bb", tbl.get(), key_to_text, nullptr, &first, &last), 0);
    EXPECT_EQ(first, 2);
    EXPECT_EQ(last, 1);
}

TEST(Searchtbl, FindsNothingInAnEmptyList)
{
    const TblPtr tbl(newtbl(0));
    int64_t first = -9;
    int64_t last = -9;
    EXPECT_EQ(searchtbl("k", tbl.get(), key_to_text, nullptr, &first, &last), 0);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(last, -1);
}

TEST(Duptbl, CopiesKindNullValueIncrementsAndEntries)
{
    const TblPtr tbl(inittbl(3, 50, 1, &kNowhere, sizeof(Point)));
    const Point point{1, 2};
    pushtbl(tbl.get(), &point);
    const TblPtr dup(duptbl(tbl.get(), nullptr));
    EXPECT_EQ(cmptbl(tbl.get(), dup.get()), 0);
    EXPECT_EQ(dup->direct, tbl->direct);
    EXPECT_EQ(*static_cast<Point *>(dup->null_value), kNowhere);
    EXPECT_NE(dup->null_value, tbl->null_value);
    EXPECT_EQ(dup->left_grow, 3);
    EXPECT_EQ(dup->right_grow, 200);
    EXPECT_NE(dup->base, tbl->base);
}

TEST(Duptbl, StoresWhatTheCopyFunctionReturnsForPointers)
{
    const TblPtr tbl = strings({kA, nullptr, kB});
    const TblPtr dup(
        duptbl(tbl.get(), [](void *entry) -> void * { return static_cast<char *>(entry) + 1; }));
    EXPECT_EQ(gettbl(dup.get(), 0), kA + 1);
    EXPECT_EQ(gettbl(dup.get(), 1), nullptr);
    EXPECT_EQ(gettbl(dup.get(), 2), kB + 1);
    EXPECT_EQ(gettbl(tbl.get(), 0), kA);
}

TEST(Duptbl, MendsRecordsInPlaceAndDiscardsTheResult)
{
    const TblPtr tbl = points({{1, 1}, kNowhere, {2, 2}}, &kNowhere);
    const TblPtr dup(duptbl(tbl.get(), [](void *entry) -> void * {
        static_cast<Point *>(entry)->y += 5;
        return nullptr;
    }));
    EXPECT_EQ(point_at(dup, 0), (Point{1, 6}));
    EXPECT_EQ(point_at(dup, 1), kNowhere);
    EXPECT_EQ(point_at(dup, 2), (Point{2, 7}));
    EXPECT_EQ(point_at(tbl, 0), (Point{1, 1}));
}

TEST(Duptbl, CopiesAnEmptyList)
{
    const TblPtr tbl(newtbl(0));
    const TblPtr dup(duptbl(tbl.get(), nullptr));
    EXPECT_EQ(dup->count, 0);
}

TEST(Strtbl, HoldsTheGivenPointers)
{
    const TblPtr tbl(strtbl(kA, kB, kC, static_cast<char *>(nullptr)));
    EXPECT_EQ(tbl->count, 3);
    EXPECT_EQ(gettbl(tbl.get(), 0), kA);
    EXPECT_EQ(gettbl(tbl.get(), 2), kC);
    EXPECT_EQ(tbl->direct, 0U);
}

TEST(Strtbl, OfNullHoldsOneNullEntry)
{
    Tbl *(*const make)(const char *, ...) = strtbl;
    const TblPtr tbl(make(nullptr));
    EXPECT_EQ(tbl->count, 1);
    EXPECT_EQ(gettbl(tbl.get(), 0), nullptr);
}

TEST(Jointbl, PutsTheSeparatorBetweenEntries)
{
    const struct {
        TblPtr tbl;
        const char *separator, *joined;
    } cases[] = {
        {strings({kA, kB, kC}), ", ", "a, b, c"},
        {strings({kA}), ", ", "a"},
        {strings({}), ", ", ""},
        {strings({kA, kB}), "", "ab"},
        {strings({kA, kB}), nullptr, "ab"},
        {strings({kA, nullptr, kB}), ",", "a,,b"},
        {strings({"", ""}), "-", "-"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(joined(c.tbl, c.separator), c.joined);
}

TEST(Jointbl, EndsARecordWithItsLastByte)
{
    const TblPtr tbl(inittbl(0, 0, 1, nullptr, 4));
    pushtbl(tbl.get(), "abcd");
    pushtbl(tbl.get(), "ef\0g");
    pushtbl(tbl.get(), "hijk");
    EXPECT_EQ(joined(tbl, "|"), "abcd|ef|hijk");
}

TEST(Greptbl, GivesTheIndexes0And2OfWholeMatches)
{
    const TblPtr tbl = strings({"abc", "xabc", "a"});
    EXPECT_EQ(numbers(TblPtr(greptbl("a.*", tbl.get()))), (std::vector<int64_t>{0, 2}));
    EXPECT_EQ(numbers(TblPtr(greptbl("x?abc", tbl.get()))), (std::vector<int64_t>{0, 1}));
}

TEST(Greptbl, SkipsMatchesThatEndEarly)
{
    const TblPtr tbl = strings({"abc", "ab"});
    EXPECT_EQ(numbers(TblPtr(greptbl("ab", tbl.get()))), (std::vector<int64_t>{1}));
}

TEST(Greptbl, IsEmptyAndSilentWhenThePatternDoesNotCompile)
{
    elog_clear();
    const TblPtr tbl = strings({"(", "a"});
    EXPECT_EQ(TblPtr(greptbl("(", tbl.get()))->count, 0);
    EXPECT_EQ(TblPtr(greptbl(nullptr, tbl.get()))->count, 0);
    EXPECT_EQ(elog_mark(), 0);
}

TEST(Greptbl, ReadsRecordsToTheirLastByte)
{
    const TblPtr tbl(inittbl(0, 0, 1, nullptr, 4));
    pushtbl(tbl.get(), "abcd");
    pushtbl(tbl.get(), "abc");
    EXPECT_EQ(numbers(TblPtr(greptbl("abcd?", tbl.get()))), (std::vector<int64_t>{0, 1}));
}

TEST(Tblgrep, GivesTheIndexesOfThePatternsThatMatchWhole)
{
    const TblPtr patterns = strings({"a.*", "b.*", "(", "ab", "abc", "[a-c]+"});
    EXPECT_EQ(numbers(TblPtr(tblgrep(patterns.get(), "abc"))), (std::vector<int64_t>{0, 4, 5}));
    EXPECT_EQ(TblPtr(tblgrep(patterns.get(), nullptr))->count, 0);
}

// Printing.

TEST(Dumptbl, PrintsTheTitleAndEachEntryBehindItsIndex)
{
    const Ended ended = in_child([] {
        const TblPtr tbl = strings({kA, nullptr, kB});
        EXPECT_GE(dumptbl("list", tbl.get(), nullptr), 0);
    });
    EXPECT_EQ(ended.out, "list\n  0 : a\n  1 : \n  2 : b\n");
}

TEST(Dumptbl, PrintsNoEmptyTitle)
{
    const Ended ended = in_child([] {
        const TblPtr tbl = strings({kA});
        dumptbl("", tbl.get(), nullptr);
        dumptbl(nullptr, tbl.get(), nullptr);
    });
    EXPECT_EQ(ended.out, "  0 : a\n  0 : a\n");
}

TEST(Dumptbl, SaysThatThereIsNothingThroughThePrintFunction)
{
    const Ended ended = in_child([] {
        const TblPtr tbl(newtbl(0));
        dumptbl("t", tbl.get(), nullptr);
        EXPECT_EQ(dumptbl(nullptr, tbl.get(),
                          [](const void *text) {
                              return printf("<%s>", static_cast<const char *>(text));
                          }),
                  29);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "t\n  ** no entries in list **\n\n<  ** no entries in list **\n>");
}

TEST(Dumptbl, GivesTheLastResultOfThePrintFunction)
{
    const Ended ended = in_child([] {
        const TblPtr tbl = points({{1, 2}, {3, 4}});
        const int result = dumptbl(nullptr, tbl.get(), [](const void *entry) {
            const auto *point = static_cast<const Point *>(entry);
            printf("%d,%d\n", point->x, point->y);
            return point->x;
        });
        exit(result);
    });
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.out, "  0 : 1,2\n  1 : 3,4\n");
}

}  // namespace
