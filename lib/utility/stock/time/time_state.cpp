// The state of the process that times have: time_state.h and stock/time.h say what each
// object holds.

#include "time/time_state.h"

#include "stock/time.h"

const char *Strtime_format = stock::kMonthFirstFormats.time;
const char *Strydtime_format = stock::kMonthFirstFormats.ydtime;
const char *UStrydtime_format = stock::kMonthFirstFormats.uydtime;
const char *Strdate_format = stock::kMonthFirstFormats.date;
const char *ZStrtime_format = stock::kMonthFirstFormats.ztime;
const char *ZStrydtime_format = stock::kMonthFirstFormats.zydtime;
const char *UZStrydtime_format = stock::kMonthFirstFormats.uzydtime;
const char *ZStrdate_format = stock::kMonthFirstFormats.zdate;
int Month_first = stock::kMonthFirstFormats.month_first;
int Unset_formats = 1;

namespace stock {

constinit ZoneSwitch Zone_switch;
constinit OrderedLock Formats_lock{Place::formats};
constinit thread_local bool Reading_formats = false;

}  // namespace stock
