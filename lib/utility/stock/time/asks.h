// What times ask of higher rooms: the default formats, which lie in a parameter file.
// joins/time_asks.cpp answers.

#pragma once

namespace stock {

// The values of the public variables of stock/time.h from Strtime_format to Month_first.
struct TimeFormats {
    const char *time, *ydtime, *uydtime, *date;
    const char *ztime, *zydtime, *uzydtime, *zdate;  // the same with the zone's name
    int month_first;
};

// Reads the formats from "time_formats.pf". Their texts are never freed. Returns false when
// there is no such file. A format that is missing in it ends the process.
bool read_time_formats(TimeFormats &formats);

}  // namespace stock
