// The red-black tree: its entries, their order, and its balance.

#include "stock/redblack.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct DestroyTree {
    void operator()(Rbtree *tree) const { rbdestroy(tree); }
};
using TreePtr = std::unique_ptr<Rbtree, DestroyTree>;  // does not free keys and values

// Keys are addresses of these ints.
int kNumbers[3000];
const bool kNumbered = [] {
    std::iota(std::begin(kNumbers), std::end(kNumbers), 0);
    return true;
}();

void *key(int n)
{
    return &kNumbers[n];
}

int number(const void *found)
{
    return found ? *static_cast<const int *>(found) : -1;
}

int by_number(const void *a, const void *b)
{
    return *static_cast<const int *>(a) - *static_cast<const int *>(b);
}

TreePtr tree_of(const std::vector<int> &numbers)
{
    TreePtr tree(rbinit(by_number));
    for (int n : numbers)
        rbinsert(key(n), key(n), tree.get());
    return tree;
}

std::vector<int> keys_of(const Rbtree *tree)
{
    std::vector<int> keys;
    rbtraverse(
        tree,
        [](void *k, void *, void *argument) {
            static_cast<std::vector<int> *>(argument)->push_back(number(k));
            return 0;
        },
        &keys);
    return keys;
}

struct Shape {
    int height;
    int blacks;  // on every path down; -1 when a rule is broken
};

// Checks the links and the red-black rules of a subtree.
Shape shape_of(const Rbnode *node)
{
    if (node == rb_null)
        return {0, 0};
    const Shape left = shape_of(node->left);
    const Shape right = shape_of(node->right);
    const bool linked = (node->left == rb_null || node->left->up == node) &&
                        (node->right == rb_null || node->right->up == node);
    const bool red_pair =
        node->colour == 1 && (node->left->colour == 1 || node->right->colour == 1);
    const bool right_rules = linked && !red_pair && left.blacks == right.blacks;
    return {1 + std::max(left.height, right.height),
            right_rules && left.blacks >= 0 ? left.blacks + (node->colour == 0) : -1};
}

void expect_balanced(const Rbtree *tree, size_t count)
{
    const Shape shape = shape_of(tree->root);
    EXPECT_GE(shape.blacks, 0);
    EXPECT_EQ(tree->root->colour, 0);
    EXPECT_EQ(tree->root->up, rb_null);
    EXPECT_LE(shape.height, 2 * std::log2(static_cast<double>(count) + 1));
}

TEST(Redblack, BeginsEmptyWithReplaceSet)
{
    const TreePtr tree(rbinit(by_number));
    EXPECT_EQ(tree->root, rb_null);
    EXPECT_EQ(tree->replace, 1);
    EXPECT_EQ(tree->compare, by_number);
}

TEST(Redblack, SentinelIsBlack)
{
    EXPECT_EQ(rb_null->colour, 0);
}

TEST(Redblack, ComparesStringsWhenNoComparisonIsGiven)
{
    const TreePtr tree(rbinit(nullptr));
    ASSERT_NE(tree->compare, nullptr);
    EXPECT_LT(tree->compare("a", "b"), 0);
    EXPECT_EQ(tree->compare("a", "a"), 0);
    EXPECT_GT(tree->compare("\xff", "a"), 0);
    char a[] = "a", b[] = "b", same[] = "b";
    rbinsert(b, b, tree.get());
    rbinsert(a, a, tree.get());
    EXPECT_EQ(rbfind(same, tree.get()), b);
    EXPECT_EQ(rbfind("", tree.get()), nullptr);
}

TEST(Redblack, HoldsNoNullStringKey)
{
    const TreePtr tree(rbinit(nullptr));
    char a[] = "a";
    rbinsert(a, a, tree.get());
    EXPECT_EQ(rbinsert(nullptr, a, tree.get()), rb_null);
    EXPECT_EQ(rbfind(nullptr, tree.get()), nullptr);
    EXPECT_EQ(rbdelete(nullptr, tree.get()), nullptr);
    EXPECT_EQ(rblookup(RB_GE, nullptr, tree.get()), nullptr);
    EXPECT_EQ(rblookup(RB_FIRST, nullptr, tree.get()), a);
}

TEST(Redblack, NullKeyIsTheComparisonsToJudge)
{
    const TreePtr tree(rbinit([](const void *a, const void *b) { return (a > b) - (a < b); }));
    char value[] = "v";
    Rbnode *node = rbinsert(nullptr, value, tree.get());
    EXPECT_EQ(tree->root, node);
    EXPECT_EQ(rbsearch(nullptr, tree.get()), value);
}

TEST(Redblack, PassesTheGivenKeyFirst)
{
    const TreePtr tree(rbinit([](const void *given, const void *stored) {
        EXPECT_EQ(stored, key(1));
        return by_number(given, stored);
    }));
    rbinsert(key(1), nullptr, tree.get());
    int other = 1;
    EXPECT_EQ(rbfind(&other, tree.get()), key(1));
    rblookup(RB_GE, &other, tree.get());
    rbdelete(&other, tree.get());
}

TEST(Redblack, InsertGivesTheNewNode)
{
    const TreePtr tree(rbinit(by_number));
    const Rbnode *node = rbinsert(key(5), key(6), tree.get());
    EXPECT_EQ(node, tree->root);
    EXPECT_EQ(node->key, key(5));
    EXPECT_EQ(node->value, key(6));
}

TEST(Redblack, InsertOfAnExistingKeyReplacesAndGivesTheOldOne)
{
    const TreePtr tree = tree_of({1, 2, 3});
    const Rbnode *root = tree->root;
    int same = 2;
    const Rbnode *old = rbinsert(&same, key(9), tree.get());
    EXPECT_EQ(old, &tree->removed);
    EXPECT_EQ(old->key, key(2));
    EXPECT_EQ(old->value, key(2));
    EXPECT_EQ(rbfind(key(2), tree.get()), &same);
    EXPECT_EQ(rbsearch(key(2), tree.get()), key(9));
    EXPECT_EQ(tree->root, root);
}

TEST(Redblack, InsertWithoutReplaceGivesTheNodeThatIsThere)
{
    const TreePtr tree = tree_of({1, 2, 3});
    tree->replace = 0;
    int same = 2;
    const Rbnode *node = rbinsert(&same, key(9), tree.get());
    EXPECT_EQ(node, tree->root);
    EXPECT_EQ(node->key, key(2));
    EXPECT_EQ(node->value, key(2));
}

TEST(Redblack, DeleteGivesTheRemovedKeyAndValue)
{
    const TreePtr tree = tree_of({1, 2, 3});
    const Rbnode *removed = rbdelete(key(2), tree.get());
    EXPECT_EQ(removed, &tree->removed);
    EXPECT_EQ(removed->key, key(2));
    EXPECT_EQ(removed->value, key(2));
    EXPECT_EQ(keys_of(tree.get()), (std::vector<int>{1, 3}));
    EXPECT_EQ(rbdelete(key(2), tree.get()), nullptr);
    rbdelete(key(1), tree.get());
    rbdelete(key(3), tree.get());
    EXPECT_EQ(tree->root, rb_null);
    EXPECT_EQ(rbdelete(key(1), tree.get()), nullptr);
}

TEST(Redblack, DeletingANodeWithTwoChildrenMovesItsSuccessorsEntryIntoIt)
{
    const TreePtr tree(rbinit(by_number));
    for (int n : {20, 10, 40, 30})
        rbinsert(key(n), key(n + 1), tree.get());
    const Rbnode *root = tree->root;
    EXPECT_EQ(rbdelete(key(20), tree.get())->key, key(20));
    EXPECT_EQ(tree->root, root);
    EXPECT_EQ(root->key, key(30));
    EXPECT_EQ(root->value, key(31));
    EXPECT_EQ(root->right->key, key(40));
    EXPECT_EQ(root->right->left, rb_null);
}

TEST(Redblack, EqualStringReplacesInItsNode)
{
    const TreePtr tree(rbinit(nullptr));
    char a[] = "a", b[] = "b", same[] = "b";
    rbinsert(a, nullptr, tree.get());
    const Rbnode *node = rbinsert(b, a, tree.get());
    EXPECT_EQ(rbinsert(same, b, tree.get()), &tree->removed);
    EXPECT_EQ(tree->removed.key, b);
    EXPECT_EQ(tree->removed.value, a);
    EXPECT_EQ(node->key, same);
    EXPECT_EQ(node->value, b);
}

TEST(Redblack, SearchGivesTheValueAndFindTheStoredKey)
{
    const TreePtr tree(rbinit(by_number));
    rbinsert(key(1), key(11), tree.get());
    int same = 1;
    EXPECT_EQ(rbsearch(&same, tree.get()), key(11));
    EXPECT_EQ(rbfind(&same, tree.get()), key(1));
    EXPECT_EQ(rbsearch(key(2), tree.get()), nullptr);
    EXPECT_EQ(rbfind(key(2), tree.get()), nullptr);
}

TEST(Redblack, NullTreeHoldsNothing)
{
    EXPECT_EQ(rbsearch(key(1), nullptr), nullptr);
    EXPECT_EQ(rbfind(key(1), nullptr), nullptr);
    EXPECT_EQ(rbdelete(key(1), nullptr), nullptr);
    EXPECT_EQ(rbinsert(key(1), nullptr, nullptr), rb_null);
    for (int mode = -1; mode <= 9; ++mode)
        EXPECT_EQ(rblookup(mode, key(1), nullptr), nullptr);
    rbtraverse(nullptr, nullptr, nullptr);
    rbdestroy(nullptr);
}

TEST(Rblookup, ChoosesTheKeyByTheMode)
{
    const TreePtr tree = tree_of({10, 20, 30});
    constexpr int kNone = -1;
    const struct {
        int given;
        int found[9];  // by mode: EQ GE LE LT GT NEXT PREV FIRST LAST
    } cases[] = {
        {5, {kNone, 10, kNone, kNone, 10, kNone, kNone, 10, 30}},
        {10, {10, 10, 10, kNone, 20, 20, kNone, 10, 30}},
        {15, {kNone, 20, 10, 10, 20, kNone, kNone, 10, 30}},
        {20, {20, 20, 20, 10, 30, 30, 10, 10, 30}},
        {25, {kNone, 30, 20, 20, 30, kNone, kNone, 10, 30}},
        {30, {30, 30, 30, 20, kNone, kNone, 20, 10, 30}},
        {35, {kNone, kNone, 30, 30, kNone, kNone, kNone, 10, 30}},
    };
    for (const auto &c : cases)
        for (int mode = RB_EQ; mode <= RB_LAST; ++mode)
            EXPECT_EQ(number(rblookup(mode, key(c.given), tree.get())), c.found[mode])
                << "mode " << mode << " of " << c.given;
}

TEST(Rblookup, KnowsNoOtherMode)
{
    const TreePtr tree = tree_of({10, 20, 30});
    for (int mode : {-1, 9, 1000})
        for (int given : {15, 20})
            EXPECT_EQ(rblookup(mode, key(given), tree.get()), nullptr);
}

TEST(Rblookup, FindsNothingInAnEmptyTree)
{
    const TreePtr tree(rbinit(by_number));
    for (int mode = -1; mode <= 9; ++mode)
        EXPECT_EQ(rblookup(mode, key(1), tree.get()), nullptr);
}

TEST(Rblookup, NumbersOfTheModesAreFixed)
{
    const int modes[] = {RB_EQ, RB_GE, RB_LE, RB_LT, RB_GT, RB_NEXT, RB_PREV, RB_FIRST, RB_LAST};
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(modes[i], i);
}

TEST(Rblookup, AgreesWithAMapForEveryKeyAndMode)
{
    std::mt19937 random(3);
    std::map<int, int> map;
    const TreePtr tree(rbinit(by_number));
    for (int i = 0; i < 300; ++i) {
        const int n = static_cast<int>(random() % 1000);
        map[n] = n;
        rbinsert(key(n), nullptr, tree.get());
    }
    const auto at = [&](auto it) { return it == map.end() ? -1 : it->first; };
    const auto before = [&](auto it) { return it == map.begin() ? -1 : std::prev(it)->first; };
    for (int n = 0; n < 1000; ++n) {
        SCOPED_TRACE(n);
        const auto found = [&](int mode) { return number(rblookup(mode, key(n), tree.get())); };
        const bool has = map.count(n) > 0;
        ASSERT_EQ(found(RB_EQ), has ? n : -1);
        ASSERT_EQ(found(RB_GE), at(map.lower_bound(n)));
        ASSERT_EQ(found(RB_GT), at(map.upper_bound(n)));
        ASSERT_EQ(found(RB_LE), before(map.upper_bound(n)));
        ASSERT_EQ(found(RB_LT), before(map.lower_bound(n)));
        ASSERT_EQ(found(RB_NEXT), has ? at(map.upper_bound(n)) : -1);
        ASSERT_EQ(found(RB_PREV), has ? before(map.lower_bound(n)) : -1);
    }
}

TEST(Redblack, WalksInAscendingOrderAndGivesTheLastResult)
{
    const TreePtr tree = tree_of({2, 1, 3});
    EXPECT_EQ(keys_of(tree.get()), (std::vector<int>{1, 2, 3}));
    const auto twice = [](void *k, void *value, void *argument) {
        EXPECT_EQ(k, value);
        ++*static_cast<int *>(argument);
        return 2 * number(k);
    };
    int calls = 0;
    EXPECT_EQ(rb_walk(tree->root, twice, &calls), 6);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(rb_walk(tree->root->left, twice, &calls), 2);
    EXPECT_EQ(rb_walk(rb_null, twice, &calls), 0);
    EXPECT_EQ(rb_walk(nullptr, twice, &calls), 0);
    EXPECT_EQ(calls, 4);
}

TEST(Redblack, StaysBalancedOverAscendingInsertions)
{
    const TreePtr tree(rbinit(by_number));
    for (int n = 0; n < 3000; ++n) {
        rbinsert(key(n), nullptr, tree.get());
        if (n % 100 == 0)
            expect_balanced(tree.get(), static_cast<size_t>(n) + 1);
    }
    expect_balanced(tree.get(), 3000);
}

TEST(Redblack, StaysBalancedOverDescendingInsertions)
{
    const TreePtr tree(rbinit(by_number));
    for (int n = 2999; n >= 0; --n)
        rbinsert(key(n), nullptr, tree.get());
    expect_balanced(tree.get(), 3000);
}

TEST(Redblack, AgreesWithAMapOverRandomInsertionsAndDeletions)
{
    for (unsigned seed = 0; seed < 10; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const TreePtr tree(rbinit(by_number));
        std::map<int, void *> map;
        for (int step = 0; step < 5000; ++step) {
            const int n = static_cast<int>(random() % 400);
            if (random() % 2) {
                void *value = key(static_cast<int>(random() % 1000));
                const Rbnode *node = rbinsert(key(n), value, tree.get());
                ASSERT_EQ(node == &tree->removed, map.count(n) > 0);
                map[n] = value;
            } else {
                const Rbnode *removed = rbdelete(key(n), tree.get());
                ASSERT_EQ(removed != nullptr, map.erase(n) > 0);
            }
            if (step % 50 == 0)
                expect_balanced(tree.get(), map.size());
        }
        std::vector<int> keys;
        for (const auto &entry : map)
            keys.push_back(entry.first);
        EXPECT_EQ(keys_of(tree.get()), keys);
    }
}

// A string key is first compared with the key that was inserted last and its successor.

TEST(Redblack, AgreesWithAMapWhenStringsComeInRuns)
{
    std::vector<std::string> names;
    for (int n = 1000; n < 1400; ++n)
        names.push_back("gauge_" + std::to_string(n));
    std::mt19937 random(17);
    const TreePtr tree(rbinit(nullptr));
    std::map<std::string, void *> map;
    for (int run = 0; run < 2000; ++run) {
        const size_t step = 1 + random() % 3;
        const size_t end = random() % names.size();
        for (size_t n = end - std::min(end, random() % 30); n < end; n += step) {
            std::string &name = names[n];
            const Rbnode *node = rbinsert(name.data(), name.data(), tree.get());
            ASSERT_EQ(node == &tree->removed, !map.emplace(name, name.data()).second);
            // Sometimes the key that was inserted last, or a neighbour, is removed again.
            const std::string &gone =
                names[std::clamp<size_t>(n, 1, names.size() - 2) - 1 + random() % 3];
            if (random() % 4 == 0) {
                ASSERT_EQ(rbdelete(gone.c_str(), tree.get()) != nullptr, map.erase(gone) > 0);
            }
        }
        if (run % 20 == 0)
            expect_balanced(tree.get(), map.size());
        // Now and then all keys are removed, so that some runs find few keys.
        while (run % 50 == 0 && !map.empty()) {
            ASSERT_NE(rbdelete(map.begin()->first.c_str(), tree.get()), nullptr);
            map.erase(map.begin());
        }
    }
    std::vector<void *> found;
    rbtraverse(
        tree.get(),
        [](void *k, void *, void *argument) {
            static_cast<std::vector<void *> *>(argument)->push_back(k);
            return 0;
        },
        &found);
    std::vector<void *> expected;
    for (const auto &entry : map)
        expected.push_back(entry.second);
    EXPECT_EQ(found, expected);
}

TEST(Redblack, DeletingLeavesTheSentinelAlone)
{
    const TreePtr tree = tree_of({5, 2, 8, 1, 3, 7, 9});
    const Rbnode before = *rb_null;
    for (int n : {5, 2, 8, 1, 3, 7, 9})
        rbdelete(key(n), tree.get());
    EXPECT_EQ(rb_null->left, before.left);
    EXPECT_EQ(rb_null->right, before.right);
    EXPECT_EQ(rb_null->up, before.up);
    EXPECT_EQ(rb_null->colour, before.colour);
}

TEST(RedblackThreads, WorkOnTreesOfTheirOwn)
{
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 8; ++seed)
        threads.emplace_back([seed] {
            std::mt19937 random(seed);
            const TreePtr tree(rbinit(by_number));
            for (int step = 0; step < 3000; ++step) {
                const int n = static_cast<int>(random() % 200);
                if (random() % 2)
                    rbinsert(key(n), nullptr, tree.get());
                else
                    rbdelete(key(n), tree.get());
            }
            EXPECT_GE(shape_of(tree->root).blacks, 0);
        });
    for (std::thread &thread : threads)
        thread.join();
}

}  // namespace
