// Host stand-in for libutils' clocks.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int64_t nsecs_t;

enum {
    SYSTEM_TIME_REALTIME = 0,
    SYSTEM_TIME_MONOTONIC = 1,
    SYSTEM_TIME_PROCESS = 2,
    SYSTEM_TIME_THREAD = 3,
    SYSTEM_TIME_BOOTTIME = 4,
};

#ifdef __cplusplus
nsecs_t systemTime(int clock = SYSTEM_TIME_MONOTONIC);
#else
nsecs_t systemTime(int clock);
#endif

static inline nsecs_t ns2us(nsecs_t v) {
    return v / 1000;
}
static inline nsecs_t ns2ms(nsecs_t v) {
    return v / 1000000;
}

#ifdef __cplusplus
}
#endif
