// The file of the default formats. Until parameter files can be searched for there is none.

#include "internal/time_formats.h"

bool stock::read_time_formats(TimeFormats &)
{
    return false;
}
