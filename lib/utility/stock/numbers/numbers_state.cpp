// The variables of this room: what each of them holds stands in numbers_state.h.

#include "numbers/numbers_state.h"

constinit stock::NumbersState stock::Numbers_state;
