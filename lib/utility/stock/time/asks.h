// The default formats of times, and where they are read.

#pragma once

namespace stock {

struct TimeFormats {
    const char *time, *ydtime, *uydtime, *date;
    const char *ztime, *zydtime, *uzydtime, *zdate;  // the same with the zone's name
    int month_first;
};

// Reads the formats of "time_formats.pf", kept for the life of the process; false
// when there is no such file. A format missing in it ends the process.
bool read_time_formats(TimeFormats &formats);

}  // namespace stock
