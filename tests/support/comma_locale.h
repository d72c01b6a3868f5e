// A process with a decimal comma, whatever locales the machine has.

#pragma once

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

// For its scope the process writes 1.5 as "1,5". The locale is made on the spot:
// the file that the C library keeps its numeric category in, six fields of which
// decimal_point, thousands_sep and grouping are the first.
class CommaLocale {
public:
    CommaLocale()
    {
        const uint32_t header[] = {0x20031114, 6, 32, 34, 36, 40, 44, 48};
        std::string file(reinterpret_cast<const char *>(header), sizeof header);
        file.append(",\0.\0\3\0\0\0,\0\0\0.\0\0\0ANSI_X3.4-1968", 31);
        dir_.file("comma/LC_NUMERIC", file);
        setenv("LOCPATH", dir_.path().c_str(), 1);
        char text[8];
        EXPECT_NE(setlocale(LC_NUMERIC, "comma"), nullptr);
        snprintf(text, sizeof text, "%g", 1.5);
        EXPECT_STREQ(text, "1,5");
    }
    ~CommaLocale()
    {
        setlocale(LC_NUMERIC, "C");
        unsetenv("LOCPATH");
    }
    CommaLocale(const CommaLocale &) = delete;
    CommaLocale &operator=(const CommaLocale &) = delete;

private:
    const TempDir dir_;
};
