// Shell's method with Knuth's gaps: D. L. Shell, CACM 2 (1959); D. E. Knuth,
// The Art of Computer Programming, volume 3, 5.2.1.
//
// One algorithm, instantiated by how an element is copied: the common sizes as
// one machine word, every other size byte for byte.

#include "stock/shellsort.h"

#include <cstddef>
#include <cstring>

#include "base/alloc.h"

namespace {

using Compare = int (*)(const void *a, const void *b, void *pvt);

// Elements of a size that the compiler knows.
template <int bytes>
struct Fixed {
    static constexpr int64_t size() { return bytes; }
    static void copy(char *to, const char *from) { std::memcpy(to, from, bytes); }
};

struct AnySize {
    int64_t bytes;
    int64_t size() const { return bytes; }
    void copy(char *to, const char *from) const
    {
        std::memcpy(to, from, static_cast<size_t>(bytes));
    }
};

// Puts element i where it belongs among those `gap` places apart before it.
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
    alignas(std::max_align_t) char near[256];
    stock::Owned<char> far;
    if (static_cast<size_t>(size) > sizeof near)
        far.reset(static_cast<char *>(stock::allocate(static_cast<size_t>(size), "s")));
    char *scratch = far ? far.get() : near;
    auto *first = static_cast<char *>(base);
    if (size == 8)
        sort(Fixed<8>{}, first, n, scratch, compare, pvt);
    else if (size == 4)
        sort(Fixed<4>{}, first, n, scratch, compare, pvt);
    else
        sort(AnySize{size}, first, n, scratch, compare, pvt);
}
