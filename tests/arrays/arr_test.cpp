// The associative array: strings to pointers, in order.

#include "stock/arr.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <strings.h>

#include "stock/elog.h"
#include "stock/pf.h"
#include "support/owners.h"

namespace {

char kX[] = "x", kY[] = "y", kZ[] = "z";

ArrPtr arr_of(std::initializer_list<const char *> keys)
{
    ArrPtr arr(newarr(nullptr));
    for (const char *key : keys)
        setarr(arr.get(), key, const_cast<char *>(key));
    return arr;
}

std::string joined(Tbl *list)
{
    const TblPtr tbl(list);
    return Text(jointbl(tbl.get(), " ")).get();
}

int compare_caseless(const void *a, const void *b)
{
    return strcasecmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

std::vector<std::string> freed;

void note_value(void *value)
{
    freed.emplace_back(value ? static_cast<char *>(value) : "null");
}

TEST(Arr, BeginsEmpty)
{
    const ArrPtr arr(newarr(nullptr));
    EXPECT_EQ(arr->root, rb_null);
    EXPECT_EQ(arr->replace, 1);
    EXPECT_EQ(cntarr(arr.get()), 0);
    EXPECT_EQ(TblPtr(keysarr(arr.get()))->count, 0);
    EXPECT_EQ(TblPtr(valsarr(arr.get()))->count, 0);
    EXPECT_EQ(getarr(arr.get(), "k"), nullptr);
    EXPECT_EQ(delarr(arr.get(), "k"), nullptr);
}

TEST(Arr, SetGivesTheValueThatTheKeyHadBefore)
{
    const ArrPtr arr(newarr(nullptr));
    EXPECT_EQ(setarr(arr.get(), "k", kX), nullptr);
    EXPECT_EQ(setarr(arr.get(), "k", kY), kX);
    EXPECT_EQ(getarr(arr.get(), "k"), kY);
    EXPECT_EQ(cntarr(arr.get()), 1);
}

TEST(Arr, CopiesItsKeys)
{
    const ArrPtr arr(newarr(nullptr));
    char key[] = "key";
    setarr(arr.get(), key, kX);
    key[0] = 'K';
    EXPECT_EQ(getarr(arr.get(), "key"), kX);
    EXPECT_EQ(getarr(arr.get(), "Key"), nullptr);
    EXPECT_EQ(joined(keysarr(arr.get())), "key");
}

TEST(Arr, StoredNullLooksLikeAnAbsentKey)
{
    const ArrPtr arr(newarr(nullptr));
    EXPECT_EQ(setarr(arr.get(), "k", nullptr), nullptr);
    EXPECT_EQ(getarr(arr.get(), "k"), nullptr);
    EXPECT_EQ(cntarr(arr.get()), 1);
    EXPECT_EQ(setarr(arr.get(), "k", kX), nullptr);
    EXPECT_EQ(getarr(arr.get(), "k"), kX);
}

TEST(Arr, WithoutReplaceKeepsAndGivesTheValueThatIsThere)
{
    const ArrPtr arr = arr_of({"k"});
    arr->replace = 0;
    EXPECT_STREQ(static_cast<char *>(setarr(arr.get(), "k", kX)), "k");
    EXPECT_STREQ(static_cast<char *>(getarr(arr.get(), "k")), "k");
    EXPECT_EQ(setarr(arr.get(), "l", kX), nullptr);
    EXPECT_EQ(getarr(arr.get(), "l"), kX);
}

TEST(Arr, DeleteGivesTheValue)
{
    const ArrPtr arr = arr_of({"a", "b", "c"});
    EXPECT_STREQ(static_cast<char *>(delarr(arr.get(), "b")), "b");
    EXPECT_EQ(delarr(arr.get(), "b"), nullptr);
    EXPECT_EQ(joined(keysarr(arr.get())), "a c");
}

TEST(Arr, DeletingAnAbsentKeyChangesNothing)
{
    const ArrPtr arr = arr_of({"a", "b"});
    EXPECT_EQ(delarr(arr.get(), "c"), nullptr);
    EXPECT_EQ(joined(keysarr(arr.get())), "a b");
}

TEST(Arr, FilledWithBACGivesTheKeysABC)
{
    const ArrPtr arr = arr_of({"b", "a", "c"});
    EXPECT_EQ(joined(keysarr(arr.get())), "a b c");
}

TEST(Arr, GivesValuesInTheOrderOfTheirKeys)
{
    const ArrPtr arr(newarr(nullptr));
    setarr(arr.get(), "b", kX);
    setarr(arr.get(), "a", kZ);
    setarr(arr.get(), "c", kY);
    EXPECT_EQ(joined(valsarr(arr.get())), "z x y");
}

TEST(Arr, ListedKeysAreItsOwnCopiesAndStayOverOtherChanges)
{
    const ArrPtr arr(newarr(nullptr));
    for (int i = 0; i < 200; ++i)
        setarr(arr.get(), std::to_string(i).c_str(), kX);
    const TblPtr keys(keysarr(arr.get()));
    std::map<std::string, void *> listed;
    for (int64_t i = 0; i < keys->count; ++i)
        listed[static_cast<char *>(gettbl(keys.get(), i))] = gettbl(keys.get(), i);
    for (int i = 0; i < 200; ++i)
        if (i % 3)
            delarr(arr.get(), std::to_string(i).c_str());
    for (int i = 0; i < 200; i += 3)
        EXPECT_EQ(rbfind(std::to_string(i).c_str(), arr.get()), listed[std::to_string(i)]);
    EXPECT_EQ(cntarr(arr.get()), 67);
}

TEST(Arr, OrdersKeysByTheirBytesAsUnsigned)
{
    const ArrPtr arr = arr_of(
        {"\xc3\xa9", "z", "abcdefgh", "abcdefg", "abcdefghi", "", "abcdefgh\x80", "abcdefgz"});
    EXPECT_EQ(joined(keysarr(arr.get())),
              " abcdefg abcdefgh abcdefghi abcdefgh\x80 abcdefgz z \xc3\xa9");
}

TEST(Arr, FindsKeysOfEveryLengthByEveryPrefix)
{
    const std::string text(300, 'k');
    const ArrPtr arr(newarr(nullptr));
    for (size_t length = 0; length <= 300; length += 2)
        setarr(arr.get(), text.substr(0, length).c_str(), kX);
    for (size_t length = 0; length <= 300; ++length)
        EXPECT_EQ(getarr(arr.get(), text.substr(0, length).c_str()), length % 2 ? nullptr : kX)
            << length;
    EXPECT_EQ(cntarr(arr.get()), 151);
}

TEST(Arr, HoldsKeysOf1023And1024And100000Bytes)
{
    const ArrPtr arr(newarr(nullptr));
    for (size_t length : {1023U, 1024U, 100'000U, 99'999U})
        setarr(arr.get(), std::string(length, 'k').c_str(), kX);
    EXPECT_EQ(cntarr(arr.get()), 4);
    for (size_t length : {1023U, 1024U, 100'000U, 99'999U}) {
        EXPECT_EQ(getarr(arr.get(), std::string(length, 'k').c_str()), kX);
        EXPECT_EQ(getarr(arr.get(), (std::string(length - 1, 'k') + "j").c_str()), nullptr);
    }
}

TEST(Arr, AgreesWithAMapOverRandomChanges)
{
    std::mt19937 random(11);
    const ArrPtr arr(newarr(nullptr));
    std::map<std::string, void *> map;
    for (int step = 0; step < 40'000; ++step) {
        const std::string key(random() % 20, static_cast<char>('a' + random() % 3));
        const std::string name = key + std::to_string(random() % 30);
        void *value = step % 2 ? kX : kY;
        if (random() % 2) {
            ASSERT_EQ(setarr(arr.get(), name.c_str(), value), map[name]);
            map[name] = value;
        } else {
            const auto found = map.find(name);
            ASSERT_EQ(delarr(arr.get(), name.c_str()),
                      found == map.end() ? nullptr : found->second);
            map.erase(name);
        }
    }
    const TblPtr keys(keysarr(arr.get()));
    ASSERT_EQ(keys->count, static_cast<int64_t>(map.size()));
    int64_t i = 0;
    for (const auto &entry : map)
        EXPECT_EQ(static_cast<char *>(gettbl(keys.get(), i++)), entry.first);
}

// The bytes that all keys begin with are compared once, not with each key.

TEST(Arr, FindsKeysWhenOneThatHasLessInCommonComes)
{
    const char *const keys[] = {"gauge_north_12", "gauge_north_7",
                                "gauge_north_",   "gauge_south_1",
                                "gauge_",         "gauge",
                                "south",          "g",
                                "\xff",           ""};
    const ArrPtr arr(newarr(nullptr));
    std::map<std::string, void *> map;
    for (const char *key : keys) {
        SCOPED_TRACE(key);
        setarr(arr.get(), key, const_cast<char *>(key));
        map[key] = const_cast<char *>(key);
        for (const char *wanted : keys)
            EXPECT_EQ(getarr(arr.get(), wanted), map.count(wanted) ? map[wanted] : nullptr);
        std::string in_order;
        for (const auto &entry : map)
            in_order += (&entry == &*map.begin() ? "" : " ") + entry.first;
        EXPECT_EQ(joined(keysarr(arr.get())), in_order);
    }
    for (const char *key : keys)
        EXPECT_EQ(delarr(arr.get(), key), key);
    EXPECT_EQ(arr->root, rb_null);
    setarr(arr.get(), "gauge_south_2", kX);
    EXPECT_EQ(arr->common, 13);
    EXPECT_EQ(getarr(arr.get(), "gauge_south_2"), kX);
}

TEST(Arr, NeighboursOfAKeyThatBeginsOtherwise)
{
    const ArrPtr arr = arr_of({"gauge_north_1", "gauge_north_2", "gauge_south_1"});
    const struct {
        const char *given, *less, *greater;
    } cases[] = {
        {"", nullptr, "gauge_north_1"},
        {"gauge", nullptr, "gauge_north_1"},
        {"gauge_", nullptr, "gauge_north_1"},
        {"gauge_o", "gauge_north_2", "gauge_south_1"},
        {"gauge_north_1x", "gauge_north_1", "gauge_north_2"},
        {"h", "gauge_south_1", nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.given);
        EXPECT_STREQ(static_cast<char *>(rblookup(RB_LT, c.given, arr.get())), c.less);
        EXPECT_STREQ(static_cast<char *>(rblookup(RB_GE, c.given, arr.get())), c.greater);
        EXPECT_EQ(getarr(arr.get(), c.given), nullptr);
    }
}

TEST(Arr, KeepsTheTextOfTheLastOfEqualKeys)
{
    const ArrPtr arr(newarr(compare_caseless));
    EXPECT_EQ(setarr(arr.get(), "Key", kX), nullptr);
    setarr(arr.get(), "other", kZ);
    EXPECT_EQ(setarr(arr.get(), "KEY", kY), kX);
    EXPECT_EQ(getarr(arr.get(), "key"), kY);
    EXPECT_EQ(joined(keysarr(arr.get())), "KEY other");
    EXPECT_EQ(delarr(arr.get(), "kEy"), kY);
    EXPECT_EQ(joined(keysarr(arr.get())), "other");
}

TEST(Arr, ReplacingInAnotherSpellingStaysInTheNode)
{
    const ArrPtr arr(newarr(compare_caseless));
    setarr(arr.get(), "north", kX);
    const Rbnode *node = arr->root;
    EXPECT_EQ(setarr(arr.get(), "NORTH", kY), kX);
    EXPECT_EQ(arr->root, node);
    EXPECT_STREQ(static_cast<char *>(node->key), "NORTH");
    EXPECT_EQ(node->value, kY);
}

TEST(Arr, RemovedHoldsTheOldValueAndNoKeyThatTheArrayFreed)
{
    const ArrPtr arr(newarr(compare_caseless));
    setarr(arr.get(), "north", kX);
    for (const char *spelling : {"north", "NORTH"}) {
        SCOPED_TRACE(spelling);
        arr->removed = *rb_null;
        void *old = getarr(arr.get(), "north");
        setarr(arr.get(), spelling, kY);
        EXPECT_EQ(arr->removed.value, old);
        EXPECT_EQ(arr->removed.key, nullptr);
    }
    delarr(arr.get(), "north");
    EXPECT_EQ(arr->removed.value, kY);
    EXPECT_EQ(arr->removed.key, nullptr);
}

// Setting an entry used to replace its node, and the walk went on in freed memory.
TEST(Arr, WalkMaySetTheKeyThatItStandsAtInAnySpelling)
{
    const ArrPtr arr(newarr(compare_caseless));
    for (const char *name : {"d", "b", "f", "a", "c", "e", "g"})
        setarr(arr.get(), name, kX);
    const auto in_capitals = [](void *key, void *value, void *argument) {
        EXPECT_EQ(value, kX);
        const std::string capital(1, static_cast<char>(toupper(*static_cast<char *>(key))));
        EXPECT_EQ(setarr(static_cast<Arr *>(argument), capital.c_str(), kY), kX);
        return 0;
    };
    applyarr(arr.get(), in_capitals, arr.get());
    EXPECT_EQ(joined(keysarr(arr.get())), "A B C D E F G");
    EXPECT_EQ(joined(valsarr(arr.get())), "y y y y y y y");
}

TEST(Arr, WalkMayReplaceTheKeyThatItStandsAtByRbinsert)
{
    const ArrPtr arr = arr_of({"d", "b", "f", "a", "c", "e", "g"});
    const auto replace = [](void *key, void *, void *argument) {
        char *copy = strdup(static_cast<char *>(key));
        const Rbnode *removed = rbinsert(copy, kY, static_cast<Arr *>(argument));
        EXPECT_EQ(removed->key, key);
        free(removed->key);
        return 0;
    };
    rbtraverse(arr.get(), replace, arr.get());
    EXPECT_EQ(joined(keysarr(arr.get())), "a b c d e f g");
    EXPECT_EQ(joined(valsarr(arr.get())), "y y y y y y y");
}

// An array is a tree: entries that the tree's functions remove or insert.

TEST(Arr, KeyThatRbdeleteRemovesIsTheCallersToFree)
{
    const ArrPtr arr = arr_of({"a", "b", "c", "d", "e", "f", "g"});
    for (const char *key : {"d", "b", "f", "a"}) {
        const Rbnode *removed = rbdelete(key, arr.get());
        EXPECT_STREQ(static_cast<char *>(removed->key), key);
        EXPECT_STREQ(static_cast<char *>(removed->value), key);
        free(removed->key);
    }
    EXPECT_EQ(joined(keysarr(arr.get())), "c e g");
}

TEST(Arr, KeyThatRbinsertReplacesIsTheCallersToFree)
{
    const ArrPtr arr = arr_of({"a", "b", "c"});
    char *key = strdup("b");
    const Rbnode *removed = rbinsert(key, kX, arr.get());
    EXPECT_EQ(removed, &arr->removed);
    EXPECT_NE(removed->key, key);
    free(removed->key);
    EXPECT_EQ(getarr(arr.get(), "b"), kX);
    EXPECT_EQ(rbfind("b", arr.get()), key);
    EXPECT_EQ(setarr(arr.get(), "b", kY), kX);
    EXPECT_EQ(joined(keysarr(arr.get())), "a b c");
}

TEST(Arr, FreesKeysThatRbinsertPutIn)
{
    const ArrPtr arr(newarr(nullptr));
    rbinsert(strdup("b"), kX, arr.get());
    setarr(arr.get(), "a", kY);
    rbinsert(strdup("c"), kZ, arr.get());
    EXPECT_EQ(getarr(arr.get(), "b"), kX);
    EXPECT_EQ(getarr(arr.get(), "a"), kY);
    EXPECT_EQ(delarr(arr.get(), "c"), kZ);
}

TEST(Arr, KeysOutliveRbdestroy)
{
    Arr *arr = arr_of({"a", "b", "c"}).release();
    Tbl *keys = keysarr(arr);
    rbdestroy(arr);
    EXPECT_EQ(Text(jointbl(keys, " ")).get(), std::string("a b c"));
    freetbl(keys, free);
}

TEST(Arr, KeysMayBeFreedBeforeRbdestroy)
{
    Arr *arr = arr_of({"d", "b", "f", "a", "c", "e", "g"}).release();
    rbtraverse(
        arr, [](void *key, void *, void *) { return free(key), 0; }, nullptr);
    rbdestroy(arr);
    arr = arr_of({"b", "a", "c"}).release();
    freetbl(keysarr(arr), free);
    rbdestroy(arr);
}

TEST(Arr, KeysOfAParsedTreeAreStringsOfTheirOwn)
{
    Pf *pf = nullptr;
    ASSERT_EQ(
        pfcompile("north 12 mm\neast 3 mm\nsouth &Arr{\nlimit 40\n}\nlist &Tbl{\n1\n}\n", &pf), 0);
    Arr *arr = std::exchange(pf->value.arr, newarr(nullptr));
    Tbl *keys = keysarr(arr);
    freetbl(valsarr(arr), [](void *value) { pffree(static_cast<Pf *>(value)); });
    rbdestroy(arr);
    EXPECT_EQ(Text(jointbl(keys, " ")).get(), std::string("east list north south"));
    freetbl(keys, free);
    pffree(pf);
}

TEST(Arr, LooksUpNeighboursOfAString)
{
    const ArrPtr arr = arr_of({"ant", "bee", "cat"});
    EXPECT_STREQ(static_cast<char *>(rblookup(RB_GT, "b", arr.get())), "bee");
    EXPECT_STREQ(static_cast<char *>(rblookup(RB_LT, "bee", arr.get())), "ant");
    EXPECT_EQ(rblookup(RB_GT, "cat", arr.get()), nullptr);
}

// An array and a std::map that get the same random calls and must agree. Keys that are removed
// are freed, so that the address sanitizer notices one that is not a block of its own.
class Model {
public:
    explicit Model(unsigned seed, bool caseless)
        : random_(seed), caseless_(caseless), arr_(newarr(caseless ? compare_caseless : nullptr))
    {
    }

    void run(int steps)
    {
        using Step = void (Model::*)();
        constexpr Step kSteps[] = {&Model::set,        &Model::set,      &Model::insert,
                                   &Model::remove,     &Model::take_out, &Model::look_up,
                                   &Model::set_in_walk};
        for (int i = 0; i < steps && !testing::Test::HasFatalFailure(); ++i) {
            (this->*kSteps[below(i % 50 == 0 ? 7 : 6)])();
            if (i % 50 == 0)
                compare();
        }
        compare();
    }

    // Frees the array in one of the ways that a program may use.
    void finish()
    {
        Tbl *keys = nullptr;
        switch (below(3)) {
        case 0: freearr(arr_, nullptr); return;
        case 1: rbtraverse(arr_, free_key, nullptr); break;
        default: keys = keysarr(arr_);
        }
        rbdestroy(arr_);
        freetbl(keys, free);
    }

private:
    struct Entry {
        std::string text;
        void *value;
    };

    static int free_key(void *key, void *, void *) { return free(key), 0; }

    int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
    void *value() { return &values_[below(100)]; }

    std::string key()
    {
        static const char *const beginnings[] = {"gauge_north_", "gauge_n", "gauge_south_", "G",
                                                 ""};
        // Few keys begin differently, so that the others share many bytes for a long time.
        const int n = below(400);
        std::string key = beginnings[n < 390 ? 0 : n % 5] + std::to_string(below(150));
        if (caseless_)
            for (char &c : key)
                c = static_cast<char>(below(2) ? toupper(c) : c);
        return key;
    }

    std::string folded(std::string key) const
    {
        if (caseless_)
            for (char &c : key)
                c = static_cast<char>(tolower(c));
        return key;
    }

    void set()
    {
        const std::string name = key();
        void *const stored = value();
        Entry &entry = map_[folded(name)];
        ASSERT_EQ(setarr(arr_, name.c_str(), stored), entry.value);
        entry = {name, stored};
    }

    void insert()
    {
        const std::string name = key();
        char *const own = strdup(name.c_str());
        void *const stored = value();
        const bool there = map_.count(folded(name)) > 0;
        Entry &entry = map_[folded(name)];
        const Rbnode *node = rbinsert(own, stored, arr_);
        ASSERT_EQ(node == &arr_->removed, there);
        ASSERT_EQ(static_cast<char *>(node->key), there ? entry.text : name);
        ASSERT_EQ(node->value, there ? entry.value : stored);
        if (there)
            free(node->key);
        ASSERT_EQ(rbfind(name.c_str(), arr_), own);
        entry = {name, stored};
    }

    void remove()
    {
        const std::string name = key();
        const auto found = map_.find(folded(name));
        ASSERT_EQ(delarr(arr_, name.c_str()), found == map_.end() ? nullptr : found->second.value);
        map_.erase(folded(name));
    }

    void take_out()
    {
        const std::string name = key();
        const auto found = map_.find(folded(name));
        const Rbnode *removed = rbdelete(name.c_str(), arr_);
        ASSERT_EQ(removed != nullptr, found != map_.end());
        if (!removed)
            return;
        ASSERT_EQ(static_cast<char *>(removed->key), found->second.text);
        ASSERT_EQ(removed->value, found->second.value);
        free(removed->key);
        map_.erase(found);
    }

    void look_up()
    {
        const std::string name = key();
        const auto found = map_.find(folded(name));
        ASSERT_EQ(getarr(arr_, name.c_str()), found == map_.end() ? nullptr : found->second.value);
        const auto next = map_.lower_bound(folded(name));
        const char *const text = static_cast<char *>(rblookup(RB_GE, name.c_str(), arr_));
        if (next == map_.end())
            ASSERT_EQ(text, nullptr);
        else
            ASSERT_STREQ(text, next->second.text.c_str());
    }

    // Walks over the array and sets the current entry and another one.
    void set_in_walk()
    {
        const auto step = [](void *stored, void *stored_value, void *argument) {
            auto *model = static_cast<Model *>(argument);
            const std::string text = static_cast<char *>(stored);
            EXPECT_EQ(model->map_.at(model->folded(text)).value, stored_value);
            model->set_again(text);
            model->set_again(model->map_.begin()->second.text);
            return 0;
        };
        applyarr(arr_, step, this);
    }

    void set_again(const std::string &text)
    {
        const std::string spelling = caseless_ && below(2) ? folded(text) : text;
        void *const stored = value();
        Entry &entry = map_.at(folded(text));
        EXPECT_EQ(setarr(arr_, spelling.c_str(), stored), entry.value);
        entry = {spelling, stored};
    }

    void compare()
    {
        const TblPtr keys(keysarr(arr_));
        const TblPtr stored(valsarr(arr_));
        ASSERT_EQ(keys->count, static_cast<int64_t>(map_.size()));
        int64_t i = 0;
        for (const auto &[name, entry] : map_) {
            ASSERT_EQ(static_cast<char *>(gettbl(keys.get(), i)), entry.text);
            ASSERT_EQ(gettbl(stored.get(), i++), entry.value);
        }
    }

    std::mt19937 random_;
    bool caseless_;
    Arr *arr_;
    std::map<std::string, Entry> map_;
    char values_[100] = "";
};

TEST(ArrModel, AgreesWithAMapAndOwnsItsKeysWhateverIsDone)
{
    for (unsigned seed = 0; seed < 30; ++seed) {
        SCOPED_TRACE(seed);
        Model model(seed, seed % 2);
        model.run(3000);
        model.finish();
        if (testing::Test::HasFailure())
            return;
    }
}

// All entries together.

TEST(Arr, FreesEveryValueNullOnesToo)
{
    freed.clear();
    Arr *arr = newarr(nullptr);
    setarr(arr, "b", kX);
    setarr(arr, "a", nullptr);
    setarr(arr, "c", kY);
    EXPECT_EQ(freearr(arr, note_value), 0);
    EXPECT_EQ(freed, (std::vector<std::string>{"null", "y", "x"}));  // children first
    EXPECT_EQ(freearr(nullptr, note_value), 0);
}

TEST(Arr, AppliesInOrderAndGives0)
{
    const ArrPtr arr = arr_of({"b", "a", "c"});
    std::string seen;
    EXPECT_EQ(applyarr(
                  arr.get(),
                  [](void *key, void *value, void *argument) {
                      EXPECT_STREQ(static_cast<char *>(key), static_cast<char *>(value));
                      *static_cast<std::string *>(argument) += static_cast<char *>(key);
                      return 7;
                  },
                  &seen),
              0);
    EXPECT_EQ(seen, "abc");
}

TEST(Arr, WalkGivesTheLastResult)
{
    const ArrPtr arr = arr_of({"b", "a", "c"});
    const auto first_letter = [](void *key, void *, void *) {
        return int{*static_cast<char *>(key)};
    };
    EXPECT_EQ(arr_walk(arr->root, first_letter, nullptr), 'c');
    EXPECT_EQ(arr_walk(arr->root->left, first_letter, nullptr), 'a');
    EXPECT_EQ(arr_walk(rb_null, first_letter, nullptr), 0);
}

TEST(Duparr, CopiesKeysValuesAndComparison)
{
    const ArrPtr arr(newarr(compare_caseless));
    setarr(arr.get(), "b", kX);
    setarr(arr.get(), "A", kY);
    const ArrPtr dup(
        duparr(arr.get(), [](void *value) -> void * { return static_cast<char *>(value) + 1; }));
    EXPECT_EQ(dup->compare, compare_caseless);
    EXPECT_EQ(joined(keysarr(dup.get())), "A b");
    EXPECT_EQ(getarr(dup.get(), "a"), kY + 1);
    EXPECT_EQ(getarr(dup.get(), "B"), kX + 1);
    EXPECT_NE(rbfind("b", dup.get()), rbfind("b", arr.get()));
}

TEST(Duparr, CallsTheCopyFunctionWithNullValuesToo)
{
    const ArrPtr arr(newarr(nullptr));
    setarr(arr.get(), "a", nullptr);
    const ArrPtr dup(duparr(arr.get(), [](void *) -> void * { return kZ; }));
    EXPECT_EQ(getarr(dup.get(), "a"), kZ);
}

TEST(Duparr, WithoutACopyFunctionSharesTheValues)
{
    const ArrPtr arr(newarr(nullptr));
    setarr(arr.get(), "a", kX);
    const ArrPtr dup(duparr(arr.get(), nullptr));
    EXPECT_EQ(getarr(dup.get(), "a"), kX);
}

TEST(Greparr, GivesTheKeysThatThePatternMatchesWhole)
{
    const ArrPtr arr = arr_of({"abc", "xabc", "a", "b"});
    const TblPtr found(greparr("a.*", arr.get()));
    EXPECT_EQ(found->count, 2);
    EXPECT_EQ(gettbl(found.get(), 0), rbfind("a", arr.get()));
    EXPECT_EQ(gettbl(found.get(), 1), rbfind("abc", arr.get()));
}

TEST(Greparr, IsEmptyAndSilentWhenThePatternDoesNotCompile)
{
    elog_clear();
    const ArrPtr arr = arr_of({"(", "a"});
    EXPECT_EQ(TblPtr(greparr("(", arr.get()))->count, 0);
    EXPECT_EQ(TblPtr(greparr(nullptr, arr.get()))->count, 0);
    EXPECT_EQ(elog_mark(), 0);
}

TEST(Arrgrep, GivesTheKeysThatMatchTheWholeText)
{
    const ArrPtr arr = arr_of({"a.*", "b.*", "(", "ab", "[abc]+"});
    EXPECT_EQ(joined(arrgrep(arr.get(), "abc")), "[abc]+ a.*");
    EXPECT_EQ(TblPtr(arrgrep(arr.get(), nullptr))->count, 0);
}

TEST(Arr, NullArrayReadsAsAnEmptyOne)
{
    EXPECT_EQ(setarr(nullptr, "k", kX), nullptr);
    EXPECT_EQ(getarr(nullptr, "k"), nullptr);
    EXPECT_EQ(delarr(nullptr, "k"), nullptr);
    EXPECT_EQ(cntarr(nullptr), 0);
    EXPECT_EQ(TblPtr(keysarr(nullptr))->count, 0);
    EXPECT_EQ(TblPtr(valsarr(nullptr))->count, 0);
    EXPECT_EQ(applyarr(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(cntarr(ArrPtr(duparr(nullptr, nullptr)).get()), 0);
    EXPECT_EQ(TblPtr(greparr("a", nullptr))->count, 0);
    EXPECT_EQ(TblPtr(arrgrep(nullptr, "a"))->count, 0);
}

TEST(Arr, HoldsNoNullKey)
{
    const ArrPtr arr = arr_of({"a"});
    EXPECT_EQ(setarr(arr.get(), nullptr, kX), nullptr);
    EXPECT_EQ(getarr(arr.get(), nullptr), nullptr);
    EXPECT_EQ(delarr(arr.get(), nullptr), nullptr);
    EXPECT_EQ(cntarr(arr.get()), 1);
}

}  // namespace
