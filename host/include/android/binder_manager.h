// Host stand-in for the NDK service manager: a registry of live services by instance name.
#pragma once

#include <android/binder_ibinder.h>

#ifdef __cplusplus
extern "C" {
#endif

binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance);
__attribute__((warn_unused_result)) AIBinder* AServiceManager_checkService(const char* instance);

#ifdef __cplusplus
}
#endif
