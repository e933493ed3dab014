// The camera pipeline's view of gralloc: buffer layouts, per-buffer operations and names.
#pragma once

#include <cutils/native_handle.h>

#include <string>

#include "GrallocRecords.h"

namespace zcam {

class IGrallocHelper {
public:
    virtual ~IGrallocHelper() = default;

    // Layout that a buffer of this request gets; `refresh` probes again.
    virtual int query(const GrallocRequest* request, GrallocStaticInfo* staticInfo,
                      bool refresh) const = 0;
    // Layout (and optionally the dma-buf descriptor) of an existing buffer.
    virtual int query(buffer_handle_t buffer, GrallocStaticInfo* staticInfo,
                      NSCam::GrallocDynamicInfo* dynamicInfo) const = 0;
    virtual int setDirtyCamera(buffer_handle_t buffer) const = 0;
    virtual int setColorspace(buffer_handle_t buffer, int dataspace) const = 0;
    virtual int setBufferSOF(buffer_handle_t buffer, unsigned long timestamp) const = 0;
    virtual std::string queryPixelFormatName(int format) const = 0;
    virtual std::string queryGrallocUsageName(int usage) const = 0;
    virtual std::string queryDataspaceName(int dataspace) const = 0;
    virtual int getGrallocExtraFormat(int format, unsigned long usage) = 0;
    virtual void dumpToLog() const = 0;
    virtual bool importBuffer(buffer_handle_t& buffer, bool deleteRaw) = 0;
    virtual int freeBuffer(buffer_handle_t buffer) = 0;
    virtual int lock(buffer_handle_t buffer, unsigned int usage, int width, int height,
                     void** outData) = 0;
    virtual int unlock(buffer_handle_t buffer) = 0;
    virtual int setBufferStatus(buffer_handle_t buffer, int mask, int value) const = 0;
    virtual void clearMap() = 0;
};

}  // namespace zcam
