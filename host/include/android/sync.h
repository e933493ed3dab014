// Host stand-in for libsync.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Waits for a fence to signal; timeout in milliseconds, -1 for no limit. */
int sync_wait(int fd, int timeout);

#ifdef __cplusplus
}
#endif
