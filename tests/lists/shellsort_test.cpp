// Shell's sort: elements of every size, in the order of the caller's comparison.

#include "stock/shellsort.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

template <class T>
int ascending(const void *a, const void *b, void *)
{
    T left, right;  // not aligned in elements of five bytes
    std::memcpy(&left, a, sizeof left);
    std::memcpy(&right, b, sizeof right);
    return (left > right) - (left < right);
}

std::vector<int> random_numbers(int n)
{
    std::mt19937 random(7);
    std::vector<int> numbers(static_cast<size_t>(n));
    for (int &number : numbers)
        number = static_cast<int>(random() % 1000) - 500;
    return numbers;
}

// A record of any size: the key in the first bytes, then bytes that depend on the key and
// show that the record was moved whole.
std::vector<unsigned char> records(const std::vector<int> &keys, size_t size)
{
    std::vector<unsigned char> bytes;
    for (int key : keys) {
        std::vector<unsigned char> record(size, static_cast<unsigned char>(key));
        std::memcpy(record.data(), &key, sizeof key);
        bytes.insert(bytes.end(), record.begin(), record.end());
    }
    return bytes;
}

TEST(Shellsort, SortsEveryCountUpToPastTheFourthGap)
{
    for (int n = 0; n <= 130; ++n) {
        SCOPED_TRACE(n);
        std::vector<int> numbers = random_numbers(n);
        std::vector<int> expected = numbers;
        std::sort(expected.begin(), expected.end());
        shellsort(numbers.data(), n, sizeof(int), ascending<int>, nullptr);
        EXPECT_EQ(numbers, expected);
    }
}

TEST(Shellsort, SortsSortedReversedAndEqualElements)
{
    std::vector<int> up(1000);
    std::iota(up.begin(), up.end(), 0);
    std::vector<int> numbers = up;
    shellsort(numbers.data(), 1000, sizeof(int), ascending<int>, nullptr);
    EXPECT_EQ(numbers, up);
    std::reverse(numbers.begin(), numbers.end());
    shellsort(numbers.data(), 1000, sizeof(int), ascending<int>, nullptr);
    EXPECT_EQ(numbers, up);
    std::fill(numbers.begin(), numbers.end(), 5);
    shellsort(numbers.data(), 1000, sizeof(int), ascending<int>, nullptr);
    EXPECT_EQ(numbers, std::vector<int>(1000, 5));
}

TEST(Shellsort, MovesElementsOfEverySizeWhole)
{
    for (size_t size : {4U, 5U, 8U, 16U, 255U, 256U, 257U, 4096U}) {
        SCOPED_TRACE(size);
        const std::vector<int> keys = random_numbers(50);
        std::vector<int> sorted = keys;
        std::sort(sorted.begin(), sorted.end());
        std::vector<unsigned char> bytes = records(keys, size);
        shellsort(bytes.data(), 50, static_cast<int>(size), ascending<int>, nullptr);
        EXPECT_EQ(bytes, records(sorted, size));
    }
}

TEST(Shellsort, SortsEightByteElements)
{
    std::vector<double> numbers = {2.5, -1, 1e300, 0, -1e300};
    shellsort(numbers.data(), 5, sizeof(double), ascending<double>, nullptr);
    EXPECT_EQ(numbers, (std::vector<double>{-1e300, -1, 0, 2.5, 1e300}));
}

TEST(Shellsort, SortsSingleBytes)
{
    char text[] = "shellsort";
    shellsort(text, 9, 1, ascending<char>, nullptr);
    EXPECT_STREQ(text, "ehllorsst");
}

TEST(Shellsort, PassesThePrivateArgumentToTheComparison)
{
    int numbers[] = {1, 2};
    int calls = 0;
    shellsort(
        numbers, 2, sizeof(int),
        [](const void *, const void *, void *pvt) {
            ++*static_cast<int *>(pvt);
            return 0;
        },
        &calls);
    EXPECT_EQ(calls, 1);
}

TEST(Shellsort, ComparesTheEarlierElementFirst)
{
    int numbers[] = {10, 20};
    shellsort(
        numbers, 2, sizeof(int),
        [](const void *a, const void *b, void *) {
            EXPECT_EQ(*static_cast<const int *>(a), 10);
            EXPECT_EQ(*static_cast<const int *>(b), 20);
            return -1;
        },
        nullptr);
    EXPECT_EQ(numbers[0], 10);
}

TEST(Shellsort, FollowsKnuthsGapsFromTheSmallestNotBelowTheCountDividedByThree)
{
    // Fourteen elements begin with gap 13: the first comparison is of elements 0 and 13.
    int numbers[14];
    std::iota(numbers, numbers + 14, 0);
    std::vector<int> gaps;
    shellsort(
        numbers, 14, sizeof(int),
        [](const void *a, const void *b, void *pvt) {
            static_cast<std::vector<int> *>(pvt)->push_back(*static_cast<const int *>(b) -
                                                            *static_cast<const int *>(a));
            return -1;
        },
        &gaps);
    std::vector<int> expected(1, 13);
    expected.insert(expected.end(), 10, 4);
    expected.insert(expected.end(), 13, 1);
    EXPECT_EQ(gaps, expected);
}

TEST(Shellsort, LeavesNothingAlone)
{
    shellsort(nullptr, 0, 8, ascending<double>, nullptr);
    shellsort(nullptr, -3, 8, ascending<double>, nullptr);
    int one = 1;
    shellsort(&one, 1, sizeof one, ascending<int>, nullptr);
    int numbers[] = {2, 1};
    shellsort(numbers, 2, 0, ascending<int>, nullptr);
    EXPECT_EQ(one, 1);
    EXPECT_EQ(numbers[0], 2);
}

}  // namespace
