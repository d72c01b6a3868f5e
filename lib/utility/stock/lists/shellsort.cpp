// Shell's method with Knuth's gaps: D. L. Shell, CACM 2 (1959); D. E. Knuth,
// The Art of Computer Programming, volume 3, 5.2.1.
//
// One algorithm, instantiated by how an element is copied: elements of 4 and 8 bytes as
// one machine word, every other size byte for byte.

#include "stock/shellsort.h"

#include <cstddef>
#include <cstring>

#include "base/alloc.h"

namespace {

using Compare = int (*)(const void *a, const void *b, void *pvt);

// How to copy an element whose size the compiler knows.
template <int bytes>
struct KnownSize {
    static constexpr int64_t size() { return bytes; }
    static void copy(char *to, const char *from) { std::memcpy(to, from, bytes); }
};

// How to copy an element of any other size.
struct AnySize {
    int64_t bytes;
    int64_t size() const { return bytes; }
    void copy(char *to, const char *from) const
    {
        std::memcpy(to, from, static_cast<size_t>(bytes));
    }
};

// Moves element i down to its place among the sorted elements i - gap, i - 2 * gap ... The
// scratch memory holds the element meanwhile.
template <class Element>
void insert(Element element, char *base, int64_t i, int64_t gap, char *scratch, Compare compare,
            void *pvt)
{
    const int64_t stride = gap * element.size();
    char *hole = base + i * element.size();
    element.copy(scratch, hole);
    for (int64_t j = i - gap; j >= 0 && compare(hole - stride, scratch, pvt) > 0; j -= gap) {
        element.copy(hole, hole - stride);
        hole -= stride;
    }
    element.copy(hole, scratch);
}

// Sorts by insertion over gaps 1, 4, 13, 40 ..., the largest below n first.
template <class Element>
void sort(Element element, char *base, int64_t n, char *scratch, Compare compare, void *pvt)
{
    int64_t gap = 1;
    while (gap < n)
        gap = 3 * gap + 1;
    while (gap > 1) {
        gap /= 3;
        for (int64_t i = gap; i < n; ++i)
            insert(element, base, i, gap, scratch, compare, pvt);
    }
}

}  // namespace

void shellsort(void *base, int64_t n, int size,
               int (*compare)(const void *a, const void *b, void *pvt), void *pvt)
{
    if (n < 2 || size < 1)
        return;
    // The compare function is given the scratch memory as an element, hence the alignment.
    alignas(std::max_align_t) char on_stack[256];
    stock::Owned<char> on_heap;
    if (static_cast<size_t>(size) > sizeof on_stack)
        on_heap.reset(static_cast<char *>(stock::allocate(static_cast<size_t>(size), "s")));
    char *scratch = on_heap ? on_heap.get() : on_stack;
    auto *first = static_cast<char *>(base);
    if (size == 8)
        sort(KnownSize<8>{}, first, n, scratch, compare, pvt);
    else if (size == 4)
        sort(KnownSize<4>{}, first, n, scratch, compare, pvt);
    else
        sort(AnySize{size}, first, n, scratch, compare, pvt);
}
