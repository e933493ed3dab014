// Host stand-in for the vendor gralloc extension (libgralloc_extra): per-buffer attributes that
// the allocator reports, and vendor records that travel with the buffer.
#pragma once

#include <cutils/native_handle.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Attributes read with gralloc_extra_query. Integer attributes are written as 32-bit values,
// except the allocation size and the id (64-bit) and the SF-info record (64 bytes).
typedef enum GRALLOC_EXTRA_ATTRIBUTE_QUERY {
    GRALLOC_EXTRA_GET_ION_FD = 1,            // int: the buffer's dma-buf descriptor
    GRALLOC_EXTRA_GET_WIDTH = 10,            // int: pixels
    GRALLOC_EXTRA_GET_HEIGHT = 11,           // int: pixels
    GRALLOC_EXTRA_GET_STRIDE = 12,           // int: row stride in pixels
    GRALLOC_EXTRA_GET_VERTICAL_STRIDE = 13,  // int: rows allocated
    GRALLOC_EXTRA_GET_ALLOC_SIZE = 14,       // uint64: bytes
    GRALLOC_EXTRA_GET_FORMAT = 15,           // int: the format the buffer was allocated in
    GRALLOC_EXTRA_GET_USAGE = 17,            // uint32: usage bits
    GRALLOC_EXTRA_GET_ID = 50,               // uint64: identity of the buffer
    GRALLOC_EXTRA_GET_CONSUMER_USAGE = 51,   // uint32
    GRALLOC_EXTRA_GET_PRODUCER_USAGE = 52,   // uint32
    GRALLOC_EXTRA_GET_SF_INFO = 100,         // GrallocExtraSfInfo
} GRALLOC_EXTRA_ATTRIBUTE_QUERY;

typedef enum GRALLOC_EXTRA_ATTRIBUTE_PERFORM {
    GRALLOC_EXTRA_SET_SF_INFO = 100,   // GrallocExtraSfInfo
    GRALLOC_EXTRA_SET_SOF_TIME = 110,  // uint64: start-of-frame time
} GRALLOC_EXTRA_ATTRIBUTE_PERFORM;

// The per-buffer vendor record. `status` carries the colour space in its top three bits, the
// dirty-by-camera bits (0xC03) and the AFBC flag (bit 22).
typedef struct GrallocExtraSfInfo {
    uint32_t reserved[14];
    uint32_t status;
    uint32_t status2;
} GrallocExtraSfInfo;

#define GRALLOC_EXTRA_BIT_AFBC 0x00400000u

// 0 on success, negative on failure.
int gralloc_extra_query(buffer_handle_t handle, GRALLOC_EXTRA_ATTRIBUTE_QUERY attribute, void* out);
int gralloc_extra_perform(buffer_handle_t handle, GRALLOC_EXTRA_ATTRIBUTE_PERFORM attribute,
                          void* in);
// Sets the bits of `mask` in the record's status to those of `value`.
int gralloc_extra_sf_set_status(GrallocExtraSfInfo* sfInfo, int32_t mask, int32_t value);
// The platform's own format for an Android format and usage.
int gralloc_extra_get_platform_format(int format, uint64_t usage);

#ifdef __cplusplus
}
#endif
