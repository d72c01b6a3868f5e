/*
 * pf.hpp - a class that owns a parameter tree, and values by type; see pf.h.
 */

#ifndef STOCK_PF_HPP
#define STOCK_PF_HPP

#include <chrono>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "stock/elog.h"
#include "stock/epoch.hpp"
#include "stock/pf.h"
#include "stock/strings.hpp"
#include "stock/tbl.hpp"

namespace stock {

class params_view;
template <class T = std::string_view>
class params_list;

namespace detail {

template <class T>
inline constexpr bool is_sys_time = false;
template <class Duration>
inline constexpr bool is_sys_time<std::chrono::sys_time<Duration>> = true;

template <class T>
inline constexpr bool is_params_list = false;
template <class T>
inline constexpr bool is_params_list<params_list<T>> = true;

template <class T>
concept text_value = std::same_as<T, const char *> || std::same_as<T, std::string_view> ||
    std::same_as<T, std::string>;

template <class T>
concept container_value = std::same_as<T, params_view> || is_params_list<T>;

/* Integers without the character types, which std::integral includes. */
template <class T>
concept integer_value = std::integral<T> && sizeof(T) > 1 && !std::same_as<T, wchar_t> &&
                        !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

}  // namespace detail

/*
 * The types that a value can be read as, and the function that reads each:
 *
 *     int, long, unsigned ...     pfget_int. If the type cannot hold the integer, complains
 *                                 "Integer value %ld for %s is out of range %ld to %ld" and
 *                                 returns the nearer of these two. Not for one-byte types
 *     double, float               pfget_double
 *     bool                        pfget_boolean, whose -1 is true
 *     std::string_view            pfget_string, borrowed from the tree; empty if missing
 *     const char *                pfget_string, borrowed from the tree; null if missing
 *     std::string                 pfget_string, a copy; empty if missing
 *     std::chrono::sys_time<D>    pfget_time, rounded as from_epoch does
 *     params_view                 _pfeval for a table, borrowed from the tree
 *     params_list<T>              _pfeval for a list whose elements are read as T, borrowed
 *
 * Any other type does not compile.
 */
template <class T>
concept parameter = std::same_as<T, bool> || detail::integer_value<T> || std::floating_point<T> ||
    detail::text_value<T> || detail::is_sys_time<T> || detail::container_value<T>;

namespace detail {

/* Whether T can hold every value of From: it has as many digits, and a sign if From has one. */
template <class From, class T>
constexpr bool fits_in()
{
    return std::numeric_limits<From>::digits <= std::numeric_limits<T>::digits &&
           (std::is_signed_v<T> || !std::is_signed_v<From>);
}

/*
 * Whether an F may be the fallback of a T: it is a T, or can be converted to one without loss and
 * without referring to a temporary that ends with the call.
 */
template <class F, class T>
constexpr bool is_fallback()
{
    using From = std::remove_cvref_t<F>;
    if constexpr (std::same_as<From, T>)
        return true;
    else if constexpr (std::same_as<T, bool> || !std::convertible_to<F, T>)
        return false;
    else if constexpr (std::is_arithmetic_v<T>)
        // T must hold every From: an int may be a fallback of long and double, not of unsigned and
        // float.
        return (integer_value<From> && !std::same_as<From, bool> && fits_in<From, T>()) ||
               (std::floating_point<From> && std::floating_point<T> && fits_in<From, T>());
    else if constexpr (std::same_as<T, std::string_view> || std::same_as<T, params_view>)
        return std::convertible_to<F, const char *> ? !std::is_null_pointer_v<From>
                                                    : std::is_lvalue_reference_v<F>;
    else
        return !std::same_as<T, std::string> || !std::is_null_pointer_v<From>;
}

template <class F, class T>
concept fallback_for = is_fallback<F, T>();

inline void complain_range(long number, long least, long most, const Pf *pf, const char *address)
{
    constexpr const char *range = "is out of range";
    if (pf && pf->type == PFTBL)
        elog_complain(0, "Integer value %ld for #%lld %s %ld to %ld", number,
                      static_cast<long long>(reinterpret_cast<std::intptr_t>(address)), range,
                      least, most);
    else
        elog_complain(0, "Integer value %ld for %s %s %ld to %ld", number, okstr(address), range,
                      least, most);
}

/*
 * Converts the number to T; complains if T cannot hold it. The address is null for the value pf
 * itself, and an index if pf is a list, as for the getters.
 */
template <integer_value T>
T checked(long number, const Pf *pf, const char *address)
{
    constexpr bool is_signed = std::is_signed_v<T>;
    constexpr bool is_short = sizeof(T) < sizeof(long);
    constexpr long least = !is_signed ? 0
                           : is_short ? static_cast<long>(std::numeric_limits<T>::min())
                                      : std::numeric_limits<long>::min();
    constexpr long most = is_short ? static_cast<long>(std::numeric_limits<T>::max())
                                   : std::numeric_limits<long>::max();
    if (number >= least && number <= most) [[likely]]
        return static_cast<T>(number);
    complain_range(number, least, most, pf, address);
    return static_cast<T>(number < least ? least : most);
}

template <parameter T>
T read_parameter(Pf *pf, const char *address)
{
    if constexpr (std::same_as<T, bool>) {
        return pfget_boolean(pf, address) != 0;
    } else if constexpr (integer_value<T>) {
        return checked<T>(pfget_int(pf, address), pf, address);
    } else if constexpr (std::floating_point<T>) {
        return static_cast<T>(pfget_double(pf, address));
    } else if constexpr (std::same_as<T, const char *>) {
        return pfget_string(pf, address);
    } else if constexpr (text_value<T>) {
        const char *value = pfget_string(pf, address);
        return value ? T(value) : T();
    } else if constexpr (is_sys_time<T>) {
        return from_epoch<typename T::duration>(pfget_time(pf, address));
    } else {
        Pf *node = nullptr;
        _pfeval(pf, address, &node, T::node_type);
        // For an element of another type there is no message: it counts as a missing container.
        return T(node && node->type == T::node_type ? node : nullptr);
    }
}

/* Reads the result of a function in the tree. */
template <parameter T>
T read_result(Pf *node)
{
    if constexpr (container_value<T>)
        return T(node);
    else
        return read_parameter<T>(node, nullptr);
}

template <parameter T>
constexpr int node_type_of()
{
    if constexpr (container_value<T>)
        return T::node_type;
    else
        return PFSTRING;
}

/* Reads the value at an address of a table or index of a list; the fallback if it is missing. */
template <parameter T, class F>
T read_parameter(Pf *pf, const char *address, F &&fallback)
{
    Pf *node = nullptr;
    const bool evaluated = pfresolve(pf, address, 0, &node) == PFFUNCTION;
    if (!node || node->type == PFANY)
        return static_cast<T>(std::forward<F>(fallback));
    // A getter would evaluate the function a second time.
    if (evaluated && node->type == node_type_of<T>())
        return read_result<T>(node);
    return read_parameter<T>(pf, address);
}

/* The getters of params and params_view. */
template <class Self>
class params_getters {
public:
    /*
     * Returns the value at an address such as "a{b}[2]" as a T. If it has the wrong type, or is
     * missing and T is neither a text nor a bool, the die function is called. Complains about a
     * text that cannot be converted.
     */
    template <parameter T>
    T get(zstring address) const
    {
        return read_parameter<T>(node(), address.c_str());
    }

    /*
     * The same, but returns the fallback if the value is missing, without a message. A function is
     * evaluated once; a complaint about its result names no address.
     *
     * The fallback has the type T, or a type that can be converted to it without loss: 3 for a long
     * or a double, a constant for a text. Other types do not compile, nor does a temporary string
     * for a std::string_view.
     */
    template <parameter T, class F = T>
    requires fallback_for<F, T> T get(zstring address, F &&fallback)
    const { return read_parameter<T>(node(), address.c_str(), std::forward<F>(fallback)); }

    /* pfget_size: reads a number followed by k, M, G, m or u. */
    double get_size(zstring address) const { return pfget_size(node(), address.c_str()); }

    /* _pfeval: whether there is a value of any type at an address; evaluates a function. */
    bool contains(zstring address) const
    {
        Pf *found = nullptr;
        _pfeval(node(), address.c_str(), &found, PFANY);
        return found != nullptr;
    }

    /* pfkeys: the keys of the table in order, borrowed from it. */
    list<const char *> keys() const { return list<const char *>(pfkeys(node())); }

    /* pf2string: the tree as parameter text. */
    text str() const { return text(pf2string(node())); }

private:
    Pf *node() const { return static_cast<const Self *>(this)->node(); }
};

}  // namespace detail

/*
 * A table in a tree. It is borrowed: valid until the table is freed or the function whose result it
 * is is evaluated again. Without a table (made from null) every value is missing, and no message is
 * reported.
 */
class params_view : public detail::params_getters<params_view> {
public:
    static constexpr int node_type = PFARR;

    params_view() = default;
    explicit params_view(Pf *pf) noexcept : pf_(pf) {}

    explicit operator bool() const noexcept { return pf_ != nullptr; }
    Pf *pf() const noexcept { return pf_; }

private:
    friend class detail::params_getters<params_view>;
    Pf *node() const noexcept { return pf_; }

    Pf *pf_ = nullptr;
};

/*
 * A list in a tree: a random-access range whose elements are read as T each time they are accessed.
 * It is borrowed, and valid as long as a params_view.
 *
 *     for (const int port : settings.get<stock::params_list<int>>("ports"))
 *         listen_on(port);
 */
template <class T>
class params_list {
    static_assert(parameter<T>, "the elements are of a type that parameters have");

public:
    static constexpr int node_type = PFTBL;

    class iterator {
    public:
        using iterator_concept = std::random_access_iterator_tag;
        using iterator_category = std::input_iterator_tag;  // it returns values, not references
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = T;

        iterator() = default;
        iterator(Pf *pf, difference_type i) noexcept : pf_(pf), i_(i) {}

        T operator*() const { return (*this)[0]; }
        T operator[](difference_type n) const
        {
            return detail::read_parameter<T>(pf_, pfindex(i_ + n));
        }

        iterator &operator+=(difference_type n) noexcept
        {
            i_ += n;
            return *this;
        }
        iterator &operator-=(difference_type n) noexcept { return *this += -n; }
        iterator &operator++() noexcept { return *this += 1; }
        iterator &operator--() noexcept { return *this -= 1; }
        iterator operator++(int) noexcept { return {pf_, i_++}; }
        iterator operator--(int) noexcept { return {pf_, i_--}; }

        friend iterator operator+(iterator a, difference_type n) noexcept { return a += n; }
        friend iterator operator+(difference_type n, iterator a) noexcept { return a += n; }
        friend iterator operator-(iterator a, difference_type n) noexcept { return a -= n; }
        friend difference_type operator-(const iterator &a, const iterator &b) noexcept
        {
            return a.i_ - b.i_;
        }
        friend bool operator==(const iterator &a, const iterator &b) noexcept
        {
            return a.i_ == b.i_;
        }
        friend auto operator<=>(const iterator &a, const iterator &b) noexcept
        {
            return a.i_ <=> b.i_;
        }

    private:
        Pf *pf_ = nullptr;
        difference_type i_ = 0;
    };
    using const_iterator = iterator;

    params_list() = default;
    explicit params_list(Pf *pf) noexcept : pf_(pf) {}

    explicit operator bool() const noexcept { return pf_ != nullptr; }
    Pf *pf() const noexcept { return pf_; }

    /* pfmaxtbl */
    std::size_t size() const noexcept { return static_cast<std::size_t>(pfmaxtbl(pf_)); }
    bool empty() const noexcept { return size() == 0; }
    iterator begin() const noexcept { return {pf_, 0}; }
    iterator end() const noexcept { return {pf_, pfmaxtbl(pf_)}; }
    /* Element i, counted from 0, which must exist. */
    T operator[](std::size_t i) const { return begin()[static_cast<std::ptrdiff_t>(i)]; }

private:
    Pf *pf_ = nullptr;
};

}  // namespace stock

/* An iterator refers to the tree, so it may outlive its params_list. */
template <class T>
inline constexpr bool std::ranges::enable_borrowed_range<stock::params_list<T>> = true;

namespace stock {

/* Where a value is written. */
struct params_place {
    std::string path;
    int line = 0; /* counted from 1 */
};

/*
 * Owns a parameter tree and frees it; values borrowed from the tree are then invalid.
 *
 * Reading a value expands references and evaluates functions, which changes the tree: only one
 * thread at a time may read values, even of a const object. An owner without a tree (made from
 * null, moved from, released) counts as an empty tree, and creates one when it needs it; getting a
 * number from it calls the die function, as for any missing number.
 */
class params : public detail::params_getters<params> {
public:
    /* A new, empty tree. */
    params() : params(pfnew(PFFILE)) {}
    /* Takes over a tree that a function returned; it may be null. */
    explicit params(Pf *owned) noexcept : pf_(owned) {}

    explicit operator bool() const noexcept { return pf_ != nullptr; }
    /* The top of the tree, which the object still owns. */
    Pf *pf() { return node(); }
    const Pf *pf() const { return node(); }
    operator params_view() const { return params_view(node()); }

    /*
     * Returns the tree, or null, and leaves the owner empty. The caller frees the tree with pffree.
     * If read() read the tree, its filename becomes null, because the owner's copy of the name is
     * freed.
     */
    [[nodiscard]] Pf *release() noexcept
    {
        Pf *pf = pf_.release();
        if (const text name = std::move(pf_.get_deleter().name); pf && name)
            pf->filename = nullptr;
        return pf;
    }

    /*
     * pfread: replaces the tree by a new one, read from all files of a name. The owner keeps a
     * copy of the name. Returns the result of pfread; if it is not 0, the tree holds what could be
     * read.
     */
    int read(zstring name)
    {
        text copy(static_cast<char *>(memdup(name.c_str(), std::strlen(name.c_str()) + 1)));
        Pf *pf = nullptr;
        const int status = pfread(copy.c_str(), &pf);
        pf_.reset(pf);
        pf_.get_deleter().name = std::move(copy);
        return status;
    }

    /*
     * pfwhere: the file and line that give the value at an address its text, of the files that
     * read() read. Returns nothing if there is no such value, or read() was not called.
     */
    std::optional<params_place> where(zstring address) const
    {
        char path[1024];
        params_place place;
        const char *name = node()->filename;
        if (!name || pfwhere(name, address.c_str(), path, &place.line) != 0)
            return {};
        place.path = path;
        return place;
    }

    /* pfcompile_counted: adds the text to the tree. Returns 0, or -2. */
    int compile(std::string_view parameters)
    {
        Pf *pf = node();
        const char *start = parameters.empty() ? "" : parameters.data();
        return pfcompile_counted(start, static_cast<long>(parameters.size()), &pf);
    }

    /* pfset: stores a text at an address. */
    int set(zstring address, zstring value)
    {
        return pfset(node(), address.c_str(), value.c_str());
    }

    /* pfwrite: writes the tree to a file. */
    int write(zstring path) const { return pfwrite(path.c_str(), node()); }

    /* pfdup */
    params copy() const { return params(pfdup(node())); }

private:
    friend class detail::params_getters<params>;

    struct Free {
        text name; /* the filename of a tree that read() read */
        void operator()(Pf *pf) const { pffree(pf); }
    };

    Pf *node() const
    {
        if (!pf_)
            pf_.reset(pfnew(PFFILE));
        return pf_.get();
    }

    mutable std::unique_ptr<Pf, Free> pf_; /* created by node() when it is first needed */
};

}  // namespace stock

#endif
