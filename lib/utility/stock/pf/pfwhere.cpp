// pfwhere: the file and the line that give the value at an address its text.
//
// Trees keep no places, so the files of the name are scanned again. PlaceFinder, a sink of the
// scanner, makes no tree. It follows the address from container to container and notes where
// the value is set. When a later line sets the value, or a container around it, once more, the
// note changes.

#include "stock/pf.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>

#include "base/ascii.h"
#include "base/descriptor.h"
#include "base/guards.h"
#include "base/limits.h"
#include "pf/address.h"
#include "pf/parsing.h"
#include "pf/pf_state.h"
#include "pf/scan.h"
#include "stock/elog.h"
#include "stock/restat.h"
#include "stock/strings.h"

namespace {

using stock::Kept_buffers;

// ---- The address ----

// A step from a container to what it holds.
struct AddressStep {
    std::string_view key;  // in a table
    int index = -1;        // in a list; below 0: the step is a key
};

// The steps of an address. No value in a text lies more than kMost steps deep: steps beyond
// are counted, but not kept.
class Steps {
public:
    static constexpr int kMost = stock::kMaxOpenContainers + 1;

    // Reads an address. False when it cannot lead to a value.
    bool read(const char *text)
    {
        bool leading_brace = false;  // "{a}" is the plain key a
        while (*text) {
            const stock::AddressComponent component = stock::next_component(text, count_ > 0);
            switch (component.part) {
            case stock::AddressPart::blanks: break;
            case stock::AddressPart::plain_key: add({component.key}); break;
            case stock::AddressPart::braced_key:
                add({stock::trimmed(component.key, stock::is_blank)
                         .substr(0, stock::kMaxBracedBytes)});
                break;
            case stock::AddressPart::index:
                if (component.index < 0)
                    return false;
                add({{}, component.index});
                break;
            case stock::AddressPart::stray:
                if (*text != (leading_brace ? '}' : '{') || (count_ > 0 && !leading_brace))
                    return false;
                leading_brace = !leading_brace;
            }
            text += component.length;
        }
        return count_ > 0 && !leading_brace;
    }

    int count() const { return count_; }

    // Step i, where i is less than count() and kMost.
    const AddressStep &operator[](int i) const { return steps_[static_cast<std::size_t>(i)]; }

private:
    void add(AddressStep step)
    {
        if (count_ < kMost)
            steps_[static_cast<std::size_t>(count_)] = step;
        ++count_;
    }

    std::array<AddressStep, kMost> steps_{};
    int count_ = 0;
};

// ---- The sink ----

class PlaceFinder {
public:
    enum class Value { text, function };

    explicit PlaceFinder(const Steps &steps) : steps_(steps) {}
    PlaceFinder(const PlaceFinder &) = delete;
    PlaceFinder &operator=(const PlaceFinder &) = delete;

    // Call it before the scan of each file. The path must live as long as the finder.
    void begin_file(const char *path)
    {
        path_ = path;
        line_ = 1;
        depth_ = steps_taken_ = 0;
    }

    // The file that gave the value its text, null when there is no value; and the line.
    const char *found_path() const { return found_path_; }
    int found_line() const { return found_line_; }

    bool in_list() const { return containers_[static_cast<std::size_t>(depth_)].is_list; }
    int open_containers() const { return depth_; }

    void token() { token_line_ = line_; }
    void taken(const char *from, const char *to)
    {
        line_ += static_cast<int>(std::count(from, to, '\n'));
    }
    void key(std::string_view key)
    {
        key_ = key;
        key_line_ = token_line_;
    }

    static Value no_text() { return Value::text; }
    static Value plain_text(std::string_view, std::size_t, bool) { return Value::text; }
    static Value literal(std::string_view, std::size_t) { return Value::text; }
    static Value function(std::string_view, bool) { return Value::function; }

    // Meant: a step at a function stays at the function, as in pfresolve.
    void store(Value value, int) { begin_value(value == Value::function); }

    void undefine()
    {
        if (depth_ != steps_taken_)
            return;
        int &count = containers_[static_cast<std::size_t>(depth_)].count;
        const bool taken_away = in_list() ? count > 0 && --count == step().index : is_on_way();
        if (taken_away)
            found_path_ = nullptr;
    }

    void open(stock::ContainerKind kind, int)
    {
        const bool inwards = begin_value(false) && depth_ + 1 < steps_.count();
        ++depth_;
        containers_[static_cast<std::size_t>(depth_)] = {kind == stock::ContainerKind::list, 0};
        if (inwards)
            steps_taken_ = depth_;
    }

    void close()
    {
        --depth_;
        steps_taken_ = std::min(steps_taken_, depth_);
    }

    // Only the place of a value counts, not its text.
    static void start_gathering() {}
    static void gather(std::string_view) {}
    static std::string_view gathered() { return {}; }

    static void newline_missing() {}
    static void unfinished_literal() {}
    static void end_mark() {}
    static bool stray_brace(int) { return false; }
    static bool too_deep(int) { return false; }

private:
    struct Container {
        bool is_list = false;
        int count = 0;  // elements of a list so far
    };

    // The step that leads on from the innermost container. The container must be on the way.
    const AddressStep &step() const { return steps_[depth_]; }

    // Whether the value under the last key, or the next element of the list, is the one that
    // step() leads to.
    bool is_on_way() const
    {
        if (in_list())
            return step().index == containers_[static_cast<std::size_t>(depth_)].count;
        return step().index < 0 && step().key == key_;
    }

    // Called when a value is set. When it is on the way, what was noted is replaced, and the
    // result is true. `ends_the_way` says that no step leads on from it.
    bool begin_value(bool ends_the_way)
    {
        if (depth_ != steps_taken_)
            return false;
        const bool on_way = is_on_way();
        if (on_way) {
            const bool is_it = ends_the_way || depth_ + 1 == steps_.count();
            found_path_ = is_it ? path_ : nullptr;
            found_line_ = in_list() ? token_line_ : key_line_;
        }
        ++containers_[static_cast<std::size_t>(depth_)].count;
        return on_way;
    }

    const Steps &steps_;
    const char *path_ = nullptr;
    int line_ = 1;  // where the scanner stands
    int token_line_ = 1;
    int key_line_ = 1;
    std::string_view key_;

    // The top level and the open containers, the innermost at depth_. Those up to steps_taken_
    // are on the way, and the others are not.
    std::array<Container, Steps::kMost> containers_{};
    int depth_ = 0;
    int steps_taken_ = 0;

    const char *found_path_ = nullptr;
    int found_line_ = 0;
};

// ---- The files ----

// Scans a file as far as a parse of it goes. A syntax error is not reported: pfread has
// reported it. A file that cannot be opened is left out, as pfread does.
void scan_file(const char *path, PlaceFinder &finder)
{
    const stock::Fd fd(stock::beyond_standard(reopen(path, O_RDONLY | O_CLOEXEC)));
    if (fd.get() < 0)
        return;
    finder.begin_file(path);
    stock::Window window(stock::reader_of(fd.get()), take_kept(Kept_buffers.window));
    stock::TextScanner(window, finder).scan();
    if (window.error()) {
        errno = window.error();
        elog_log(1, "read failed in pf input routine for file %s", path);
    }
    keep(Kept_buffers.window, window.release());
}

}  // namespace

int pfwhere(const char *name, const char *address, char *path, int *line)
{
    const stock::KeepErrno keep_errno;
    const stock::CountedParse counted;
    Steps steps;
    Tbl *files = pffiles(name, 0);
    PlaceFinder finder(steps);
    if (files->count == 0)
        elog_log(0, "can't find parameter file %s", okstr(name));
    else if (address && steps.read(address))
        for (int64_t i = 0; i < files->count; ++i)
            scan_file(static_cast<const char *>(gettbl(files, i)), finder);
    const char *found = finder.found_path();
    if (found && path)
        std::snprintf(path, stock::kPathSize, "%s", found);
    if (found && line)
        *line = finder.found_line();
    if (!found && files->count > 0)
        elog_log(0, "no entry '%s' in parameter file %s", okstr(address), name);
    freetbl(files, std::free);
    return found ? 0 : -1;
}
