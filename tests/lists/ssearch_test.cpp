// Binary search: one match, the run of equals, and where a missing key belongs.

#include "stock/ssearch.h"

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

namespace {

int compare_int(const void *key, const void *element, void *pvt)
{
    if (pvt)
        ++*static_cast<int *>(pvt);
    const int a = *static_cast<const int *>(key);
    const int b = *static_cast<const int *>(element);
    return (a > b) - (a < b);
}

struct Found {
    int64_t count, first, last;
    bool operator==(const Found &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Found &found)
{
    return out << found.count << ": " << found.first << " .. " << found.last;
}

Found search(const std::vector<int> &numbers, int key, int unique = 0)
{
    Found found{-9, -9, -9};
    found.count = ssearch(&key, sizeof key, numbers.data(), static_cast<int64_t>(numbers.size()),
                          unique, compare_int, nullptr, &found.first, &found.last);
    return found;
}

TEST(Ssearch, FindsTheRunOfEqualsOrTheInsertionPoint)
{
    const struct {
        std::vector<int> numbers;
        int key;
        Found found;
    } cases[] = {
        {{}, 5, {0, 0, -1}},
        {{5}, 5, {1, 0, 0}},
        {{5}, 4, {0, 0, -1}},
        {{5}, 6, {0, 1, 0}},
        {{1, 3, 3, 3, 7}, 3, {3, 1, 3}},
        {{1, 3, 3, 3, 7}, 0, {0, 0, -1}},
        {{1, 3, 3, 3, 7}, 5, {0, 4, 3}},
        {{1, 3, 3, 3, 7}, 9, {0, 5, 4}},
        {{0, 1, 2, 3, 5, 5, 5, 8}, 5, {3, 4, 6}},
        {{4, 4, 4, 4}, 4, {4, 0, 3}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(search(c.numbers, c.key), c.found) << c.key;
}

TEST(Ssearch, AgreesWithEqualRangeForEveryRunOfUpTo40)
{
    for (int run = 0; run <= 40; ++run)
        for (int before = 0; before <= 12; ++before) {
            std::vector<int> numbers(static_cast<size_t>(before), 1);
            numbers.insert(numbers.end(), static_cast<size_t>(run), 2);
            numbers.insert(numbers.end(), 9, 3);
            const Found expected{run, before, before + run - 1};
            ASSERT_EQ(search(numbers, 2), expected) << before << " before " << run;
        }
}

TEST(Ssearch, UniqueStopsAtTheFirstMatch)
{
    EXPECT_EQ(search({1, 3, 3, 3, 7}, 3, 1), (Found{1, 2, 2}));
    EXPECT_EQ(search({1, 3, 3, 3, 7}, 4, 1), (Found{0, 4, 3}));
}

TEST(Ssearch, PassesTheKeyUnchangedAndThePrivateArgument)
{
    const int numbers[] = {1, 2, 3};
    int64_t first = 0;
    int64_t last = 0;
    int calls = 0;
    EXPECT_EQ(ssearch(&numbers[1], sizeof(int), numbers, 3, 1, compare_int, &calls, &first, &last),
              1);
    EXPECT_EQ(calls, 1);  // the middle comes first
    EXPECT_EQ(first, 1);
}

TEST(Ssearch, StepsBySizeBytes)
{
    struct Wide {
        int key;
        char rest[60];
    };
    const std::vector<Wide> records = {{1, {}}, {4, {}}, {9, {}}};
    const int key = 9;
    int64_t first = 0;
    int64_t last = 0;
    EXPECT_EQ(
        ssearch(&key, sizeof(Wide), records.data(), 3, 0, compare_int, nullptr, &first, &last), 1);
    EXPECT_EQ(first, 2);
    EXPECT_EQ(last, 2);
}

TEST(Ssearch, LooksAtAMillionEqualsLogarithmically)
{
    const std::vector<int> numbers(1'000'000, 5);
    const int key = 5;
    int calls = 0;
    int64_t first = 0;
    int64_t last = 0;
    EXPECT_EQ(
        ssearch(&key, sizeof key, numbers.data(), 1'000'000, 0, compare_int, &calls, &first, &last),
        1'000'000);
    EXPECT_LT(calls, 90);
}

}  // namespace
