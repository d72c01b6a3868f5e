// Binary search of a sorted array, for one match or for the whole run of equal elements.
//
// The search ends at any match. The ends of the run are then found by halving the part
// between the match and the last limit, after one look at the neighbour, because most runs
// are short.

#include "stock/ssearch.h"

namespace {

// A sorted array and the key that is looked for in it.
struct KeySearch {
    const void *key;
    const char *base;
    int64_t size;
    int (*compare)(const void *key, const void *element, void *pvt);
    void *pvt;

    // How the key compares with element i: below 0, 0 or above 0.
    int compare_at(int64_t i) const { return compare(key, base + i * size, pvt); }

    // The index of the first element equal to the key. It is in low .. match; match is equal.
    int64_t first_equal(int64_t low, int64_t match) const
    {
        while (low < match && compare_at(match - 1) == 0) {
            --match;
            const int64_t middle = low + (match - low) / 2;
            if (compare_at(middle) == 0)
                match = middle;
            else
                low = middle + 1;
        }
        return match;
    }

    // The index of the last element equal to the key. It is in match .. high; match is equal.
    int64_t last_equal(int64_t match, int64_t high) const
    {
        while (match < high && compare_at(match + 1) == 0) {
            ++match;
            const int64_t middle = high - (high - match) / 2;
            if (compare_at(middle) == 0)
                match = middle;
            else
                high = middle - 1;
        }
        return match;
    }
};

}  // namespace

int64_t ssearch(const void *key, int size, const void *base, int64_t n, int unique,
                int (*compare)(const void *key, const void *element, void *pvt), void *pvt,
                int64_t *first, int64_t *last)
{
    const KeySearch search{key, static_cast<const char *>(base), size, compare, pvt};
    int64_t low = 0;
    int64_t high = n - 1;
    while (low <= high) {
        const int64_t middle = low + (high - low) / 2;
        const int order = search.compare_at(middle);
        if (order < 0) {
            high = middle - 1;
        } else if (order > 0) {
            low = middle + 1;
        } else {
            *first = unique ? middle : search.first_equal(low, middle);
            *last = unique ? middle : search.last_equal(middle, high);
            return *last - *first + 1;
        }
    }
    // No match: low is where the key would be inserted.
    *first = low;
    *last = low - 1;
    return 0;
}
