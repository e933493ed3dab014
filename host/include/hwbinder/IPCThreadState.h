// Host stand-in for the hardware binder's per-thread state.
#pragma once

#include <cstdint>

namespace android::hardware {

class IPCThreadState {
public:
    // The calling thread's state, created on first use; null when the thread has none.
    static IPCThreadState* self();
    // Hands queued commands to the driver (on the host: counts the flush).
    void flushCommands();

    IPCThreadState() = default;

private:
    uint64_t mFlushes = 0;  // this thread's flushes
};

}  // namespace android::hardware
