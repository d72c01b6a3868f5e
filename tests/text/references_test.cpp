// References in a text: `$name`, `${name}`, and what stands for them.

#include "text/references.h"

#include <string>

#include <gtest/gtest.h>

#include "base/ascii.h"

using stock::Reference;

namespace {

struct Result {
    std::string text;
    void add(std::string_view piece, std::size_t = 0) { text += piece; }
};

std::string with_gauge(std::string_view text)
{
    Result result;
    stock::add_with_values(result, text, '&', stock::is_letter, [](const Reference &reference) {
        return reference.name == "gauge" ? "north" : nullptr;
    });
    return result.text;
}

}  // namespace

TEST(References, HaveATextANameAndARest)
{
    const struct {
        const char *text, *whole, *name, *rest;
        bool braced;
    } cases[] = {
        {"$gauge 1", "$gauge", "gauge", " 1", false},
        {"$gauge1", "$gauge", "gauge", "1", false},
        {"$", "$", "", "", false},
        {"$$x", "$", "", "$x", false},
        {"${a b}c", "${a b}", "a b", "c", true},
        {"${}c", "${}", "", "c", true},
        {"${gauge", "${gauge", "gauge", "", true},
        {"${", "${", "", "", true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const Reference reference = stock::reference_at(c.text, stock::is_letter);
        EXPECT_EQ(reference.text, c.whole);
        EXPECT_EQ(reference.name, c.name);
        EXPECT_EQ(reference.rest, c.rest);
        EXPECT_EQ(reference.braced, c.braced);
    }
}

TEST(References, AreReplacedFromLeftToRight)
{
    EXPECT_EQ(with_gauge("&gauge, &{gauge}1 and &gauge"), "north, north1 and north");
    EXPECT_EQ(with_gauge("none"), "none");
    EXPECT_EQ(with_gauge(""), "");
}

TEST(References, WithoutAValueStayAsTheyAreWritten)
{
    EXPECT_EQ(with_gauge("&other &{gauges} & &{gauge"), "&other &{gauges} & north");
}
