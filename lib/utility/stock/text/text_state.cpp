// The variables of this room: what each of them holds stands in text_state.h.

#include "text/text_state.h"

constinit stock::TextState stock::Text_state;
