// Cuts tokens off a text: the longest match of a list of patterns, the earlier one on a tie.
//
// All patterns are walked side by side. The set of places in them that a text has
// led to is a state, and the way from state to state by each kind of byte is
// worked out when it is first taken, then kept: a table that builds itself
// (subset construction, as in Aho, Sethi and Ullman, on demand). A text is read
// once from left to right, whatever it holds. Threads may read at once: who finds a way
// that was worked out already takes no lock.
//
// In a pattern a byte stands for itself and a lower-case letter for both cases.
//
//     #   a digit                         @    a letter
//     ~   "+" or "-"                      %    a letter, digit, "_", "/", "+" or "-"
//     +   after # or %: one or more       { }  what may be missing, not nested

#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>

#include "base/ascii.h"
#include "base/ordered_lock.h"
#include "stock/elog.h"

namespace stock {

// What one scanner can hold: the rows of str2epoch have 374 states with 1,977 places in all.
constexpr std::size_t kScannerStates = 384;
constexpr std::size_t kScannerItems = 2048;

// kRows is an array of records that have a member `pattern`.
template <const auto &kRows>
class TokenScanner {
public:
    struct Match {
        std::size_t row;     // kNoRow: nothing matches here
        std::size_t length;  // 0 then
    };
    static constexpr std::size_t kNoRow = kRows.size();

    // The lock is held while the table grows.
    explicit constexpr TokenScanner(Place place) : lock_(place) {}

    // The token that the text, which ends in a NUL, begins with.
    Match next(const char *text)
    {
        if (!started_.load(std::memory_order_acquire))
            start();
        State end = kDead;  // the state of the longest match
        std::size_t length = 0;
        std::size_t at = 0;
        for (State state = kStart; state != kDead; ++at) {
            const std::uint8_t kind = kKind[static_cast<unsigned char>(text[at])];
            const State known = next_[state][kind].load(std::memory_order_acquire);
            const State reached = known ? known : step(state, kind);
            if (reached & kAccepts) {
                end = reached & ~kAccepts;
                length = at + 1;
            }
            state = reached & ~kAccepts;
        }
        return {accepts_[end], length};
    }

private:
    using State = std::uint16_t;  // in a step: 0 is not yet worked out
    using Item = std::uint16_t;   // a place in kText
    static constexpr State kDead = 1;
    static constexpr State kStart = 2;
    static constexpr State kAccepts = 0x8000;  // in a step: what is reached ends a match

    // The bytes that patterns tell apart; all others are kind 0.
    static constexpr std::string_view kBytes = "0123456789abcdefghijklmnopqrstuvwxyz/:-.,()+_ \n\t";
    static constexpr std::size_t kKinds = 64;
    static constexpr auto kKind = [] {
        std::array<std::uint8_t, 256> kinds{};
        for (std::size_t i = 0; i < kBytes.size(); ++i) {
            const auto byte = static_cast<unsigned char>(kBytes[i]);
            kinds[byte] = static_cast<std::uint8_t>(i + 1);
            if (is_letter(kBytes[i]))
                kinds[byte - 'a' + 'A'] = static_cast<std::uint8_t>(i + 1);
        }
        return kinds;
    }();

    // All patterns, each ended by a NUL, and which row each byte belongs to.
    static constexpr std::size_t kSize = [] {
        std::size_t size = 0;
        for (const auto &row : kRows)
            size += row.pattern.size() + 1;
        return size;
    }();
    struct Patterns {
        std::array<char, kSize> text{};
        std::array<std::size_t, kSize> row{};
    };
    static constexpr Patterns kPatterns = [] {
        Patterns patterns;
        std::size_t at = 0;
        for (std::size_t row = 0; row < kRows.size(); ++row)
            for (std::size_t i = 0; i <= kRows[row].pattern.size(); ++i, ++at) {
                patterns.text[at] = i < kRows[row].pattern.size() ? kRows[row].pattern[i] : '\0';
                patterns.row[at] = row;
            }
        return patterns;
    }();
    static_assert(kSize < 4096 && kBytes.size() < kKinds);

    // Places in the patterns, ascending and each once.
    struct Items {
        std::array<Item, 256> item;
        std::size_t count = 0;

        const Item *begin() const { return item.data(); }
        const Item *end() const { return item.data() + count; }

        void add(std::size_t at)
        {
            const char c = kPatterns.text[at];
            if (c == '}')
                return add(at + 1);
            if (c == '{') {
                add(at + 1);
                while (kPatterns.text[at] != '}')
                    ++at;
                return add(at + 1);
            }
            Item *last = item.data() + count;
            Item *place = std::lower_bound(item.data(), last, static_cast<Item>(at));
            if (place != last && *place == at)
                return;
            std::copy_backward(place, last, last + 1);
            *place = static_cast<Item>(at);
            ++count;
        }
    };

    static constexpr bool fits(char element, char c)
    {
        switch (element) {
        case '#': return is_digit(c);
        case '~': return c == '+' || c == '-';
        case '@': return is_letter(c);
        case '%':
            return is_letter(c) || is_digit(c) || c == '_' || c == '/' || c == '+' || c == '-';
        default: return element == c;
        }
    }

    void start()
    {
        const std::lock_guard hold(lock_);
        if (started_)  // another thread was quicker
            return;
        states_ = kStart;  // 0 and 1 stand for no state
        accepts_[kDead] = kNoRow;
        Items items;
        for (std::size_t at = 0; at < kSize; ++at)
            if (at == 0 || kPatterns.text[at - 1] == '\0')
                items.add(at);
        state_of(items);
        started_.store(true, std::memory_order_release);
    }

    State step(State from, std::uint8_t kind)
    {
        const std::lock_guard hold(lock_);
        Items items;
        if (kind)
            for (std::size_t i = begin_[from]; i < begin_[from + 1U]; ++i)
                follow(items, pool_[i], kBytes[kind - 1U]);
        State to = items.count ? state_of(items) : kDead;
        if (accepts_[to] != kNoRow)
            to |= kAccepts;
        next_[from][kind].store(to, std::memory_order_release);
        return to;
    }

    static void follow(Items &items, std::size_t at, char c)
    {
        const char element = kPatterns.text[at];
        if (!element || !fits(element, c))
            return;
        const bool repeats = (element == '#' || element == '%') && kPatterns.text[at + 1] == '+';
        if (repeats)
            items.add(at);
        items.add(at + (repeats ? 2 : 1));
    }

    // The state of these places, made when there is none yet.
    State state_of(const Items &items)
    {
        for (State state = kStart; state < states_; ++state)
            if (std::equal(items.begin(), items.end(), &pool_[begin_[state]],
                           pool_.data() + begin_[state + 1U]))
                return state;
        return keep(items);
    }

    State keep(const Items &items)
    {
        const std::size_t begin = begin_[states_];
        if (states_ == kScannerStates || begin + items.count > kScannerItems)
            elog_fault(0, "fatal EP flex scanner internal error--no action found");
        const State state = states_++;
        std::copy(items.begin(), items.end(), pool_.data() + begin);
        begin_[states_] = begin + items.count;
        accepts_[state] = kNoRow;
        // A place at a pattern's end has matched it; the first is the earliest row's.
        for (const Item at : items)
            if (accepts_[state] == kNoRow && !kPatterns.text[at])
                accepts_[state] = kPatterns.row[at];
        return state;
    }

    // A state's row of the other tables is whole before next_ leads to it.
    OrderedLock lock_;
    std::atomic<bool> started_{false};
    State states_ = 0;  // one past the last
    std::array<std::array<std::atomic<State>, kKinds>, kScannerStates> next_{};
    std::array<std::size_t, kScannerStates> accepts_{};    // a row, or kNoRow
    std::array<std::size_t, kScannerStates + 1> begin_{};  // where a state's places begin in pool_
    std::array<Item, kScannerItems> pool_{};
};

}  // namespace stock
