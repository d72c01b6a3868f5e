/*
 * pfwant.hpp - a class that owns the values of declared parameters; see pfwant.h.
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
 * Owns the texts, lists and tables in the variables of a table of rows, and frees them in its
 * destructor. The table and its variables must remain valid as long as the object exists.
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
    /* Reads nothing yet. The variables of texts, lists and tables must be null. */
    explicit wants(const Pfwant *table) noexcept : table_(table) {}

    const Pfwant *table() const noexcept { return table_.get(); }

    /* pfwant: reads all values of the tree. Returns 0, or -1 after logging the problems. */
    int read(params &tree) { return pfwant(tree.pf(), table()); }

    /* pfwant of a tree without values: all variables get their defaults. */
    int read() { return pfwant(nullptr, table()); }

    /* pffollow: returns 1 if all values were read, 0 if nothing changed, -1 after problems. */
    int follow(zstring name) { return pffollow(name.c_str(), table()); }

    /* pffollowed: the tree that follow() read, borrowed until follow() returns 1 again. */
    params_view followed(zstring name) const
    {
        return params_view(pffollowed(name.c_str(), table()));
    }

    /* pfwant_print: writes a parameter file with the defaults. */
    int print(std::FILE *stream) const { return pfwant_print(table(), stream); }

private:
    struct Free {
        void operator()(const Pfwant *table) const { pfwant_free(table); }
    };

    std::unique_ptr<const Pfwant, Free> table_;
};

}  // namespace stock

#endif
