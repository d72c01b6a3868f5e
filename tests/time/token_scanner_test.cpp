// The scanner that cuts texts of times into tokens, with other patterns than those of times.

#include "time/token_scanner.h"

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Row {
    std::string_view pattern;
};

template <const auto &kRows>
void expect_match(const char *text, std::size_t row, std::size_t length)
{
    const auto match = stock::TokenScanner<kRows>::next(text);
    EXPECT_EQ(match.row, row) << text;
    EXPECT_EQ(match.length, length) << text;
}

template <const auto &kRows>
void expect_no_match(const char *text)
{
    expect_match<kRows>(text, kRows.size(), 0);
}

// Adds each length at which the pattern matches the beginning of the text, found by trying every
// way to match it. The first `length` characters are matched already.
void add_lengths(std::string_view pattern, std::string_view text, std::size_t length,
                 std::vector<std::size_t> &lengths)
{
    using stock::token_table::element_matches;
    if (pattern.empty())
        return lengths.push_back(length);
    if (pattern[0] == '}')
        return add_lengths(pattern.substr(1), text, length, lengths);
    if (pattern[0] == '{') {
        add_lengths(pattern.substr(1), text, length, lengths);
        return add_lengths(pattern.substr(pattern.find('}') + 1), text, length, lengths);
    }
    const bool repeats =
        (pattern[0] == '#' || pattern[0] == '%') && pattern.size() > 1 && pattern[1] == '+';
    for (std::size_t i = length; i < text.size(); ++i) {
        if (!element_matches(pattern[0], stock::lower(text[i])))
            return;
        add_lengths(pattern.substr(repeats ? 2 : 1), text, i + 1, lengths);
        if (!repeats)
            return;
    }
}

// The match that a scanner without a table finds: it tries each row.
template <const auto &kRows>
typename stock::TokenScanner<kRows>::Match slow_match(std::string_view text)
{
    typename stock::TokenScanner<kRows>::Match best{kRows.size(), 0};
    for (std::size_t row = 0; row < kRows.size(); ++row) {
        std::vector<std::size_t> lengths;
        add_lengths(kRows[row].pattern, text, 0, lengths);
        for (const std::size_t length : lengths)
            if (length > best.length)
                best = {row, length};
    }
    return best;
}

// Compares the scanner with slow_match on texts of these characters: few, so that many texts
// match long patterns.
template <const auto &kRows>
void expect_matches_of_random_texts(std::string_view characters)
{
    std::mt19937 random(1);
    for (int i = 0; i < 100000; ++i) {
        std::string text(random() % 12, ' ');
        for (char &c : text)
            c = characters[random() % characters.size()];
        const auto fast = stock::TokenScanner<kRows>::next(text.c_str());
        const auto slow = slow_match<kRows>(text);
        ASSERT_EQ(fast.row, slow.row) << text;
        ASSERT_EQ(fast.length, slow.length) << text;
    }
}

constexpr std::array kGauges = std::to_array<Row>({
    {"#+"},
    {"#+.#+{mm}"},
    {"north"},
    {"@%+"},
    {"south"},  // never: the row before it matches the same text
    {"#+e{~}#+"},
    {"-"},
});

}  // namespace

TEST(TokenScanner, TakesTheLongestMatch)
{
    expect_match<kGauges>("12 mm", 0, 2);
    expect_match<kGauges>("12.5", 1, 4);
    expect_match<kGauges>("12.5mm", 1, 6);
    expect_match<kGauges>("12.5m", 1, 4);
    expect_match<kGauges>("12.", 0, 2);
    expect_match<kGauges>("12e-5", 5, 5);
    expect_match<kGauges>("12e-", 0, 2);
}

TEST(TokenScanner, TakesTheEarlierRowOfMatchesOfTheSameLength)
{
    expect_match<kGauges>("north", 2, 5);
    expect_match<kGauges>("south", 3, 5);
    expect_match<kGauges>("northern", 3, 8);
}

TEST(TokenScanner, TakesSmallLettersOfAPatternForBothCases)
{
    expect_match<kGauges>("NorTH", 2, 5);
    expect_match<kGauges>("1.5MM", 1, 5);
}

TEST(TokenScanner, MatchesNothingAtOtherBytesAndAtTheEnd)
{
    for (const char *text : {"", "!", "\xc3\xa4", "\xff", ".5", "~"})
        expect_no_match<kGauges>(text);
    expect_match<kGauges>("12\xff", 0, 2);
}

TEST(TokenScanner, FindsWhatTryingEveryPatternFinds)
{
    expect_matches_of_random_texts<kGauges>("12.e-+mnorthNORTHsu_ ");
}

TEST(TokenScanner, KnowsARowThatIsNeverTaken)
{
    static constexpr std::array kSound = std::to_array<Row>({{"north"}, {"#+{mm}"}, {"@%+"}});
    static_assert(stock::each_row_matches_its_pattern<kSound>());
    static_assert(!stock::each_row_matches_its_pattern<kGauges>());
}

namespace {

// 60 patterns of 20 elements have more states than the 512 that the builder makes room for first.
constexpr std::size_t kLength = 20;
constexpr auto kLetters = [] {
    std::array<std::array<char, kLength>, 60> patterns{};
    std::uint32_t random = 1;
    for (auto &pattern : patterns)
        for (char &element : pattern) {
            random = random * 1664525 + 1013904223;
            element = "nsmt#@"[(random >> 24) % 6];
        }
    return patterns;
}();
constexpr auto kManyRows = [] {
    std::array<Row, kLetters.size()> rows;
    for (std::size_t i = 0; i < rows.size(); ++i)
        rows[i].pattern = {kLetters[i].data(), kLength};
    return rows;
}();

}  // namespace

// The table had room for 384 states once; a pattern more could have ended the process, on the day
// that a text reached it.
TEST(TokenScanner, HasAsManyStatesAsThePatternsNeed)
{
    using Scanner = stock::TokenScanner<kManyRows>;
    static_assert(Scanner::states() > 1000);
    static_assert(stock::each_row_matches_its_pattern<kManyRows>());
    for (std::size_t row = 0; row < kManyRows.size(); ++row) {
        std::string text(kManyRows[row].pattern);
        for (char &c : text)
            c = c == '#' ? '7' : c == '@' ? 'z' : c;
        expect_match<kManyRows>(text.c_str(), row, kLength);
    }
}
