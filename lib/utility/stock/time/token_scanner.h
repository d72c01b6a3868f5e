// Cuts tokens off a text by a list of patterns: the longest match, of equal ones the earlier row.
//
// The compiler turns the patterns into one table of states (subset construction). A state is
// the set of places in the patterns where a match may stand after the bytes read so far, and
// the table says for each state and byte which state follows. So the scanner reads each byte
// once, whatever the patterns, has no memory to run out of and needs no lock.
//
// In a pattern a byte matches itself and a small letter matches both cases, but for:
//
//     #   a digit                         @    a letter
//     ~   "+" or "-"                      %    a letter, digit, "_", "/", "+" or "-"
//     +   after # or %: one or more       { }  around a part that may be missing; not nested

#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/ascii.h"

namespace stock {

namespace token_table {

using State = std::uint16_t;
constexpr State kDead = 0;          // no pattern goes on from here
constexpr State kStart = 1;         // nothing has been read
constexpr State kMatches = 0x8000;  // in Table::next: the state reached ends a match

// Whether an element of a pattern matches a byte. A capital letter is to be given as a small one.
constexpr bool element_matches(char element, char c)
{
    switch (element) {
    case '#': return is_digit(c);
    case '~': return c == '+' || c == '-';
    case '@': return is_letter(c);
    case '%': return is_letter_or_digit(c) || c == '_' || c == '/' || c == '+' || c == '-';
    default: return element == c;
    }
}

// The patterns of all rows one after the other, each ended by a NUL. A place is an index
// into text.
template <const auto &kRows>
struct Patterns {
    static constexpr std::size_t kSize = [] {
        std::size_t size = 0;
        for (const auto &row : kRows)
            size += row.pattern.size() + 1;
        return size;
    }();

    static_assert(kSize <= 65536, "a place is a 16-bit number");

    std::array<char, kSize> text{};
    std::array<std::size_t, kSize> row{};  // the row that a place belongs to

    constexpr Patterns()
    {
        std::size_t at = 0;
        for (std::size_t i = 0; i < kRows.size(); ++i) {
            for (const char c : kRows[i].pattern) {
                row[at] = i;
                text[at++] = c;
            }
            row[at++] = i;
        }
    }
};
template <const auto &kRows>
constexpr Patterns<kRows> kPatterns;

// Bytes that no pattern tells apart are of one kind, so that a state has one entry in the
// table for each kind, not for each byte. Kind 0 is the bytes that no element matches.
class Kinds {
public:
    static constexpr std::size_t kMost = 64;  // a set of kinds is the bits of a 64-bit number

    std::size_t count = 1;
    std::array<std::uint8_t, 256> of{};      // the kind of each byte
    std::array<std::uint64_t, 256> match{};  // the kinds that each element matches

    // The text holds all elements of the patterns.
    template <std::size_t kSize>
    constexpr explicit Kinds(const std::array<char, kSize> &text)
    {
        for (const char c : text)
            if (c && std::find(elements_.begin(), elements_.end(), c) == elements_.end())
                elements_.at(element_count_++) = c;
        for (std::size_t byte = 1; byte < 128; ++byte)
            of[byte] = kind_of(lower(static_cast<char>(byte)));
        for (std::size_t i = 0; i < element_count_; ++i)
            for (std::size_t kind = 0; kind < count; ++kind)
                match[static_cast<unsigned char>(elements_[i])] |= (matched_by_[kind] >> i & 1)
                                                                   << kind;
    }

private:
    // The kind that the same elements match as this byte, a new one when there is none.
    constexpr std::uint8_t kind_of(char c)
    {
        std::uint64_t matched_by = 0;
        for (std::size_t i = 0; i < element_count_; ++i)
            matched_by |= std::uint64_t{element_matches(elements_[i], c)} << i;
        std::size_t kind = 0;
        while (kind < count && matched_by_[kind] != matched_by)
            ++kind;
        if (kind == count)
            matched_by_.at(count++) = matched_by;
        return static_cast<std::uint8_t>(kind);
    }

    // More elements or kinds than these have room for do not compile.
    std::array<char, kMost> elements_{};             // each once
    std::array<std::uint64_t, kMost> matched_by_{};  // of each kind: the elements, as bits
    std::size_t element_count_ = 0;
};
template <const auto &kRows>
constexpr Kinds kKinds{kPatterns<kRows>.text};

// Places in the patterns, ascending and each once.
template <const auto &kRows>
struct Places {
    std::uint16_t place[Patterns<kRows>::kSize]{};
    std::size_t count = 0;

    // Adds the place and those behind a part that begins there and may be missing.
    constexpr void add(std::size_t at)
    {
        const char *text = kPatterns<kRows>.text.data();
        if (text[at] == '{') {
            add(at + 1);
            while (text[at] != '}')
                ++at;
        }
        if (text[at] == '}')
            return add(at + 1);
        std::size_t i = count;
        while (i > 0 && place[i - 1] >= at)
            --i;
        if (i < count && place[i] == at)
            return;
        for (std::size_t last = count++; last > i; --last)
            place[last] = place[last - 1];
        place[i] = static_cast<std::uint16_t>(at);
    }

    // Adds where a match may stand when the element at this place has taken a byte.
    constexpr void add_after(std::size_t at)
    {
        const char *text = kPatterns<kRows>.text.data();
        const bool repeats = (text[at] == '#' || text[at] == '%') && text[at + 1] == '+';
        if (repeats)
            add(at);
        add(at + (repeats ? 2 : 1));
    }
};

template <std::size_t kStates, std::size_t kKindCount>
struct Table {
    // The state that follows a state and a kind of byte, with kMatches when it ends a match.
    // Rows are a power of two long: to find one is a shift.
    std::array<std::array<State, std::bit_ceil(kKindCount)>, kStates> next{};
    // The row whose match a state ends; the number of rows for none.
    std::array<std::uint16_t, kStates> row{};
};

// Builds the table: beginning with the start state, adds each state that a state in the table
// leads to, until none is new or the room for kRoom states is used up.
template <const auto &kRows, std::size_t kRoom>
struct Builder {
    static constexpr std::size_t kPlacesRoom = 8 * kRoom;
    static constexpr std::size_t kKindCount = kKinds<kRows>.count;
    static constexpr std::size_t kSize = Patterns<kRows>::kSize;

    std::size_t count = kStart;  // one past the last state
    bool complete = true;        // false: there was not enough room
    Table<kRoom, kKindCount> table{};

    constexpr Builder()
    {
        table.row[kDead] = kRows.size();
        Places<kRows> places;
        for (std::size_t at = 0; at < kSize; ++at)
            if (at == 0 || kPatterns<kRows>.text[at - 1] == '\0')
                places.add(at);
        state_of(places);
        for (State state = kStart; state < count && complete; ++state)
            add_steps(state);
    }

private:
    // The places of state i are places_[begin_[i]] up to places_[begin_[i + 1]].
    std::uint16_t places_[kPlacesRoom]{};
    std::size_t begin_[kRoom + 1]{};
    // The states with the same first place form a list, newest first, that state_of searches.
    State newest_[kSize]{};
    State older_[kRoom]{};

    // The kinds that the element at places_[i] matches.
    constexpr std::uint64_t kinds_matched(std::size_t i) const
    {
        return kKinds<kRows>.match[static_cast<unsigned char>(kPatterns<kRows>.text[places_[i]])];
    }

    // Fills the state's row of the table, and adds the states that it leads to.
    constexpr void add_steps(State state)
    {
        // Splits the kinds into sets that every place of the state matches as a whole or not at
        // all: the kinds of a set lead to the same state.
        std::uint64_t sets[Kinds::kMost]{~std::uint64_t{0} >> (64 - kKindCount)};
        std::size_t set_count = 1;
        for (std::size_t i = begin_[state]; i < begin_[state + 1U]; ++i) {
            const std::uint64_t matched = kinds_matched(i);
            for (std::size_t set = set_count; set-- > 0;) {
                const std::uint64_t inside = sets[set] & matched;
                if (inside == 0 || inside == sets[set])
                    continue;
                sets[set_count++] = sets[set] ^ inside;
                sets[set] = inside;
            }
        }
        for (std::size_t set = 0; set < set_count; ++set)
            add_step(state, sets[set]);
    }

    // Adds what follows the state and each of these kinds, which lead to the same state.
    constexpr void add_step(State state, std::uint64_t kinds)
    {
        Places<kRows> places;
        const int one = std::countr_zero(kinds);
        for (std::size_t i = begin_[state]; i < begin_[state + 1U]; ++i)
            if (kinds_matched(i) >> one & 1)
                places.add_after(places_[i]);
        if (places.count == 0)
            return;
        State reached = state_of(places);
        if (table.row[reached] != kRows.size())
            reached |= kMatches;
        State *next = table.next[state].data();
        for (; kinds; kinds &= kinds - 1)
            next[std::countr_zero(kinds)] = reached;
    }

    // The state of these places, a new one when there is none yet.
    constexpr State state_of(const Places<kRows> &places)
    {
        for (State state = newest_[places.place[0]]; state; state = older_[state])
            if (has_places(state, places))
                return state;
        return add_state(places);
    }

    constexpr bool has_places(State state, const Places<kRows> &places) const
    {
        if (begin_[state + 1U] - begin_[state] != places.count)
            return false;
        for (std::size_t i = 0; i < places.count; ++i)
            if (places_[begin_[state] + i] != places.place[i])
                return false;
        return true;
    }

    constexpr State add_state(const Places<kRows> &places)
    {
        const std::size_t begin = begin_[count];
        if (count == kRoom || begin + places.count > kPlacesRoom) {
            complete = false;
            return kDead;
        }
        const auto state = static_cast<State>(count++);
        older_[state] = newest_[places.place[0]];
        newest_[places.place[0]] = state;
        std::size_t row = kRows.size();
        for (std::size_t i = 0; i < places.count; ++i) {
            const std::size_t at = places.place[i];
            places_[begin + i] = places.place[i];
            // A place at a pattern's end has matched it.
            if (kPatterns<kRows>.text[at] == '\0')
                row = std::min(row, kPatterns<kRows>.row[at]);
        }
        begin_[count] = begin + places.count;
        table.row[state] = static_cast<std::uint16_t>(row);
        return state;
    }
};

// A variable, so that it is built once. clang++ gives up on a variable that takes more than
// 1,048,576 steps; the rows of str2epoch take about 450,000. -fconstexpr-steps= raises that.
template <const auto &kRows, std::size_t kRoom>
constexpr Builder<kRows, kRoom> kBuilt;

// The table of the rows, with as many states as there are. It is built in a workspace that is
// doubled until all states fit, then copied.
template <const auto &kRows, std::size_t kRoom = 512>
constexpr auto build()
{
    if constexpr (!kBuilt<kRows, kRoom>.complete) {
        static_assert(2 * kRoom <= kMatches, "more states than a State can hold");
        return build<kRows, 2 * kRoom>();
    } else {
        constexpr std::size_t kCount = kBuilt<kRows, kRoom>.count;
        Table<kCount, kKinds<kRows>.count> table;
        for (std::size_t state = 0; state < kCount; ++state) {
            table.next[state] = kBuilt<kRows, kRoom>.table.next[state];
            table.row[state] = kBuilt<kRows, kRoom>.table.row[state];
        }
        return table;
    }
}

// Writes the shortest text that the pattern matches, or that with each part that may be missing.
// Returns its length.
constexpr std::size_t write_example(std::string_view pattern, bool with_parts, char *text)
{
    std::size_t length = 0;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char element = pattern[i];
        const bool repeats =
            i > 0 && element == '+' && (pattern[i - 1] == '#' || pattern[i - 1] == '%');
        if (element == '{' && !with_parts)
            i = pattern.find('}', i);
        else if (element != '{' && element != '}' && !repeats)
            text[length++] = element == '#'   ? '5'
                             : element == '~' ? '-'
                             : element == '@' ? 'q'
                             : element == '%' ? '_'
                                              : element;
    }
    return length;
}

}  // namespace token_table

// kRows is an array of records that have a member `pattern`.
template <const auto &kRows>
class TokenScanner {
public:
    struct Match {
        std::size_t row;     // kNoRow: no pattern matches here
        std::size_t length;  // 0 then
    };
    static constexpr std::size_t kNoRow = kRows.size();

    // The token that the text begins with. The text ends in a NUL, which no pattern matches.
    static constexpr Match next(const char *text)
    {
        using namespace token_table;
        State state = kStart;
        State end = kDead;  // the state of the longest match
        std::size_t length = 0;
        for (std::size_t at = 0;;) {
            const State reached =
                kTable.next[state][kKindOf[static_cast<unsigned char>(text[at++])]];
            if (reached & kMatches) {
                end = state = reached ^ kMatches;
                length = at;
            } else if (reached == kDead) {
                return {kTable.row[end], length};
            } else {
                state = reached;
            }
        }
    }

    static constexpr std::size_t states() { return kTable.row.size(); }

private:
    static constexpr auto kTable = token_table::build<kRows>();
    static constexpr auto kKindOf = token_table::kKinds<kRows>.of;
};

// Whether each row is the one that matches the two texts made from its own pattern, without and
// with the parts that may be missing. A row that fails stands behind one that takes its texts.
template <const auto &kRows>
constexpr bool each_row_matches_its_pattern()
{
    for (std::size_t row = 0; row < kRows.size(); ++row)
        for (const bool with_parts : {false, true}) {
            std::array<char, token_table::Patterns<kRows>::kSize> text{};
            const std::size_t length =
                token_table::write_example(kRows[row].pattern, with_parts, text.data());
            const auto match = TokenScanner<kRows>::next(text.data());
            if (match.row != row || match.length != length)
                return false;
        }
    return true;
}

}  // namespace stock
