// The C++ face: what it owns is freed once (the address sanitizer counts), its ranges
// are what the standard library takes for ranges, and the rest is what the plain
// functions give.

#include "stock.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <ranges>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child.h"
#include "support/logged.h"
#include "support/temp_dir.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_view_literals;
using std::chrono::sys_time;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Sample {
    int id;
    double value;
};

template <class T>
constexpr bool is_owner =
    std::movable<T> && !std::copy_constructible<T> && !std::is_copy_assignable_v<T> &&
    std::is_nothrow_move_constructible_v<T> && std::is_nothrow_move_assignable_v<T>;

char *owned(const char *string)
{
    return strdup(string);
}

// ---- text ----

static_assert(is_owner<stock::text>);
static_assert(sizeof(stock::text) == sizeof(char *));
static_assert(!std::convertible_to<char *, stock::text>);
static_assert(std::convertible_to<std::string, stock::zstring>);
static_assert(std::convertible_to<const char *, stock::zstring>);
static_assert(!std::convertible_to<std::string_view, stock::zstring>);
static_assert(!std::convertible_to<std::nullptr_t, stock::zstring>);

TEST(FaceText, owns_what_a_function_returned)
{
    const stock::text day(epoch2str("%G", 0));
    EXPECT_STREQ(day.c_str(), "1970-01-01");
    EXPECT_EQ(day, "1970-01-01");
    EXPECT_EQ(day.view().substr(0, 4), "1970");
    EXPECT_EQ(day.size(), 10U);
    EXPECT_LT(day, "1970-01-02"sv);
}

TEST(FaceText, reads_as_empty_without_a_string)
{
    const stock::text none(nullptr);
    EXPECT_FALSE(none);
    EXPECT_TRUE(none.empty());
    EXPECT_STREQ(none.c_str(), "");
}

TEST(FaceText, moves_and_is_given_up)
{
    stock::text a(owned("a"));
    stock::text b(std::move(a));
    EXPECT_TRUE(a.empty());  // NOLINT: what is moved from is promised to be empty
    stock::text &same = b;
    b = std::move(same);
    EXPECT_EQ(b, "a");
    b = stock::text(owned("b"));
    char *string = b.release();
    EXPECT_STREQ(string, "b");
    EXPECT_FALSE(b);
    free(string);
}

// ---- list ----

using Numbers = stock::list<int>;
using Words = stock::list<const char *>;
using OwnedWords = stock::list<char *, free>;

static_assert(is_owner<Numbers> && is_owner<OwnedWords>);
static_assert(sizeof(Numbers) == sizeof(Tbl *) && sizeof(OwnedWords) == sizeof(Tbl *));
static_assert(std::ranges::contiguous_range<Numbers> && std::ranges::sized_range<Numbers>);
static_assert(std::ranges::random_access_range<Words> && std::ranges::common_range<Words>);
static_assert(std::ranges::random_access_range<const OwnedWords>);
static_assert(std::sortable<std::ranges::iterator_t<Numbers>>);
static_assert(!std::indirectly_writable<std::ranges::iterator_t<const Numbers>, int>);
static_assert(std::same_as<decltype(std::declval<const Numbers &>()[0]), const int &>);
static_assert(std::same_as<decltype(std::declval<Words &>()[0]), const char *&>);

template <class List>
constexpr bool can_copy = requires(const List &list)
{
    list.copy();
};
template <class List>
constexpr bool can_append = requires(List &list, const List &other)
{
    list.append(other);
};
template <class List>
constexpr bool can_join = requires(const List &list)
{
    list.join(", ");
};
template <class List>
constexpr bool can_push = requires(List &list, typename List::value_type entry)
{
    list.push_back(entry);
};
static_assert(can_copy<Words> && !can_copy<OwnedWords>);
static_assert(can_append<Numbers> && !can_append<OwnedWords>);
static_assert(can_join<Words> && can_join<OwnedWords> && !can_join<Numbers>);
static_assert(can_push<Numbers> && !can_push<const Numbers>);

TEST(FaceList, is_a_range_of_records)
{
    Numbers numbers;
    for (const int n : {3, 1, 2})
        numbers.push_back(n);
    numbers.push_front(4);
    EXPECT_THAT(numbers, ElementsAre(4, 3, 1, 2));
    std::ranges::sort(numbers);
    EXPECT_THAT(numbers, ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(std::ranges::find(numbers, 3) - numbers.begin(), 2);
    EXPECT_EQ(std::accumulate(numbers.begin(), numbers.end(), 0), 10);
    for (int &n : numbers)
        n *= 2;
    std::vector<int> copied;
    std::ranges::copy(std::as_const(numbers), std::back_inserter(copied));
    EXPECT_THAT(copied, ElementsAre(2, 4, 6, 8));
    EXPECT_EQ(std::span<const int>(numbers).subspan(1).front(), 4);
    EXPECT_EQ(numbers.tbl()->direct, 1U);
}

TEST(FaceList, is_a_range_of_pointers)
{
    char line[] = "the quick  brown fox";
    stock::list<char *> words(split(line, ' '));
    const auto view = [](const char *word) { return std::string_view(word); };
    std::ranges::sort(words, std::less{}, view);
    EXPECT_EQ(words.join(" "), "brown fox quick the");
    EXPECT_TRUE(std::ranges::binary_search(words, "quick"sv, std::less{}, view));
    words[0] = line;
    EXPECT_STREQ(words.at(0), "the");
    std::ranges::reverse(words);
    EXPECT_STREQ(words.pop_back(), "the");
    EXPECT_EQ(words.size(), 3U);
}

TEST(FaceList, reads_outside_as_the_plain_functions_do)
{
    Words words;
    EXPECT_EQ(words.at(0), nullptr);
    EXPECT_EQ(words.pop_front(), nullptr);
    auto samples = stock::list<Sample>::with_null_value({-1, 0.5});
    samples.set(2, {7, 1});
    ASSERT_EQ(samples.size(), 3U);
    EXPECT_EQ(samples[0].id, -1);
    EXPECT_EQ(samples.at(99)->value, 0.5);
    EXPECT_EQ(samples.take(2)->id, 7);
    EXPECT_EQ(Numbers().at(0), nullptr);
}

TEST(FaceList, inserts_takes_and_truncates)
{
    Words words;
    words.push_back("a");
    words.push_back("c");
    EXPECT_EQ(words.insert(1, "b"), 1);
    EXPECT_EQ(words.join(""), "abc");
    EXPECT_STREQ(words.take(0), "a");
    words.truncate(1);
    EXPECT_EQ(words.join(""), "b");
    words.clear();
    EXPECT_TRUE(words.empty());
    EXPECT_EQ(words.begin(), words.end());
}

TEST(FaceList, frees_the_entries_that_it_holds)
{
    OwnedWords words;
    for (const char *word : {"a", "b", "c", "d", "e"})
        words.push_back(owned(word));
    words.truncate(4);
    const stock::text last(words.pop_back());
    const stock::text first(words.take(0));
    EXPECT_EQ(words.join(first), "bac");
    words = OwnedWords();
    words.push_back(owned("z"));
    EXPECT_EQ(words.size(), 1U);
}

TEST(FaceList, frees_what_records_own)
{
    const TempDir dir;
    dir.file("x.pf", "a 1\n");
    setenv("PFPATH", dir.path().c_str(), 1);
    const stock::list<Pftime, pffree_time> times(pftimes("x"));
    ASSERT_EQ(times.size(), 1U);
    EXPECT_THAT(times[0].path, HasSubstr("x.pf"));
}

int Freed = 0;
void count_sample(Sample *sample)
{
    Freed += sample->id;
}

TEST(FaceList, calls_a_typed_free_function)
{
    {
        stock::list<Sample, count_sample> direct;
        direct.push_back({1, 0});
        direct.push_back({2, 0});
        Sample sample{40, 0};
        stock::list<Sample *, count_sample> indirect;
        indirect.push_back(&sample);
    }
    EXPECT_EQ(Freed, 43);
}

TEST(FaceList, moves)
{
    Numbers a;
    a.push_back(1);
    Numbers b(std::move(a));
    EXPECT_FALSE(a);  // NOLINT: what is moved from is promised to be empty
    EXPECT_TRUE(a.empty());
    EXPECT_THAT(a, IsEmpty());
    Numbers &same = b;
    b = std::move(same);
    EXPECT_THAT(b, ElementsAre(1));
    a = std::move(b);
    EXPECT_THAT(a, ElementsAre(1));
    std::swap(a, b);
    EXPECT_THAT(b, ElementsAre(1));
    Tbl *tbl = b.release();
    EXPECT_EQ(tbl->count, 1);
    freetbl(tbl, nullptr);
}

TEST(FaceList, without_a_tbl_reads_as_empty)
{
    const Words none(nullptr);
    EXPECT_EQ(none.size(), 0U);
    EXPECT_EQ(none.begin(), none.end());
    EXPECT_EQ(none.at(0), nullptr);
    EXPECT_EQ(Numbers(nullptr).at(-1), nullptr);
    EXPECT_EQ(none.join(", "), "");
    Words copy = none.copy();
    copy.push_back("a");
    EXPECT_EQ(copy.size(), 1U);
    Words words;
    words.push_back("a");
    EXPECT_EQ(words.append(none), 0);
    EXPECT_THAT(words, ElementsAre(testing::StrEq("a")));
}

TEST(FaceList, can_be_used_after_it_was_moved_from_released_or_made_of_null)
{
    const std::function<Numbers()> without_a_tbl[] = {
        [] { return Numbers(nullptr); },
        [] {
            Numbers a;
            Numbers b(std::move(a));
            return a;  // NOLINT: what is moved from may be used
        },
        [] {
            Numbers a;
            freetbl(a.release(), nullptr);
            return a;
        },
    };
    const struct {
        const char *name;
        void (*use)(Numbers &list);
        std::vector<int> after;
    } cases[] = {
        {"clear", [](Numbers &list) { list.clear(); }, {}},
        {"truncate", [](Numbers &list) { list.truncate(1); }, {}},
        {"push_back", [](Numbers &list) { list.push_back(1); }, {1}},
        {"push_front", [](Numbers &list) { list.push_front(1); }, {1}},
        {"set", [](Numbers &list) { EXPECT_EQ(list.set(0, 1), 0); }, {1}},
        {"insert", [](Numbers &list) { EXPECT_EQ(list.insert(0, 1), 0); }, {1}},
        {"append",
         [](Numbers &list) {
             Numbers source;
             source.push_back(7);
             EXPECT_EQ(list.append(source), 0);
         },
         {7}},
        {"pop_back", [](Numbers &list) { EXPECT_EQ(list.pop_back(), nullptr); }, {}},
        {"pop_front", [](Numbers &list) { EXPECT_EQ(list.pop_front(), nullptr); }, {}},
        {"take", [](Numbers &list) { EXPECT_EQ(list.take(0), nullptr); }, {}},
        {"tbl",
         [](Numbers &list) {
             const int one = 1;
             pushtbl(list.tbl(), &one);
         },
         {1}},
        {"copy", [](Numbers &list) { EXPECT_TRUE(list.copy().empty()); }, {}},
    };
    for (const auto &without : without_a_tbl)
        for (const auto &c : cases) {
            SCOPED_TRACE(c.name);
            Numbers list = without();
            EXPECT_FALSE(list);
            c.use(list);
            EXPECT_THAT(list, testing::ElementsAreArray(c.after));
        }
    EXPECT_EQ(Words(nullptr).pop_back(), nullptr);
}

TEST(FaceList, copies_where_that_is_said)
{
    Numbers a;
    a.push_back(1);
    Numbers b = a.copy();
    b[0] = 2;
    EXPECT_EQ(a.append(b), 0);
    EXPECT_THAT(a, ElementsAre(1, 2));
}

// ---- array ----

using Ages = stock::array<int *>;
using OwnedValues = stock::array<char *, free>;

static_assert(is_owner<Ages> && is_owner<OwnedValues>);
static_assert(sizeof(Ages) == sizeof(Arr *));
static_assert(std::ranges::bidirectional_range<Ages> && std::ranges::common_range<Ages>);
static_assert(std::ranges::bidirectional_range<const OwnedValues>);
static_assert(!std::ranges::sized_range<Ages>, "counting is no constant time");
static_assert(!can_copy<OwnedValues> && can_copy<Ages>);
template <class Array>
constexpr bool can_set = requires(Array &array)
{
    array.set("a", nullptr);
};
static_assert(can_set<Ages> && !can_set<const Ages>);

TEST(FaceArray, is_walked_in_the_order_of_its_keys)
{
    int ages[] = {30, 10, 20};
    Ages array;
    array.set("c", &ages[0]);
    array.set("a", &ages[1]);
    array.set(std::string("b"), &ages[2]);
    std::string walked;
    for (const auto [key, age] : array)
        walked += key + std::to_string(*age) + " ";
    EXPECT_EQ(walked, "a10 b20 c30 ");
    std::string applied;
    array.apply(
        [&](const char *key, const int *age) { applied += key + std::to_string(*age) + " "; });
    EXPECT_EQ(applied, walked);
    const auto found = std::ranges::find(array, 20, [](const auto &entry) { return *entry.value; });
    ASSERT_NE(found, array.end());
    EXPECT_STREQ(found->key, "b");
    EXPECT_STREQ(std::ranges::prev(array.end())->key, "c");
    EXPECT_EQ(std::ranges::distance(array), 3);
    EXPECT_EQ(std::ranges::count_if(array, [](const auto &entry) { return *entry.value > 15; }), 2);
}

// Every step of every shape of tree: as many keys as chance gives, forth and back.
TEST(FaceArray, walks_trees_of_every_size_forth_and_back)
{
    std::mt19937 random(7);
    for (int size = 0; size < 60; ++size) {
        Ages array;
        std::vector<std::string> want;
        for (int i = 0; i < size; ++i) {
            const std::string key = std::to_string(random() % 1000);
            array.set(key, nullptr);
            want.push_back(key);
        }
        std::ranges::sort(want);
        want.erase(std::unique(want.begin(), want.end()), want.end());
        std::vector<std::string> forth;
        for (auto i = array.begin(); i != array.end(); i++)
            forth.emplace_back(i->key);
        std::vector<std::string> back;
        for (auto i = array.end(); i != array.begin();) {
            i--;
            back.emplace_back((*i).key);
        }
        EXPECT_EQ(forth, want);
        std::ranges::reverse(back);
        EXPECT_EQ(back, want);
        EXPECT_EQ(array.count(), static_cast<int64_t>(want.size()));
    }
}

TEST(FaceArray, stores_takes_and_erases)
{
    int one = 1;
    int two = 2;
    Ages array;
    EXPECT_TRUE(array.empty());
    EXPECT_EQ(array.set("a", &one), nullptr);
    EXPECT_EQ(array.set("a", &two), &one);
    EXPECT_EQ(array.get("a"), &two);
    EXPECT_EQ(array.get("b"), nullptr);
    array.set("nothing", nullptr);
    EXPECT_TRUE(array.contains("nothing"));
    EXPECT_FALSE(array.contains("b"));
    EXPECT_EQ(array.take("a"), &two);
    EXPECT_EQ(array.count(), 1);
    array.erase("nothing");
    EXPECT_TRUE(array.empty());
    EXPECT_FALSE(array.arr() == nullptr);
}

TEST(FaceArray, frees_the_values_that_it_holds)
{
    OwnedValues array;
    array.set("a", owned("1"));
    array.set("b", owned("2"));
    array.set("c", owned("3"));
    const stock::text replaced(array.set("a", owned("11")));
    EXPECT_EQ(replaced, "1");
    array.erase("b");
    array.erase("b");
    const stock::text taken(array.take("c"));
    EXPECT_EQ(taken, "3");
    EXPECT_THAT(array.keys(), ElementsAre(testing::StrEq("a")));
    EXPECT_THAT(array.values(), ElementsAre(testing::StrEq("11")));
}

TEST(FaceArray, can_be_used_after_it_was_moved_from_released_or_made_of_null)
{
    int one = 1;
    Ages moved;
    const Ages kept(std::move(moved));
    Ages released;
    freearr(released.release(), nullptr);
    Ages null(nullptr);
    for (Ages *ages : {&moved, &released, &null}) {
        EXPECT_FALSE(*ages);
        EXPECT_EQ(ages->take("a"), nullptr);
        ages->erase("a");
        EXPECT_FALSE(ages->contains("a"));
        EXPECT_EQ(ages->count(), 0);
        EXPECT_TRUE(ages->keys().empty() && ages->values().empty() && ages->copy().empty());
        ages->apply([](const char *, int *) { ADD_FAILURE(); });
        EXPECT_EQ(ages->set("a", &one), nullptr);
        EXPECT_EQ(ages->get("a"), &one);
        const Ages emptied(std::move(*ages));
        setarr(ages->arr(), "b", &one);
        EXPECT_EQ(ages->count(), 1);
    }
}

TEST(FaceArray, erases_a_null_value_through_its_free_function_too)
{
    static int calls;
    calls = 0;
    stock::array<int *, [](int *value) { calls += value == nullptr; }> array;
    array.set("dry", nullptr);
    array.erase("wet");
    EXPECT_EQ(calls, 0);
    array.erase("dry");
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(array.empty());
}

TEST(FaceArray, may_be_set_in_a_walk)
{
    int one = 1;
    int two = 2;
    Ages array;
    for (const char *key : {"d", "b", "f", "a", "c", "e", "g"})
        array.set(key, &one);
    std::string walked;
    for (const auto [key, value] : array) {
        EXPECT_EQ(array.set(key, &two), &one);
        walked += key;
    }
    EXPECT_EQ(walked, "abcdefg");
    for (const auto [key, value] : array)
        EXPECT_EQ(value, &two) << key;
}

TEST(FaceArray, moves_and_copies_where_that_is_said)
{
    int one = 1;
    Ages a;
    a.set("a", &one);
    Ages b(std::move(a));
    EXPECT_TRUE(a.empty());  // NOLINT: what is moved from is promised to be empty
    EXPECT_EQ(a.begin(), a.end());
    Ages &same = b;
    b = std::move(same);
    const Ages c = b.copy();
    EXPECT_EQ(c.get("a"), &one);
    Arr *arr = b.release();
    EXPECT_EQ(cntarr(arr), 1);
    freearr(arr, nullptr);
    stock::array<const char *> constants;
    constants.set("k", "v");
    EXPECT_STREQ(constants.begin()->value, "v");
}

// ---- params ----

using stock::params;
using stock::params_list;
using stock::params_view;

static_assert(is_owner<params>);
static_assert(std::convertible_to<const params &, params_view>);
static_assert(std::is_trivially_copyable_v<params_view>);
static_assert(std::ranges::random_access_range<params_list<>>);
static_assert(std::ranges::random_access_range<params_list<int>> &&
              std::ranges::sized_range<params_list<int>>);
static_assert(std::ranges::borrowed_range<params_list<int>>);
static_assert(stock::parameter<int> && stock::parameter<unsigned> && stock::parameter<float>);
static_assert(stock::parameter<sys_time<std::chrono::milliseconds>>);
static_assert(!stock::parameter<char> && !stock::parameter<char *> && !stock::parameter<void *>);
static_assert(!stock::parameter<std::vector<int>> && !stock::parameter<params>);

constexpr std::string_view kSettings = R"(
interval   10
ratio      2.5
on         yes
since      2008-02-01 12:30:15.5
name       north
size       4k
words      no number
a &Arr{
    b      7
    c &Arr{
        d  deep
    }
}
ports &Tbl{
    80
    0x50
    8080
}
tables &Tbl{
    &Arr{
        n 1
    }
    &Arr{
        n 2
    }
}
)";

params settings()
{
    params tree;
    EXPECT_EQ(tree.compile(kSettings), 0);
    return tree;
}

TEST(FaceParams, compiles_an_empty_text_to_an_empty_tree)
{
    params tree;
    EXPECT_EQ(tree.compile({}), 0);
    EXPECT_TRUE(tree);
    EXPECT_TRUE(tree.keys().empty());
    EXPECT_EQ(tree.compile("a 1\0b 2\n"sv), 0);
    EXPECT_EQ(tree.str(), "a\t1\n");
    EXPECT_EQ(take_log(), "");
}

TEST(FaceParams, gives_values_by_type)
{
    const params tree = settings();
    EXPECT_EQ(tree.get<int>("interval"), 10);
    EXPECT_EQ(tree.get<unsigned long>(std::string("a{b}")), 7U);
    EXPECT_EQ(tree.get<double>("ratio"), 2.5);
    EXPECT_EQ(tree.get<float>("ratio"), 2.5F);
    EXPECT_TRUE(tree.get<bool>("on"));
    EXPECT_EQ(tree.get<std::string_view>("name"), "north");
    EXPECT_STREQ(tree.get<const char *>("name"), "north");
    EXPECT_EQ(tree.get<std::string>("a{c}{d}"), "deep");
    EXPECT_EQ(tree.get<sys_time<std::chrono::milliseconds>>("since").time_since_epoch(),
              1201869015500ms);
    EXPECT_EQ(tree.get_size("size"), 4000);
    EXPECT_EQ(take_log(), "");
}

TEST(FaceParams, gives_the_default_of_what_is_missing_without_a_message)
{
    const params tree = settings();
    EXPECT_EQ(tree.get<int>("a{b}", 5), 7);
    EXPECT_EQ(tree.get<int>("a{x}", 5), 5);
    EXPECT_EQ(tree.get<int>("x{y}[2]", 5), 5);
    EXPECT_EQ(tree.get<double>("x", 0.5), 0.5);
    EXPECT_TRUE(tree.get<bool>("x", true));
    EXPECT_FALSE(tree.get<bool>("x"));
    EXPECT_EQ(tree.get<std::string_view>("x", "none"), "none");
    EXPECT_EQ(tree.get<std::string_view>("x"), "");
    EXPECT_EQ(tree.get<const char *>("x"), nullptr);
    EXPECT_EQ(tree.get<sys_time<std::chrono::seconds>>("x", {}).time_since_epoch(), 0s);
    EXPECT_FALSE(tree.get<params_view>("x", {}));
    EXPECT_TRUE(tree.get<params_list<>>("x", {}).empty());
    EXPECT_EQ(take_log(), "");
}

// Trees that hold nothing, by how they came to that.
std::vector<params> empty_trees()
{
    std::vector<params> trees(3);
    const params moved(std::move(trees[1]));
    trees.emplace_back(nullptr);
    pffree(trees[2].release());
    return trees;
}

TEST(FaceParams, without_a_tree_is_an_empty_tree)
{
    for (params &tree : empty_trees()) {
        EXPECT_EQ(tree.get<int>("a", 3), 3);
        EXPECT_TRUE(tree.keys().empty());
        EXPECT_FALSE(tree.contains("a"));
        EXPECT_EQ(tree.str(), "");
        EXPECT_EQ(tree.copy().set("a", "1"), 0);
        EXPECT_NE(params_view(tree).pf(), nullptr);
    }
    for (params &tree : empty_trees()) {
        EXPECT_EQ(tree.set("a{b}", "1"), 0);
        EXPECT_EQ(tree.get<int>("a{b}"), 1);
    }
    for (params &tree : empty_trees()) {
        EXPECT_EQ(tree.compile("a 1\n"), 0);
        EXPECT_EQ(tree.get<int>("a"), 1);
    }
    for (params &tree : empty_trees()) {
        EXPECT_EQ(pfset(tree.pf(), "a", "1"), 0);
        EXPECT_EQ(tree.get<int>("a"), 1);
    }
    EXPECT_EQ(take_log(), "");
}

TEST(FaceParams, without_a_tree_a_number_that_is_needed_goes_to_the_die_function)
{
    for (std::size_t i = 0; i < empty_trees().size(); ++i) {
        SCOPED_TRACE(i);
        const auto missing = in_child([=] { empty_trees()[i].get<int>("a"); });
        EXPECT_EQ(missing.status, 1);
        EXPECT_THAT(missing.err, HasSubstr("program needs value for 'a'"));
    }
}

TEST(FaceParams, without_a_table_everything_is_missing)
{
    EXPECT_EQ(params_view().get<std::string_view>("a"), "");
    EXPECT_EQ(params_view().get<int>("a"), 0);
    EXPECT_EQ(take_log(), "");
}

// Fallbacks: what is a T, or becomes one that means the same.

template <class T, class F>
constexpr bool takes_fallback = requires(const params &tree, F &&fallback)
{
    tree.get<T>("a", std::forward<F>(fallback));
};

static_assert(takes_fallback<bool, bool> && takes_fallback<int, int> &&
              takes_fallback<int, short> && takes_fallback<int, const int &> &&
              takes_fallback<long, int> && takes_fallback<long, unsigned> &&
              takes_fallback<unsigned, unsigned short> && takes_fallback<double, int> &&
              takes_fallback<double, float>);
static_assert(!takes_fallback<bool, const char (&)[3]> && !takes_fallback<bool, int> &&
              !takes_fallback<int, bool> && !takes_fallback<int, long> &&
              !takes_fallback<int, unsigned> && !takes_fallback<int, double> &&
              !takes_fallback<int, char> && !takes_fallback<unsigned, int> &&
              !takes_fallback<double, long> && !takes_fallback<float, int> &&
              !takes_fallback<float, double>);
static_assert(takes_fallback<std::string_view, const char (&)[3]> &&
              takes_fallback<std::string_view, const char *> &&
              takes_fallback<std::string_view, std::string_view> &&
              takes_fallback<std::string_view, const std::string &> &&
              takes_fallback<std::string_view, stock::text &>);
static_assert(!takes_fallback<std::string_view, std::string> &&
              !takes_fallback<std::string_view, const std::string> &&
              !takes_fallback<std::string_view, stock::text> &&
              !takes_fallback<std::string_view, std::nullptr_t>);
static_assert(takes_fallback<std::string, const char *> &&
              takes_fallback<std::string, std::string>);
static_assert(!takes_fallback<std::string, std::nullptr_t>);
static_assert(takes_fallback<const char *, std::nullptr_t> &&
              takes_fallback<const char *, const char (&)[3]> &&
              !takes_fallback<const char *, std::string>);
static_assert(takes_fallback<params_view, params &> && !takes_fallback<params_view, params>);
static_assert(takes_fallback<sys_time<std::chrono::seconds>, sys_time<std::chrono::days>> &&
              !takes_fallback<sys_time<std::chrono::days>, sys_time<std::chrono::seconds>>);

TEST(FaceParams, complains_about_integers_that_the_type_does_not_hold)
{
    params tree;
    ASSERT_EQ(tree.compile("big 3000000000\nnegative -1\nshort 32768\nlist &Tbl{\n 65536\n}\n"
                           "least -2147483648\nmost 0xffffffff\nrun &exec(echo 40000)\n"),
              0);
    EXPECT_EQ(tree.get<long>("big"), 3000000000);
    EXPECT_EQ(tree.get<int>("least"), std::numeric_limits<int>::min());
    EXPECT_EQ(tree.get<unsigned>("most"), std::numeric_limits<unsigned>::max());
    EXPECT_EQ(tree.get<long>("negative"), -1);
    EXPECT_EQ(take_log(), "");

    const auto said = [](auto get) {
        const Ended ended = in_child([&] { printf("%lld", static_cast<long long>(get())); });
        return ended.out + ": " + ended.err.substr(ended.err.find("Integer"));
    };
    EXPECT_EQ(said([&] { return tree.get<int>("big"); }),
              "2147483647: Integer value 3000000000 for big is out of range "
              "-2147483648 to 2147483647\n");
    EXPECT_EQ(said([&] { return tree.get<int>("big", 5); }),
              said([&] { return tree.get<int>("big"); }));
    EXPECT_EQ(said([&] { return tree.get<short>("short"); }),
              "32767: Integer value 32768 for short is out of range -32768 to 32767\n");
    EXPECT_EQ(said([&] { return tree.get<std::uint64_t>("negative"); }),
              "0: Integer value -1 for negative is out of range 0 to 9223372036854775807\n");
    EXPECT_EQ(said([&] { return tree.get<params_list<unsigned short>>("list")[0]; }),
              "65535: Integer value 65536 for #0 is out of range 0 to 65535\n");
    EXPECT_EQ(said([&] { return tree.get<short>("run", short{1}); }),
              "32767: Integer value 40000 for <null> is out of range -32768 to 32767\n");
}

TEST(FaceParams, says_what_the_plain_functions_say)
{
    const auto missing = in_child([] { settings().get<int>("x"); });
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.err, HasSubstr("program needs value for 'x'"));
    const auto wrong = in_child([] { settings().get<int>("ports", 5); });
    EXPECT_EQ(wrong.status, 1);
    EXPECT_THAT(wrong.err,
                HasSubstr("wrong parameter type for 'ports' : expected scalar but got table"));
    const auto no_list = in_child([] { settings().get<params_list<>>("a"); });
    EXPECT_THAT(no_list.err, HasSubstr("expected table but got array"));
    const auto bad = in_child([] { settings().get<int>("words", 5); });
    EXPECT_EQ(bad.status, 0);
    EXPECT_THAT(bad.err, HasSubstr("Bad integer value 'no number' for words"));
}

TEST(FaceParams, shows_tables_and_lists_without_owning_them)
{
    const params tree = settings();
    const auto a = tree.get<params_view>("a");
    EXPECT_EQ(a.get<int>("b"), 7);
    EXPECT_EQ(a.get<params_view>("c").get<std::string_view>("d"), "deep");
    EXPECT_THAT(a.keys(), ElementsAre(testing::StrEq("b"), testing::StrEq("c")));
    const auto ports = tree.get<params_list<int>>("ports");
    EXPECT_EQ(ports.size(), 3U);
    EXPECT_EQ(ports[2], 8080);
    EXPECT_THAT(std::vector<int>(ports.begin(), ports.end()), ElementsAre(80, 80, 8080));
    EXPECT_EQ(std::ranges::find(ports, 8080) - ports.begin(), 2);
    EXPECT_EQ(std::ranges::max(ports), 8080);
    EXPECT_EQ(*std::ranges::lower_bound(ports, 100), 8080);
    std::string texts;
    for (const std::string_view port : tree.get<params_list<>>("ports"))
        texts += port;
    EXPECT_EQ(texts, "800x508080");
    int sum = 0;
    for (const params_view table : tree.get<params_list<params_view>>("tables"))
        sum += table.get<int>("n");
    EXPECT_EQ(sum, 3);
    EXPECT_EQ(tree.get<int>("tables[1]{n}", 0), 2);
    EXPECT_TRUE(tree.contains("tables[1]"));
    EXPECT_FALSE(tree.contains("tables[2]"));
    EXPECT_FALSE(tree.get<params_list<params_view>>("ports")[0]) << "a text is no table";
}

TEST(FaceParams, evaluates_a_function_once)
{
    const BlanklessDir dir;
    const std::string count = dir.path() + "/count";
    params tree;
    ASSERT_EQ(
        tree.compile("n &exec(echo x >>" + count + "; echo 5)\n" + "g &glob(" + count + ")\n"), 0);
    EXPECT_EQ(tree.get<int>("n", 3), 5);
    EXPECT_EQ(read_file(count), "x\n");
    const auto files = tree.get<params_list<>>("g", {});
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0], count);
}

TEST(FaceParams, reads_files_and_writes_them)
{
    const TempDir dir;
    dir.file("x.pf", "a 1\n");
    setenv("PFPATH", dir.path().c_str(), 1);
    params tree;
    EXPECT_EQ(tree.read("x"), 0);
    EXPECT_EQ(tree.set("b{c}", "2"), 0);
    EXPECT_EQ(tree.get<int>("b{c}"), 2);
    EXPECT_EQ(tree.write(dir.path() + "/y.pf"), 0);
    EXPECT_EQ(tree.read("y"), 0);
    EXPECT_EQ(tree.str(), "a\t1\nb\t&Arr{\nc\t2\n}\n");
    EXPECT_NE(tree.read("nosuch"), 0);
    EXPECT_FALSE(tree.contains("a"));
    elog_clear();
}

TEST(FaceParams, keeps_the_name_that_it_was_read_by)
{
    const TempDir dir;
    const std::string name = "a name that is longer than any string keeps in itself";
    dir.file(name + ".pf", "a 1\n");
    setenv("PFPATH", dir.path().c_str(), 1);
    params tree;
    ASSERT_EQ(tree.read(std::string(name).c_str()), 0);
    EXPECT_EQ(tree.pf()->filename, name);
    params moved(std::move(tree));
    EXPECT_EQ(moved.pf()->filename, name);
    EXPECT_EQ(moved.read(moved.pf()->filename), 0);
    EXPECT_EQ(moved.pf()->filename, name);
    const auto missing = in_child([&] { moved.get<int>("missing"); });
    EXPECT_THAT(missing.err, HasSubstr("not found in parameter file '" + name + "'"));
    Pf *released = moved.release();
    EXPECT_EQ(released->filename, nullptr);
    pffree(released);
    pfread("other", &released);
    params taken(released);
    EXPECT_STREQ(std::exchange(released, taken.release())->filename, "other");
    pffree(released);
    elog_clear();
}

TEST(FaceParams, tells_where_a_value_is_written)
{
    const TempDir dir;
    dir.file("rain.pf", "north 12.5\nlimits &Arr{\n heavy 30\n}\n");
    setenv("PFPATH", dir.path().c_str(), 1);
    params tree;
    EXPECT_FALSE(tree.where("north"));
    ASSERT_EQ(tree.read("rain"), 0);
    const auto place = tree.where("limits{heavy}");
    ASSERT_TRUE(place);
    EXPECT_EQ(place->path, dir / "rain.pf");
    EXPECT_EQ(place->line, 3);
    EXPECT_FALSE(tree.where("south"));
    elog_clear();
}

TEST(FaceParams, moves_and_copies_where_that_is_said)
{
    params a = settings();
    params b(std::move(a));
    EXPECT_FALSE(a);  // NOLINT: what is moved from is promised to be empty
    static_assert(std::same_as<decltype(std::as_const(a).pf()), const Pf *>);
    params &same = b;
    b = std::move(same);
    params c = b.copy();
    EXPECT_EQ(c.set("interval", "11"), 0);
    EXPECT_EQ(b.get<int>("interval"), 10);
    Pf *pf = c.release();
    EXPECT_EQ(pfget_int(pf, "interval"), 11);
    pffree(pf);
}

// ---- report ----

namespace report = stock::report;

// What is checked while compiling, by the function that does it.
template <class... Args>
constexpr bool accepts(std::string_view format)
{
    return report::detail::check<Args...>(format) == report::detail::fault::none;
}

static_assert(accepts<>("100%% sure") && !accepts<>("%d") && !accepts<>("%") &&
              !accepts<int>("none"));
static_assert(accepts<int, unsigned, long, std::size_t>("%d %u %ld %zu"));
static_assert(accepts<short, unsigned char, bool, char>("%d %d %d %c"));
static_assert(accepts<int>("%-+5d") && accepts<int>("%05.3d") && accepts<int>("%hhx"));
static_assert(!accepts<long>("%d") && !accepts<int>("%ld") && !accepts<unsigned>("%d"));
static_assert(!accepts<int, int>("%d") && !accepts<int>("%d %d"));
static_assert(accepts<double>("%10.6f") && accepts<float>("%g") && accepts<long double>("%Lg"));
static_assert(!accepts<int>("%f") && !accepts<double>("%d") && !accepts<double>("%Lf"));
static_assert(accepts<const char *>("%s") && accepts<char[6]>("%s") && accepts<std::string>("%s"));
static_assert(accepts<stock::text>("%s") && accepts<char *>("%-10.3s"));
static_assert(!accepts<int>("%s") && !accepts<const char *>("%d") && !accepts<const int *>("%s"));
static_assert(accepts<std::string_view>("%.*s") && accepts<std::string_view, int>("%-.*s %d"));
static_assert(accepts<int, std::string_view>("%*.*s") && !accepts<std::string_view>("%*.*s"));
static_assert(!accepts<std::string_view>("%s") && !accepts<std::string_view>("%.*d"));
static_assert(accepts<int, const char *>("%.*s") && accepts<int, double>("%*f"));
static_assert(accepts<int, int, double>("%*.*f") && !accepts<double, double>("%*f"));
static_assert(!accepts<int>("%*d") && !accepts<int>("%.*d"));
static_assert(accepts<void *>("%p") && accepts<const char *>("%p") && !accepts<int>("%p"));
static_assert(!accepts<int *>("%n") && !accepts<>("%m") && !accepts<int>("%1$d") &&
              !accepts<int>("%y"));
static_assert(accepts<long long, std::intmax_t, std::ptrdiff_t>("%lld %jd %td"));

TEST(FaceReport, prints_texts_as_they_stand)
{
    EXPECT_EQ(logged([] { report::log("100% %s"); }), "100% %s\n");
    EXPECT_EQ(logged([] { report::log(std::string("owned")); }), "owned\n");
    EXPECT_EQ(logged([] { report::log("cut here"sv.substr(0, 3)); }), "cut\n");
    EXPECT_EQ(logged([] { report::log("cut\0here"sv); }), "cut\n");
    EXPECT_EQ(logged([] { report::log(std::string_view()); }),
              logged([] { elog_log(0, "%s", ""); }));
}

TEST(FaceReport, prints_formats)
{
    const std::string name = "name";
    const stock::text day(epoch2str("%G", 0));
    EXPECT_EQ(logged([&] { report::log("%s %s %s %d", name, day, "c", 5); }),
              "name 1970-01-01 c 5\n");
    EXPECT_EQ(logged([] { report::log("<%5.*s> %d", "abcdef"sv.substr(1, 3), 7); }), "<  bcd> 7\n");
    EXPECT_EQ(logged([] { report::log("%.*s|", std::string_view()); }), "|\n");
    EXPECT_EQ(logged([] { report::log("%*d %zu %c %g", 4, 2, sizeof(int), 'x', 0.5F); }),
              "   2 4 x 0.5\n");
}

TEST(FaceReport, adds_what_errno_means)
{
    const std::string why = logged([] {
        errno = ENOENT;
        report::log(report::with_errno, "can't open %s", "x");
        errno = ENOENT;
        report::log(report::with_errno, "can't open x");
    });
    EXPECT_EQ(why, "can't open x\n\tNo such file or directory\n");
}

TEST(FaceReport, has_every_severity)
{
    const auto ended = in_child([] {
        report::log("1 %s", "log");
        report::debug("2 %s", "debug");
        report::notify("3 notify");
        report::alert("4 %s", "alert");
        report::complain("5 complain");
        report::die("6 %s", "die");
    });
    const auto plain = in_child([] {
        elog_log(0, "1 log");
        elog_debug(0, "2 debug");
        elog_notify(0, "3 notify");
        elog_alert(0, "4 alert");
        elog_complain(0, "5 complain");
        elog_die(0, "6 die");
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, plain.err);
    EXPECT_EQ(in_child([] { report::fault("f %d", 1); }).signal, SIGABRT);
}

// ---- times ----

template <class D>
sys_time<D> at(D since_1970)
{
    return sys_time<D>(since_1970);
}

using std::chrono::duration;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using Days = duration<std::int64_t, std::ratio<86400>>;
using stock::from_epoch;
using stock::to_epoch;

TEST(FaceTime, converts_exactly_where_a_double_can)
{
    EXPECT_EQ(to_epoch(at(1201869015500ms)), 1201869015.5);
    EXPECT_EQ(to_epoch(at(-1ms)), -0.001);
    EXPECT_EQ(to_epoch(at(Days(13910))), 1201824000);
    EXPECT_EQ(to_epoch(at(duration<double>(0.25))), 0.25);
    EXPECT_EQ(to_epoch(at(1201869015500000001ns)), 1201869015.5);
    EXPECT_EQ(from_epoch<milliseconds>(1201869015.5), at(1201869015500ms));
    EXPECT_EQ(from_epoch<duration<double>>(0.1).time_since_epoch().count(), 0.1);
}

TEST(FaceTime, rounds_to_the_nearest_tick_and_a_half_to_the_later)
{
    EXPECT_EQ(from_epoch<seconds>(0.49), at(0s));
    EXPECT_EQ(from_epoch<seconds>(0.5), at(1s));
    EXPECT_EQ(from_epoch<seconds>(-0.5), at(0s));
    EXPECT_EQ(from_epoch<seconds>(-0.51), at(-1s));
    EXPECT_EQ(from_epoch<seconds>(-1.5), at(-1s));
    EXPECT_EQ(from_epoch<seconds>(std::nextafter(0.5, 0)), at(0s));
    EXPECT_EQ(from_epoch<seconds>(-1e-20), at(0s));
    EXPECT_EQ(from_epoch<Days>(43199.9), at(Days(0)));
    EXPECT_EQ(from_epoch<Days>(43200), at(Days(1)));
    EXPECT_EQ(from_epoch<Days>(-43200), at(Days(0)));
    EXPECT_EQ(from_epoch<Days>(-43200.5), at(Days(-1)));
    EXPECT_EQ(from_epoch<Days>(1201869015.5), at(Days(13911)));
}

TEST(FaceTime, comes_back_as_it_went)
{
    std::mt19937_64 random(3);
    for (int i = 0; i < 20'000; ++i) {
        const auto count =
            static_cast<std::int64_t>(random() % 8'000'000'000'000'000) - 4'000'000'000'000'000;
        EXPECT_EQ(from_epoch<microseconds>(to_epoch(at(microseconds(count)))),
                  at(microseconds(count)));
        EXPECT_EQ(from_epoch<milliseconds>(to_epoch(at(milliseconds(count / 1000)))),
                  at(milliseconds(count / 1000)));
        // Half a million seconds leave a double room for nanoseconds.
        const nanoseconds ns(count / 10);
        EXPECT_EQ(from_epoch<nanoseconds>(to_epoch(at(ns))), at(ns));
    }
}

TEST(FaceTime, stays_within_what_the_duration_holds)
{
    constexpr double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(from_epoch<nanoseconds>(1e10), sys_time<nanoseconds>::max());
    EXPECT_EQ(from_epoch<nanoseconds>(-1e10), sys_time<nanoseconds>::min());
    EXPECT_EQ(from_epoch<seconds>(inf), sys_time<seconds>::max());
    EXPECT_EQ(from_epoch<seconds>(-inf), sys_time<seconds>::min());
    EXPECT_EQ(from_epoch<seconds>(std::nan("")), sys_time<seconds>::min());
    EXPECT_EQ(from_epoch<Days>(1e300), sys_time<Days>::max());
}

// ---- convert ----

using stock::convert;
using stock::converted;

template <std::endian order, class External, class Source, class Destination>
constexpr bool converts = requires(Source source, Destination destination)
{
    convert<order, External>(source, destination);
};
using Bytes = std::span<std::byte>;
using ConstBytes = std::span<const std::byte>;
template <class Host, class External = Host>
constexpr bool both_ways = converts<std::endian::big, External, ConstBytes, std::span<Host>>
    &&converts<std::endian::little, External, std::span<const Host>, Bytes>;

static_assert(both_ways<signed char> && both_ways<short> && both_ways<int> && both_ways<long>);
static_assert(both_ways<unsigned char> && both_ways<unsigned short> && both_ways<unsigned long>);
static_assert(both_ways<float> && both_ways<double> && both_ways<double, float>);
static_assert(both_ways<double, short> && both_ways<float, unsigned short> &&
              both_ways<unsigned, float>);
static_assert(both_ways<int, void> && both_ways<std::int64_t, std::int16_t>);
static_assert(!both_ways<int, unsigned> && !both_ways<unsigned short, short>);
static_assert(!both_ways<char> && !both_ways<bool> && !both_ways<wchar_t> &&
              !both_ways<long double>);
static_assert(!both_ways<int, bool> && !both_ways<int, std::byte>);
static_assert(!converts<std::endian::big, void, ConstBytes, std::span<const int>>);
static_assert(!converts<std::endian::big, void, std::span<const int>, ConstBytes>);
static_assert(!converts<std::endian::big, void, std::span<const char>, std::span<int>>);
static_assert(!converts<std::endian::big, void, std::span<const int>, std::span<int>>);
static_assert(!converts<std::endian::big, void, ConstBytes, Bytes>);

TEST(FaceConvert, writes_and_reads)
{
    const std::array<int, 2> numbers{1, -2};
    std::array<std::byte, 8> bytes{};
    EXPECT_EQ(convert<std::endian::big>(numbers, bytes), converted::exact);
    EXPECT_EQ(std::memcmp(bytes.data(), "\0\0\0\1\377\377\377\376", 8), 0);
    std::array<int, 2> back{};
    EXPECT_EQ(convert<std::endian::big>(std::as_bytes(std::span(bytes)), back), converted::exact);
    EXPECT_EQ(back, numbers);
    EXPECT_EQ(convert<std::endian::little>(bytes, back), converted::exact);
    EXPECT_EQ(back[0], 0x01000000);
}

TEST(FaceConvert, changes_types_and_says_what_was_lost)
{
    std::vector<std::byte> bytes(4);
    const std::vector<double> doubles{2, 70000};
    EXPECT_EQ((convert<std::endian::big, short>(doubles, bytes)), converted::inexact);
    stock::list<double> back;
    back.set(1, 0);
    EXPECT_EQ((convert<std::endian::big, short>(bytes, back)), converted::exact);
    EXPECT_THAT(back, ElementsAre(2, 32767));
    std::vector<unsigned> large(2);
    EXPECT_EQ((convert<std::endian::little, unsigned short>(bytes, large)), converted::exact);
    EXPECT_THAT(large, ElementsAre(0x0200U, 0xff7fU));
}

TEST(FaceConvert, converts_nothing_when_the_sizes_do_not_fit)
{
    std::vector<std::byte> bytes(7, std::byte{9});
    std::vector<int> numbers(2, 5);
    EXPECT_EQ(convert<std::endian::big>(bytes, numbers), converted::no_room);
    EXPECT_THAT(numbers, ElementsAre(5, 5));
    EXPECT_EQ(convert<std::endian::big>(numbers, bytes), converted::no_room);
    EXPECT_EQ(bytes[0], std::byte{9});
    numbers.clear();
    bytes.clear();
    EXPECT_EQ(convert<std::endian::big>(bytes, numbers), converted::exact);
}

// The function of every pair of types is the one whose name says so.
template <std::endian order, class External, class Host>
void same_as(int (*read)(char **, Host *, int), int (*write)(const Host *, char **, int))
{
    std::array<std::byte, 3 * sizeof(External)> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = std::byte(0x41 + 7 * i);
    std::array<Host, 3> want{};
    std::array<Host, 3> have{};
    char *from = reinterpret_cast<char *>(bytes.data());
    const int read_status = read(&from, want.data(), 3);
    EXPECT_EQ(static_cast<int>(convert<order, External>(bytes, have)), read_status);
    EXPECT_EQ(std::memcmp(have.data(), want.data(), sizeof have), 0);
    std::array<std::byte, 3 * sizeof(External)> written{};
    char *to = reinterpret_cast<char *>(bytes.data());
    const int write_status = write(want.data(), &to, 3);
    EXPECT_EQ(static_cast<int>(convert<order, External>(want, written)), write_status);
    EXPECT_EQ(written, bytes);
}

TEST(FaceWants, frees_what_the_variables_hold)
{
    double interval = 0;
    char *state = nullptr;
    Tbl *gauges = nullptr;
    const Pfwant rows[] = {
        {"interval", PFWANT_DURATION(&interval), "10 s", 0.1, 3600, "from sample to sample"},
        {"state", PFWANT_TEXT(&state), "here", 0, 0, nullptr},
        {.address = "gauges",
         .kind = PFWANT_LIST,
         .of = PFWANT_TEXT,
         .value = &gauges,
         .fallback = "north\nsouth"},
        {},
    };
    {
        stock::wants wants(rows);
        EXPECT_EQ(wants.read(), 0);
        EXPECT_EQ(interval, 10);
        EXPECT_STREQ(state, "here");
        EXPECT_EQ(gauges->count, 2);
        stock::params tree;
        tree.compile("interval fast\n");
        EXPECT_EQ(wants.read(tree), -1);
        EXPECT_EQ(interval, 10);
        tree.set("interval", "1 m");
        EXPECT_EQ(wants.read(tree), 0);
        EXPECT_EQ(interval, 60);
        EXPECT_EQ(wants.follow("no such file"), -1);
        EXPECT_FALSE(wants.followed("no such file"));
        EXPECT_EQ(wants.print(nullptr), -1);
        EXPECT_EQ(wants.table(), rows);
        stock::wants moved = std::move(wants);
        EXPECT_STREQ(state, "here");
    }
    EXPECT_EQ(state, nullptr);
    EXPECT_EQ(gauges, nullptr);
    elog_clear();
}

TEST(FaceConvert, chooses_the_function_by_type_and_order)
{
    constexpr auto big = std::endian::big;
    constexpr auto little = std::endian::little;
    same_as<big, signed char, short>(mb2hs, hs2mb);
    same_as<big, short, double>(ms2hd, hd2ms);
    same_as<big, int, int>(mi2hi, hi2mi);
    same_as<big, long, float>(ml2hf, hf2ml);
    same_as<big, float, double>(mf2hd, hd2mf);
    same_as<big, double, signed char>(md2hb, hb2md);
    same_as<big, unsigned short, unsigned>(ums2hi, uhi2ms);
    same_as<big, unsigned, float>(umi2hf, uhf2mi);
    same_as<big, double, unsigned long>(umd2hl, uhl2md);
    same_as<little, short, long>(as2hl, hl2as);
    same_as<little, double, float>(ad2hf, hf2ad);
    same_as<little, unsigned char, unsigned char>(uab2hb, uhb2ab);
    same_as<little, unsigned long, double>(ual2hd, uhd2al);
    same_as<little, float, unsigned short>(uaf2hs, uhs2af);
}

}  // namespace
