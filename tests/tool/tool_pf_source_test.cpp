// The tool's reader that keeps places: it finds what the library reads, and where.

#include "pf_source.h"

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "stock.h"

namespace {

bool same(const SourceEntry &entry, const Pf *pf);

bool same_table(const SourceEntry &entry, const Pf *pf)
{
    Tbl *keys = pfkeys(pf);
    bool equal = true;
    for (int64_t i = 0; i < keys->count; ++i) {
        const auto *key = static_cast<const char *>(gettbl(keys, i));
        const SourceEntry *child = find_key(entry, key);
        equal = equal && child && same(*child, static_cast<Pf *>(getarr(pf->value.arr, key)));
    }
    freetbl(keys, nullptr);
    for (const SourceEntry &child : entry.children)
        if (find_key(entry, child.key))
            equal = equal && getarr(pf->value.arr, child.key.c_str());
    return equal;
}

bool same_list(const SourceEntry &entry, const Pf *pf)
{
    const std::vector<const SourceEntry *> list = elements(entry);
    if (static_cast<long>(list.size()) != pfmaxtbl(pf))
        return false;
    for (size_t i = 0; i < list.size(); ++i)
        if (!same(*list[i], static_cast<Pf *>(gettbl(pf->value.tbl, static_cast<int64_t>(i)))))
            return false;
    return true;
}

// Whether the library's tree holds in the end what the entry holds.
bool same(const SourceEntry &entry, const Pf *pf)
{
    switch (entry.kind) {
    case SourceEntry::Kind::text: return pf->type == PFSTRING && entry.text == pf->value.s;
    case SourceEntry::Kind::function:
        return pf->type == PFFUNCTION && entry.text == pf->value.pffunct->text;
    case SourceEntry::Kind::list: return pf->type == PFTBL && same_list(entry, pf);
    case SourceEntry::Kind::table:
        return (pf->type == PFARR || pf->type == PFFILE) && same_table(entry, pf);
    default: return false;
    }
}

// Whether the entries lie one behind the other, each with its parts in order.
bool in_order(const std::vector<SourceEntry> &entries, size_t from, size_t to)
{
    for (const SourceEntry &entry : entries) {
        if (entry.begin < from || entry.value_begin < entry.begin ||
            entry.value_end < entry.value_begin || entry.end < entry.value_end || entry.end > to)
            return false;
        if (!in_order(entry.children, entry.value_begin, entry.end))
            return false;
        from = entry.end;
    }
    return true;
}

int silence(int, const char *, Tbl *)
{
    return 1;
}

// A text of pieces that mean something, and of some that do not.
std::string random_text(std::mt19937 &random)
{
    static const std::string pieces[] = {
        "a",
        "b",
        "key",
        " ",
        "  ",
        "\t",
        "\n",
        "\n",
        "\n",
        "#",
        "# comment\n",
        "}",
        "}\n",
        "a &Tbl{\n",
        "b &Arr{\n",
        "&Tbl{",
        "&Arr{\n",
        "a &Undef{}\n",
        "&Undef{}\n",
        "\\",
        "\\n",
        "\\\n",
        "\\101",
        "\\000",
        "\\9",
        "\"a b\"",
        "'",
        "\"",
        "&exec(x)\n",
        "&file(y) \n",
        "&exec(x) y\n",
        "&Literal{\nx\n}\n",
        "&Literal(\n",
        "&Literal\"EOT\n",
        "\"EOT\n",
        "&Literal|!\nz\n!",
        "&Literal",
        "&Literal\n",
        "__END__\n",
        "__DATA__",
        "&",
        "(",
        ")",
        "{",
        "&ref(a, b)",
        "k v\n",
        "l w # c\n",
        "\x80",
        "\r",
    };
    std::string text;
    for (size_t n = random() % 24; n > 0; --n)
        text += pieces[random() % std::size(pieces)];
    return text;
}

}  // namespace

TEST(PfSource, FindsInRandomTextsWhatTheLibraryReads)
{
    std::mt19937 random(7);
    elog_set(ELOG_CALLBACK_FN, 0, silence);
    int good = 0;
    for (int i = 0; i < 50000; ++i) {
        const std::string text = random_text(random);
        SCOPED_TRACE(text);
        Pf *tree = nullptr;
        const int result = pfcompile(text.c_str(), &tree);
        elog_clear();
        const SourceText source = scan_source(text, OnError::stop);
        ASSERT_EQ(source.failed, result != 0);
        ASSERT_TRUE(same(source.top, tree));
        pffree(tree);
        good += result == 0;
    }
    EXPECT_GT(good, 10000);
}

TEST(PfSource, KeepsPlacesInOrderBehindErrorsToo)
{
    std::mt19937 random(8);
    for (int i = 0; i < 50000; ++i) {
        const std::string text = random_text(random);
        SCOPED_TRACE(text);
        const SourceText source = scan_source(text, OnError::go_on);
        EXPECT_EQ(source.failed, scan_source(text, OnError::stop).failed);
        ASSERT_TRUE(in_order(source.top.children, 0, text.size()));
    }
}

TEST(PfSource, GoesOnBehindAnError)
{
    const SourceText source = scan_source("a 1\n}\nb 2\n", OnError::go_on);
    EXPECT_TRUE(source.failed);
    ASSERT_NE(find_key(source.top, "b"), nullptr);
    EXPECT_EQ(scan_source("a 1\n}\nb 2\n", OnError::stop).top.children.size(), 1U);
}

TEST(PfSource, EndsAtAZeroByteAsTheLibraryDoes)
{
    const SourceText source = scan_source(std::string("a 1\nb 2\0c 3\n", 12), OnError::stop);
    ASSERT_EQ(source.top.children.size(), 2U);
    EXPECT_EQ(source.top.children[1].text, "2");
    EXPECT_EQ(source.text_end, 7U);
}

TEST(PfSource, KnowsTheBytesOfEachValue)
{
    const struct {
        const char *text, *value;
    } cases[] = {
        {"a 1\n", "1"},
        {"a  1 2  # c\n", "1 2"},
        {"a 1\\ # c\n", "1\\ "},
        {"a x\\\n y \n", "x\\\n y"},
        {"a # c\n", ""},
        {"a\n", ""},
        {"a &Tbl{ # c\n 1\n} # d\n", "&Tbl{ # c\n 1\n}"},
        {"a &Literal{\nx\n} y\n", "&Literal{\nx\n}"},
        {"a &Literal\"E\nx\"E y\n", "&Literal\"E\nx\"E"},
        {"a &exec(x)  \n", "&exec(x)"},
        {"a &Undef{} x\n", "&Undef{}"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const SourceText source = scan_source(c.text, OnError::stop);
        ASSERT_EQ(source.top.children.size(), 1U);
        const SourceEntry &entry = source.top.children[0];
        EXPECT_EQ(source.text.substr(entry.value_begin, entry.value_end - entry.value_begin),
                  c.value);
        EXPECT_EQ(entry.begin, 0U);
        EXPECT_EQ(entry.end, source.text.size());
    }
}

TEST(PfSource, CountsTheLinesOfAllThatTheLibraryDoesNotCount)
{
    const SourceText source =
        scan_source("a x\\\ny\n'q\nq' &Literal\"E\n1\n2\"E\nb 1\n", OnError::stop);
    EXPECT_EQ(source.line_of(find_key(source.top, "b")->begin), 7);
}

TEST(PfSource, CutsAddressesIntoSteps)
{
    const auto steps = parse_address("a b{ c }[12]");
    ASSERT_TRUE(steps);
    ASSERT_EQ(steps->size(), 3U);
    EXPECT_EQ((*steps)[0].key, "a b");
    EXPECT_EQ((*steps)[1].key, "c");
    EXPECT_EQ((*steps)[2].index, 12);
    EXPECT_EQ(parse_address("{a}")->at(0).key, "a");
}

TEST(PfSource, RefusesWhatIsNoAddress)
{
    for (const char *address : {"", "a{", "a}", "a[x]", "a[-1]", "[0]", "a{b}c", "a[", "a]", "a[]"})
        EXPECT_FALSE(parse_address(address)) << address;
}
