// What the sources of the declared parameters share: values of each kind, and problems.

#pragma once

#include <cstdint>
#include <string_view>

#include "base/growing_text.h"
#include "stock/pfwant.h"

namespace stock::want {

// ---- Values (want_value.cpp) ----

// What a single value is, and within what bounds.
struct Scalar {
    int kind;
    const char *words = nullptr;
    double low = 0;
    double high = 0;
};

constexpr bool is_scalar(int kind)
{
    return kind >= PFWANT_INT && kind <= PFWANT_TIME;
}

// The row's value; of a list or table that of its elements.
constexpr Scalar scalar_of(const Pfwant &row)
{
    const bool is_container = row.kind == PFWANT_LIST || row.kind == PFWANT_TABLE;
    return {is_container ? row.of : row.kind, row.words, row.low, row.high};
}

// "int", "list" and so on, as pfwant_print writes it; null of what is no kind.
const char *kind_name(int kind);

// The bytes of a variable of the kind.
std::size_t kind_size(int kind);

// As messages name it: "a number".
const char *kind_noun(int kind);

enum class Reading { fine, wrong, outside };

// Reads a text into a variable of the kind; a PFWANT_TEXT is a copy that the caller frees.
// Unless it is fine, the variable is left alone. errno is left alone.
Reading read_scalar(const Scalar &scalar, const char *text, void *to);

// Adds what is wrong with a text that was not fine: "'abc' is not a number (0 to 1000)".
void add_wrong(GrowingText &out, const Scalar &scalar, const char *text, Reading reading);

// Adds the bounds, "0 to 1000", "at least 1", or nothing. False when there are none.
bool add_bounds(GrowingText &out, const Scalar &scalar);

// Adds a text for a message: on one line, and cut.
void add_shown(GrowingText &out, std::string_view text);

// Adds the value of a row, as in "interval: 5 -> 10".
void add_value(GrowingText &out, const Pfwant &row, const void *at);

// Adds the members of a record: "mm 5, hours 3600 s".
void add_record(GrowingText &out, const Pfwant *rows, const void *record);

// Where the value of an element lies: of texts the element is the variable itself.
inline const void *element_at(int kind, void *const &element)
{
    return kind == PFWANT_TEXT ? static_cast<const void *>(&element) : element;
}

// Whether two variables of the row have the same value.
bool is_equal(const Pfwant &row, const void *a, const void *b);

// Frees what the variable of the row owns, and makes it null.
void free_value(const Pfwant &row, void *at);

constexpr bool is_owner(int kind)
{
    return kind == PFWANT_TEXT || (kind >= PFWANT_LIST && kind <= PFWANT_RECORDS);
}

// The member of a record that a row of its table fills.
inline void *member(void *record, const Pfwant &row)
{
    return static_cast<char *>(record) + reinterpret_cast<std::uintptr_t>(row.value);
}
inline const void *member(const void *record, const Pfwant &row)
{
    return member(const_cast<void *>(record), row);
}

// The number with as few digits as tell it from others.
void add_number(GrowingText &out, double value);

// Takes the first word off the text; an empty one at its end.
std::string_view next_word(std::string_view &text);

// ---- Problems (want_problem.cpp) ----

// Logs problems of a tree, each with its place, as many as are told.
class Problems {
public:
    // Of a table that is in a tree, or of none.
    explicit Problems(Pf *table);
    Problems(const Problems &) = delete;
    Problems &operator=(const Problems &) = delete;

    // Logs "FILE:LINE: ADDRESS: TEXT". The address is one in the table.
    void add(std::string_view address, std::string_view text);

    // Logs the text as it is.
    void add(std::string_view text);

    int count() const { return count_; }

    // Logs how many were not told.
    void finish();

    // Adds "FILE:LINE: ADDRESS: ".
    void add_place(GrowingText &out, std::string_view address);

private:
    bool is_told() const;

    const char *name_ = nullptr;  // of the files that the tree was read from
    GrowingText prefix_;          // the address of the table
    int count_ = 0;
    int told_ = 0;
};

// How many messages may be logged before as many wait as may.
int room_on_log();

// The address of what stands at an address in a table, or under a key: "limits{north}{mm}".
void add_address(GrowingText &out, std::string_view table, std::string_view address);

// The row whose address, at this level, is most like the key; null when none is.
// `table` is the address of the table, "" at the top.
const char *similar(const Pfwant *wants, std::string_view table, std::string_view key);

// ---- Reading (want_read.cpp) ----

// pfwant; with changes not null it logs each value that changes, and tells how many did.
int read_wants(Pf *pf, const Pfwant *wants, int *changes);

// ---- Following (pffollow.cpp) ----

// Frees what pffollow keeps for the table.
void forget_follower(const Pfwant *wants);

}  // namespace stock::want
