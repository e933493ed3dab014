// Host stand-in for the NDK binder object.
#pragma once

#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif

struct AIBinder;
typedef struct AIBinder AIBinder;

void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);
bool AIBinder_isRemote(const AIBinder* binder);

#ifdef __cplusplus
}
#endif
