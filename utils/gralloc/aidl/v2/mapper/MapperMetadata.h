// The mapper adapter's typed standard-metadata accessors, private to the library and its tests:
// they need the platform's metadata encoders (IMapperMetadataTypes.h), which the public headers
// keep out of consumers' builds.
#pragma once

#include <aidl/android/hardware/graphics/common/StandardMetadataType.h>
#include <android/hardware/graphics/mapper/utils/IMapperMetadataTypes.h>

#include <cstdint>
#include <optional>

#include "GrallocMapperAidlV2.h"

namespace NSCam::GrallocMapperAidlV2 {

using StandardMetadataType = aidl::android::hardware::graphics::common::StandardMetadataType;

// What a standard metadata type decodes to; the HDR types are optional themselves (unset).
template <StandardMetadataType T>
using MetadataValue = typename android::hardware::graphics::mapper::StandardMetadata<T>::value_type;

// Instantiated in the library for reading PLANE_LAYOUTS, SMPTE2086, CTA861_3 and SMPTE2094_40,
// and for writing SMPTE2086, CTA861_3, SMPTE2094_40 and SMPTE2094_10. Thread safety as MapperV5.
class MapperMetadata {
public:
    // The decoded value of T on `buffer`, or nothing: when the mapper does not answer (an error
    // line unless it answers UNSUPPORTED) or its bytes do not decode. A payload over 512 bytes
    // costs a second mapper call.
    template <StandardMetadataType T>
    static std::optional<MetadataValue<T>> getStandardMetadata(const MapperV5& mapper,
                                                               const native_handle* buffer);
    // Encodes `value` and writes it: the mapper's AIMapper_Error, or the encoder's error code
    // (positive) with an error line when the value cannot be encoded.
    template <StandardMetadataType T>
    static int32_t setStandardMetadata(const MapperV5& mapper, const native_handle* buffer,
                                       const MetadataValue<T>& value);
};

}  // namespace NSCam::GrallocMapperAidlV2
