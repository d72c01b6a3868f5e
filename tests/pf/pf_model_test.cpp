// Trees that are read, changed, taken apart and put together again at random, compared with a
// simple model of what they hold. A part may end in another tree than the one it was read into:
// the sanitizers find one that is freed twice, too early or never.

#include "stock/pf.h"

#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/pf_text.h"

namespace {

struct Value {
    enum Kind { kText, kList, kTable } kind;
    std::string text;
    std::vector<std::string> list;
    std::map<std::string, std::string> table;
};

using Model = std::map<std::string, Value>;

std::string in_quotes(const std::string &text)
{
    return '"' + text + '"';
}

// As tree_text tells it.
std::string told(const Value &value)
{
    std::string all;
    switch (value.kind) {
    case Value::kText: return in_quotes(value.text);
    case Value::kList:
        for (const std::string &element : value.list)
            all += (all.empty() ? "" : " ") + in_quotes(element);
        return '[' + all + ']';
    case Value::kTable:
        for (const auto &[key, text] : value.table)
            all += (all.empty() ? "" : ", ") + key + ": " + in_quotes(text);
        return '{' + all + '}';
    }
    return all;
}

std::string told(const Model &model)
{
    std::string all;
    for (const auto &[key, value] : model)
        all += (all.empty() ? "" : ", ") + key + ": " + told(value);
    return '{' + all + '}';
}

// As it is written in a parameter file.
std::string written(const Value &value)
{
    std::string all;
    switch (value.kind) {
    case Value::kText: return value.text + "\n";
    case Value::kList:
        for (const std::string &element : value.list)
            all += element + "\n";
        return "&Tbl{\n" + all + "}\n";
    case Value::kTable:
        for (const auto &[key, text] : value.table)
            all += key + " " + text + "\n";
        return "&Arr{\n" + all + "}\n";
    }
    return all;
}

struct Tree {
    PfPtr pf;
    Model model;
};

struct Loose {
    PfPtr pf;
    Value value;
};

class Game {
public:
    explicit Game(unsigned seed) : random_(seed)
    {
        for (Tree &tree : trees_)
            tree.pf.reset(pfnew(PFFILE));
    }

    void move()
    {
        using Move = void (Game::*)(Tree & tree);
        static constexpr Move kMoves[] = {
            &Game::parse,  &Game::parse,       &Game::put_text,     &Game::set_deeper,
            &Game::remove, &Game::remove_node, &Game::graft,        &Game::drop,
            &Game::copy,   &Game::change_list, &Game::change_table, &Game::move_table};
        Tree &tree = trees_[pick(std::size(trees_))];
        (this->*kMoves[pick(std::size(kMoves))])(tree);
        for (const Tree &each : trees_)
            ASSERT_EQ(tree_text(each.pf.get()), told(each.model));
        for (const Loose &each : loose_)
            ASSERT_EQ(tree_text(each.pf.get()), told(each.value));
    }

private:
    size_t pick(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(random_); }

    // Keys of lengths around multiples of 8, and of the longest length.
    std::string key()
    {
        static constexpr size_t kLengths[] = {1, 6, 7, 8, 9, 15, 16, 17, 100, 1023};
        return std::string(kLengths[pick(std::size(kLengths))], "ab"[pick(2)]);
    }

    // Texts that are mostly short, and now and then long.
    std::string text()
    {
        const size_t longest = pick(50) ? 24 : 30'000;
        return std::string(pick(longest), static_cast<char>('a' + pick(26)));
    }

    Value value()
    {
        Value value{static_cast<Value::Kind>(pick(3)), "", {}, {}};
        if (value.kind == Value::kText)
            value.text = text();
        for (size_t left = pick(6); left && value.kind == Value::kList; --left)
            value.list.push_back(text());
        for (size_t left = pick(6); left && value.kind == Value::kTable; --left)
            value.table[key()] = text();
        return value;
    }

    static Pf *child(const Tree &tree, const std::string &key)
    {
        return static_cast<Pf *>(getarr(tree.pf->value.arr, key.c_str()));
    }

    // A key of the tree with a value of that kind; empty when there is none.
    std::string key_of(const Tree &tree, Value::Kind kind)
    {
        std::vector<std::string> keys;
        for (const auto &[key, value] : tree.model)
            if (value.kind == kind)
                keys.push_back(key);
        return keys.empty() ? "" : keys[pick(keys.size())];
    }

    void parse(Tree &tree)
    {
        std::string all;
        for (size_t left = 1 + pick(8); left; --left) {
            const std::string name = key();
            if (pick(6)) {
                tree.model[name] = value();
                all += name + " " + written(tree.model[name]);
            } else {
                tree.model.erase(name);
                all += name + " &Undef{}\n";
            }
        }
        Pf *pf = tree.pf.get();
        ASSERT_EQ(pfcompile(all.c_str(), &pf), 0);
    }

    void put_text(Tree &tree)
    {
        const std::string name = key();
        tree.model[name] = {Value::kText, text(), {}, {}};
        pfput_string(tree.pf.get(), name.c_str(), tree.model[name].text.c_str());
    }

    // Sets a text at an address of two steps. A text or list under the first key is refused.
    void set_deeper(Tree &tree)
    {
        const std::string name = key(), inner(1 + pick(20), 'k'), content = text();
        const auto at = tree.model.find(name);
        const bool fits = at == tree.model.end() || at->second.kind == Value::kTable;
        const std::string address = name + "{" + inner + "}";
        ASSERT_EQ(pfset(tree.pf.get(), address.c_str(), content.c_str()), fits ? 0 : -1);
        if (!fits)
            return;
        tree.model[name].kind = Value::kTable;
        tree.model[name].table[inner] = content;
    }

    void remove(Tree &tree)
    {
        const std::string name = key();
        PfPtr pf(pfdel(tree.pf.get(), name.c_str()));
        ASSERT_EQ(pf != nullptr, tree.model.count(name) == 1);
        if (pf)
            loosen(tree, name, std::move(pf));
    }

    void remove_node(Tree &tree)
    {
        const std::string name = key();
        const Rbnode *removed = rbdelete(name.c_str(), tree.pf->value.arr);
        ASSERT_EQ(removed != nullptr, tree.model.count(name) == 1);
        if (!removed)
            return;
        EXPECT_EQ(static_cast<const char *>(removed->key), name);
        free(removed->key);
        loosen(tree, name, PfPtr(static_cast<Pf *>(removed->value)));
    }

    void loosen(Tree &tree, const std::string &name, PfPtr pf)
    {
        loose_.push_back({std::move(pf), tree.model[name]});
        tree.model.erase(name);
    }

    void graft(Tree &tree)
    {
        if (loose_.empty())
            return;
        const std::string name = key();
        Loose part = take_loose();
        pfput(tree.pf.get(), name.c_str(), part.pf.release(), PFGRAFT);
        tree.model[name] = part.value;
    }

    Loose take_loose()
    {
        std::swap(loose_[pick(loose_.size())], loose_.back());
        Loose part = std::move(loose_.back());
        loose_.pop_back();
        return part;
    }

    void drop(Tree &tree)
    {
        if (!loose_.empty())
            take_loose();
        if (pick(4) == 0)
            tree = {PfPtr(pfnew(PFARR)), {}};
    }

    void copy(Tree &tree)
    {
        Tree &from = trees_[pick(std::size(trees_))];
        tree = {PfPtr(pfdup(from.pf.get())), Model(from.model)};
    }

    void change_list(Tree &tree)
    {
        const std::string name = key_of(tree, Value::kList);
        if (name.empty())
            return;
        std::vector<std::string> &list = tree.model[name].list;
        const size_t i = pick(list.size() + 1);
        if (i == list.size() || pick(2)) {
            list.resize(std::max(list.size(), i + 1));
            list[i] = text();
            pfput_string(child(tree, name), pfindex(static_cast<int64_t>(i)), list[i].c_str());
        } else {
            const PfPtr out(pfdel(child(tree, name), pfindex(static_cast<int64_t>(i))));
            EXPECT_EQ(tree_text(out.get()), in_quotes(list[i]));
            list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }

    void change_table(Tree &tree)
    {
        const std::string name = key_of(tree, Value::kTable), inner = key();
        if (name.empty())
            return;
        std::map<std::string, std::string> &table = tree.model[name].table;
        if (pick(2)) {
            pfput_string(child(tree, name), inner.c_str(), (table[inner] = text()).c_str());
        } else {
            const PfPtr out(pfdel(child(tree, name), inner.c_str()));
            EXPECT_EQ(out != nullptr, table.erase(inner) == 1);
        }
    }

    // The array of a table goes to another tree.
    void move_table(Tree &tree)
    {
        const std::string name = key_of(tree, Value::kTable), other = key();
        if (name.empty())
            return;
        Pf *table = child(tree, name);
        Arr *arr = std::exchange(table->value.arr, newarr(nullptr));
        Value value = std::exchange(tree.model[name], {Value::kTable, "", {}, {}});
        Tree &to = trees_[pick(std::size(trees_))];
        pfput(to.pf.get(), other.c_str(), arr, PFARR);
        to.model[other] = std::move(value);
    }

    std::mt19937 random_;
    Tree trees_[3];
    std::vector<Loose> loose_;
};

}  // namespace

TEST(PfModel, TreesFollowItThroughChangesOfEveryKind)
{
    for (unsigned seed = 0; seed < 10; ++seed) {
        SCOPED_TRACE(seed);
        Game game(seed);
        for (int i = 0; i < 250 && !testing::Test::HasFailure(); ++i)
            game.move();
    }
}
