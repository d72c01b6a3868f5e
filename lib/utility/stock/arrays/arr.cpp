// The associative array: a red-black tree whose keys are strings, each a copy that the array
// owns. What goes over all entries is a small function that applyarr calls for each.

#include "stock/arr.h"

#include <cstdlib>
#include <utility>

#include "arrays/node.h"
#include "base/alloc.h"
#include "base/regex.h"

namespace {

int count_entry(void *, void *, void *argument)
{
    ++*static_cast<int64_t *>(argument);
    return 0;
}

int push_key(void *key, void *, void *argument)
{
    pushtbl(static_cast<Tbl *>(argument), key);
    return 0;
}

int push_value(void *, void *value, void *argument)
{
    pushtbl(static_cast<Tbl *>(argument), value);
    return 0;
}

// The argument of copy_entry.
struct Copying {
    Arr *arr;
    void *(*copy)(void *value);  // null: the new array has the same values
};

int copy_entry(void *key, void *value, void *argument)
{
    const auto *copying = static_cast<const Copying *>(argument);
    setarr(copying->arr, static_cast<const char *>(key),
           copying->copy ? copying->copy(value) : value);
    return 0;
}

// The argument of match_key.
struct KeyMatching {
    const stock::Regex *regex;
    Tbl *found;  // gets the keys that match
};

int match_key(void *key, void *, void *argument)
{
    const auto *matching = static_cast<const KeyMatching *>(argument);
    if (matching->regex->matches(static_cast<const char *>(key)))
        pushtbl(matching->found, key);
    return 0;
}

// The argument of match_text.
struct TextMatching {
    const char *text;
    Tbl *found;
};

// Here the keys are the patterns.
int match_text(void *key, void *, void *argument)
{
    const auto *matching = static_cast<const TextMatching *>(argument);
    if (stock::Regex(static_cast<const char *>(key)).matches(matching->text))
        pushtbl(matching->found, key);
    return 0;
}

// Frees both subtrees, then the node's value, its key and the node itself.
void free_nodes(Rbnode *node, void (*free_value)(void *value))
{
    if (node == rb_null)
        return;
    // These are freed after the left subtree; the processor fetches them meanwhile.
    __builtin_prefetch(node->right);
    __builtin_prefetch(node->key);
    __builtin_prefetch(node->value);
    free_nodes(node->left, free_value);
    free_nodes(node->right, free_value);
    if (free_value)
        free_value(node->value);
    std::free(node->key);
    std::free(node);
}

}  // namespace

Arr *newarr(int (*compare)(const void *a, const void *b))
{
    Arr *arr = rbinit(compare);
    if (!arr)
        stock::out_of_memory(sizeof(Arr), "arr");
    arr->replace = 1;
    return arr;
}

void *setarr(Arr *arr, const char *key, void *value)
{
    if (!arr || !key)
        return nullptr;
    return stock::set_text(arr, key, value,
                           [](size_t bytes, const char *) { return std::malloc(bytes); });
}

void *getarr(const Arr *arr, const char *key)
{
    return rbsearch(key, arr);
}

void *delarr(Arr *arr, const char *key)
{
    const Rbnode *removed = rbdelete(key, arr);
    if (!removed)
        return nullptr;
    std::free(std::exchange(arr->removed.key, nullptr));
    return removed->value;
}

int freearr(Arr *arr, void (*free_value)(void *value))
{
    if (!arr)
        return 0;
    free_nodes(arr->root, free_value);
    std::free(arr);
    return 0;
}

int64_t cntarr(const Arr *arr)
{
    int64_t count = 0;
    applyarr(arr, count_entry, &count);
    return count;
}

Tbl *keysarr(const Arr *arr)
{
    Tbl *keys = newtbl(0);
    applyarr(arr, push_key, keys);
    return keys;
}

Tbl *valsarr(const Arr *arr)
{
    Tbl *values = newtbl(0);
    applyarr(arr, push_value, values);
    return values;
}

int applyarr(const Arr *arr, int (*function)(void *key, void *value, void *argument),
             void *argument)
{
    if (arr)
        arr_walk(arr->root, function, argument);
    return 0;
}

int arr_walk(Rbnode *node, int (*function)(void *key, void *value, void *argument), void *argument)
{
    return rb_walk(node, function, argument);
}

Arr *duparr(const Arr *arr, void *(*copy)(void *value))
{
    Arr *dup = newarr(arr ? arr->compare : nullptr);
    Copying copying{dup, copy};
    applyarr(arr, copy_entry, &copying);
    return dup;
}

Tbl *greparr(const char *pattern, const Arr *arr)
{
    Tbl *found = newtbl(0);
    if (!pattern)
        return found;
    const stock::Regex regex(pattern);
    KeyMatching matching{&regex, found};
    applyarr(arr, match_key, &matching);
    return found;
}

Tbl *arrgrep(const Arr *arr, const char *text)
{
    Tbl *found = newtbl(0);
    TextMatching matching{text, found};
    if (text)
        applyarr(arr, match_text, &matching);
    return found;
}
