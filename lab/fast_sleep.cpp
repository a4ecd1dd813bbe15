// Preloaded (LD_PRELOAD) into the daemons of a fast lab (qorlab --fast), whose slow work an
// operator rehearsing it, or a test, cannot wait 300 s for. The daemon's schedule counts cycles,
// not time, and every cycle ends in sleep(Interval): here that pause lasts a twentieth, so the
// schedule itself runs unchanged, only sooner. The 15 s of silence stay 15 s.
#include <errno.h>
#include <time.h>
#include <unistd.h>

extern "C" unsigned int sleep(unsigned int seconds) {
  long long ns = static_cast<long long>(seconds) * 50'000'000;
  timespec ts{static_cast<time_t>(ns / 1'000'000'000), static_cast<long>(ns % 1'000'000'000)};
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
  return 0;
}
