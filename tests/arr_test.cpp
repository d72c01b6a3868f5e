// The associative array: strings to pointers, in order.

#include "stock/arr.h"

#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <strings.h>

#include "stock/elog.h"
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

// An array is a tree: what the tree's functions take out or put in.

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

TEST(Arr, LooksUpNeighboursOfAString)
{
    const ArrPtr arr = arr_of({"ant", "bee", "cat"});
    EXPECT_STREQ(static_cast<char *>(rblookup(RB_GT, "b", arr.get())), "bee");
    EXPECT_STREQ(static_cast<char *>(rblookup(RB_LT, "bee", arr.get())), "ant");
    EXPECT_EQ(rblookup(RB_GT, "cat", arr.get()), nullptr);
}

// The whole array.

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
