// Host stand-in for libcutils' system properties.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

int property_get(const char* key, char* value, const char* default_value);
int32_t property_get_int32(const char* key, int32_t default_value);
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif
