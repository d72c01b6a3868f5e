/*
 * pfwant.hpp - declared parameters as an owner; see pfwant.h.
 */

#ifndef STOCK_PFWANT_HPP
#define STOCK_PFWANT_HPP

#include <cstdio>
#include <memory>

#include "stock/pf.hpp"
#include "stock/pfwant.h"
#include "stock/strings.hpp"

namespace stock {

/*
 * Owns the texts, lists and tables that the variables of a table of rows hold, and frees
 * them at its end. The table and its variables must live longer.
 *
 *     double interval;
 *     const Pfwant rows[] = {
 *         {"interval", PFWANT_DURATION(&interval), "10 s", 0.1, 3600, "from sample to sample"},
 *         PFWANT_END,
 *     };
 *     stock::wants wants(rows);
 *     if (wants.follow("gauge") < 0)
 *         stock::report::die("can't start without gauge.pf");
 */
class wants {
public:
    /* Nothing is read yet: the variables of texts, lists and tables must be null. */
    explicit wants(const Pfwant *table) noexcept : table_(table) {}

    const Pfwant *table() const noexcept { return table_.get(); }

    /* pfwant: 0 with all values of the tree, -1 with the problems logged. */
    int read(params &tree) { return pfwant(tree.pf(), table()); }

    /* The same of a tree without values: all defaults. */
    int read() { return pfwant(nullptr, table()); }

    /* pffollow: 1 with all values new, 0 when nothing changed, -1 with the problems logged. */
    int follow(zstring name) { return pffollow(name.c_str(), table()); }

    /* pffollowed: the tree that follow() read, borrowed until it returns 1 again. */
    params_view followed(zstring name) const
    {
        return params_view(pffollowed(name.c_str(), table()));
    }

    /* pfwant_print: writes the file that gives each value its default. */
    int print(std::FILE *stream) const { return pfwant_print(table(), stream); }

private:
    struct Free {
        void operator()(const Pfwant *table) const { pfwant_free(table); }
    };

    std::unique_ptr<const Pfwant, Free> table_;
};

}  // namespace stock

#endif
