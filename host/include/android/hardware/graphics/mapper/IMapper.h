// Host stand-in for the stable C mapper interface (AIMapper, version 5).
#pragma once

// As the platform's header, this includes only the following: includers provide size_t and
// max_align_t (<stddef.h>) first.
#include <stdint.h>
#include <sys/cdefs.h>

#include <android/rect.h>
#include <cutils/native_handle.h>

// A device builds this with clang; gcc does not know clang's nullability qualifiers.
#if !defined(__clang__)
#define _Nonnull
#define _Nullable
#define _Null_unspecified
#endif

__BEGIN_DECLS

typedef enum AIMapper_Version : uint32_t {
    AIMAPPER_VERSION_5 = 5,
} AIMapper_Version;

typedef enum AIMapper_Error : int32_t {
    AIMAPPER_ERROR_NONE = 0,
    AIMAPPER_ERROR_BAD_DESCRIPTOR = 1,
    AIMAPPER_ERROR_BAD_BUFFER = 2,
    AIMAPPER_ERROR_BAD_VALUE = 3,
    AIMAPPER_ERROR_NO_RESOURCES = 5,
    AIMAPPER_ERROR_UNSUPPORTED = 7,
} AIMapper_Error;

typedef struct AIMapper_MetadataType {
    const char* _Nonnull name;
    int64_t value;
} AIMapper_MetadataType;

typedef struct AIMapper_MetadataTypeDescription {
    AIMapper_MetadataType metadataType;
    const char* _Nullable description;
    bool isGettable;
    bool isSettable;
    uint8_t reserved[32];
} AIMapper_MetadataTypeDescription;

typedef void (*AIMapper_DumpBufferCallback)(void* _Null_unspecified context,
                                            AIMapper_MetadataType metadataType,
                                            const void* _Nonnull value, size_t valueSize);
typedef void (*AIMapper_BeginDumpBufferCallback)(void* _Null_unspecified context);

typedef struct AIMapperV5 {
    AIMapper_Error (*_Nonnull importBuffer)(const native_handle_t* _Nonnull handle,
                                            buffer_handle_t _Nullable* _Nonnull outBufferHandle);
    AIMapper_Error (*_Nonnull freeBuffer)(buffer_handle_t _Nonnull buffer);
    AIMapper_Error (*_Nonnull getTransportSize)(buffer_handle_t _Nonnull buffer,
                                                uint32_t* _Nonnull outNumFds,
                                                uint32_t* _Nonnull outNumInts);
    AIMapper_Error (*_Nonnull lock)(buffer_handle_t _Nonnull buffer, uint64_t cpuUsage,
                                    ARect accessRegion, int acquireFence,
                                    void* _Nullable* _Nonnull outData);
    AIMapper_Error (*_Nonnull unlock)(buffer_handle_t _Nonnull buffer, int* _Nonnull releaseFence);
    AIMapper_Error (*_Nonnull flushLockedBuffer)(buffer_handle_t _Nonnull buffer);
    AIMapper_Error (*_Nonnull rereadLockedBuffer)(buffer_handle_t _Nonnull buffer);
    int32_t (*_Nonnull getMetadata)(buffer_handle_t _Nonnull buffer,
                                    AIMapper_MetadataType metadataType, void* _Nullable destBuffer,
                                    size_t destBufferSize);
    int32_t (*_Nonnull getStandardMetadata)(buffer_handle_t _Nonnull buffer,
                                            int64_t standardMetadataType,
                                            void* _Nullable destBuffer, size_t destBufferSize);
    AIMapper_Error (*_Nonnull setMetadata)(buffer_handle_t _Nonnull buffer,
                                           AIMapper_MetadataType metadataType,
                                           const void* _Nonnull metadata, size_t metadataSize);
    AIMapper_Error (*_Nonnull setStandardMetadata)(buffer_handle_t _Nonnull buffer,
                                                   int64_t standardMetadataType,
                                                   const void* _Nonnull metadata,
                                                   size_t metadataSize);
    AIMapper_Error (*_Nonnull listSupportedMetadataTypes)(
            const AIMapper_MetadataTypeDescription* _Nullable* _Nonnull outDescriptionList,
            size_t* _Nonnull outNumberOfDescriptions);
    AIMapper_Error (*_Nonnull dumpBuffer)(buffer_handle_t _Nonnull buffer,
                                          AIMapper_DumpBufferCallback _Nonnull dumpBufferCallback,
                                          void* _Null_unspecified context);
    AIMapper_Error (*_Nonnull dumpAllBuffers)(
            AIMapper_BeginDumpBufferCallback _Nonnull beginDumpCallback,
            AIMapper_DumpBufferCallback _Nonnull dumpBufferCallback,
            void* _Null_unspecified context);
    AIMapper_Error (*_Nonnull getReservedRegion)(buffer_handle_t _Nonnull buffer,
                                                 void* _Nullable* _Nonnull outReservedRegion,
                                                 uint64_t* _Nonnull outReservedSize);
} AIMapperV5;

typedef struct AIMapper {
#ifdef __cplusplus
    alignas(alignof(max_align_t)) AIMapper_Version version;
#else
    _Alignas(_Alignof(max_align_t)) AIMapper_Version version;
#endif
    AIMapperV5 v5;
} AIMapper;

AIMapper_Error AIMapper_loadIMapper(AIMapper* _Nullable* _Nonnull outImplementation);

__END_DECLS
