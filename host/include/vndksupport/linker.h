// Host stand-in for libvndksupport.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

void* android_load_sphal_library(const char* name, int flag);
int android_unload_sphal_library(void* handle);
int android_is_in_vendor_process(void);

#ifdef __cplusplus
}
#endif
