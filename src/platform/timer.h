// Platform timers. A timer handle is a timerfd descriptor; 0 means none.
#pragma once

#include <cstdint>

// A one-shot timer that fires after `seconds`; 0 when it cannot be made.
uint32_t EXTRA_ADD_TIMER(unsigned seconds);

// Releases a timer made by EXTRA_ADD_TIMER. 0 is ignored.
void EXTRA_KILL_TIMER(uint32_t timer);
