// The scanner of parameter text and its state.
//
// Each parse has a state of its own and holds no lock: it reports to the log, it may read
// from a pipe that somebody fills late, and a program's log function may parse in turn.

#pragma once

#include <array>
#include <cstddef>

#include "pf/parsing.h"
#include "pf/window.h"
#include "stock/pf.h"

namespace stock {

// What the text means where the scanner stands.
enum class LexState {
    key,    // in a PFARR: a key comes next
    value,  // behind a key, and throughout a PFTBL
};

struct Scanner {
    Scanner(Window &input, Pf *target, const char *filename, Buffer string)
        : window(input), Lex_pf(target), Pffilename(filename), String_buf(string.bytes),
          StringSz(string.size)
    {
    }
    Scanner(const Scanner &) = delete;
    Scanner &operator=(const Scanner &) = delete;

    Window &window;
    Pf *Lex_pf;  // the container that takes what is read
    std::array<Pf *, kMaxOpenContainers> Lex_stack{};
    int Lex_level = 0;        // containers of Lex_stack that are open
    int Lex_lineno = 1;       // of the line that is read next
    bool unfinished = false;  // a literal reached the end of the text
    bool at_line_start = true;
    LexState state = LexState::key;
    const char *Pffilename;
    char Lex_key[kMaxKeyBytes + 1] = "";
    std::size_t key_length = 0;

    // A value that differs from how it was written is put together here.
    char *String_buf;
    std::size_t StringSz;
    std::size_t string_length = 0;
};

// Scans to the end of the text. 0, or -1 on a syntax error, which was logged.
int PF_lex(Scanner &s);

}  // namespace stock
