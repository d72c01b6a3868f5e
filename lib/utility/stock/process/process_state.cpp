// The variables of the room process; process_state.h says what they are and what guards them.

#include "process/process_state.h"

namespace stock {

constinit SignalRecord Signal_by_number = {};
constinit SignalRecord Signal_by_name = {};
constinit UserLibrary The_user_library = {};

}  // namespace stock
