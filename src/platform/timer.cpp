// Timers as timerfd descriptors; see timer.h.
#include "platform/timer.h"

#include <sys/timerfd.h>
#include <unistd.h>

uint32_t EXTRA_ADD_TIMER(unsigned seconds) {
  int fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  if (fd <= 0) return 0;  // descriptor 0 would read as "no timer"
  struct itimerspec when = {};
  when.it_value.tv_sec = seconds;
  if (seconds == 0) when.it_value.tv_nsec = 1;
  if (timerfd_settime(fd, 0, &when, nullptr) != 0) {
    close(fd);
    return 0;
  }
  return static_cast<uint32_t>(fd);
}

void EXTRA_KILL_TIMER(uint32_t timer) {
  if (timer != 0) close(static_cast<int>(timer));
}
