// Host stand-in for the NDK binder's owning wrappers.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_status.h>
#include <errno.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace ndk {

// One strong reference to a binder.
class SpAIBinder {
public:
    SpAIBinder() = default;
    SpAIBinder(std::nullptr_t) {}
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}  // adopts one reference
    SpAIBinder(const SpAIBinder& other) : mBinder(other.mBinder) {
        if (mBinder != nullptr) AIBinder_incStrong(mBinder);
    }
    SpAIBinder(SpAIBinder&& other) noexcept : mBinder(std::exchange(other.mBinder, nullptr)) {}
    SpAIBinder& operator=(const SpAIBinder& other) {
        if (this != &other) {
            if (other.mBinder != nullptr) AIBinder_incStrong(other.mBinder);
            set(other.mBinder);
        }
        return *this;
    }
    SpAIBinder& operator=(SpAIBinder&& other) noexcept {
        if (this != &other) set(std::exchange(other.mBinder, nullptr));
        return *this;
    }
    ~SpAIBinder() { set(nullptr); }

    AIBinder* get() const { return mBinder; }
    AIBinder** getR() { return &mBinder; }
    void set(AIBinder* binder) {
        AIBinder* old = std::exchange(mBinder, binder);
        if (old != nullptr) AIBinder_decStrong(old);
    }
    bool operator==(const SpAIBinder& other) const { return mBinder == other.mBinder; }
    bool operator!=(const SpAIBinder& other) const { return mBinder != other.mBinder; }

private:
    AIBinder* mBinder = nullptr;
};

namespace impl {

// Owns one resource of type T; move-only.
template <typename T, void (*Destroy)(T), T DEFAULT>
class ScopedAResource {
public:
    explicit ScopedAResource(T t = DEFAULT) : mT(t) {}
    ~ScopedAResource() { set(DEFAULT); }
    ScopedAResource(const ScopedAResource&) = delete;
    ScopedAResource& operator=(const ScopedAResource&) = delete;
    ScopedAResource(ScopedAResource&& other) noexcept : mT(other.release()) {}
    ScopedAResource& operator=(ScopedAResource&& other) noexcept {
        set(other.release());
        return *this;
    }

    T get() const { return mT; }
    T* getR() { return &mT; }
    void set(T t) {
        Destroy(mT);
        mT = t;
    }
    [[nodiscard]] T release() { return std::exchange(mT, DEFAULT); }

protected:
    T mT;
};

}  // namespace impl

class ScopedAStatus : public impl::ScopedAResource<AStatus*, AStatus_delete, nullptr> {
public:
    explicit ScopedAStatus(AStatus* status = nullptr) : ScopedAResource(status) {}
    ScopedAStatus(ScopedAStatus&&) = default;
    ScopedAStatus& operator=(ScopedAStatus&&) = default;

    bool isOk() const { return get() != nullptr && AStatus_isOk(get()); }
    binder_exception_t getExceptionCode() const { return AStatus_getExceptionCode(get()); }
    int32_t getServiceSpecificError() const { return AStatus_getServiceSpecificError(get()); }
    binder_status_t getStatus() const { return AStatus_getStatus(get()); }
    const char* getMessage() const { return AStatus_getMessage(get()); }
    std::string getDescription() const {
        if (get() == nullptr) return "(null status)";
        return "Status(" + std::to_string(getExceptionCode()) + ", " +
               std::to_string(getServiceSpecificError()) + "): '" + getMessage() + "'";
    }

    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromExceptionCode(binder_exception_t e) {
        return ScopedAStatus(AStatus_fromExceptionCode(e));
    }
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t e, const char* m) {
        return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(e, m));
    }
    static ScopedAStatus fromServiceSpecificError(int32_t e) {
        return ScopedAStatus(AStatus_fromServiceSpecificError(e));
    }
    static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t e, const char* m) {
        return ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(e, m));
    }
    static ScopedAStatus fromStatus(binder_status_t s) {
        return ScopedAStatus(AStatus_fromStatus(s));
    }
};

namespace internal {
// Closes an owned descriptor; a failed close is reported to syslog and never thrown.
inline void closeWithError(int fd) {
    if (fd == -1) return;
    if (close(fd) != 0) syslog(LOG_ERR, "Could not close FD %d: %s", fd, strerror(errno));
}
}  // namespace internal

class ScopedFileDescriptor : public impl::ScopedAResource<int, internal::closeWithError, -1> {
public:
    explicit ScopedFileDescriptor(int fd = -1) : ScopedAResource(fd) {}
    ScopedFileDescriptor(ScopedFileDescriptor&&) = default;
    ScopedFileDescriptor& operator=(ScopedFileDescriptor&&) = default;

    ScopedFileDescriptor dup() const { return ScopedFileDescriptor(::dup(get())); }
    bool operator==(const ScopedFileDescriptor& o) const { return get() == o.get(); }
    bool operator!=(const ScopedFileDescriptor& o) const { return get() != o.get(); }
    bool operator<(const ScopedFileDescriptor& o) const { return get() < o.get(); }
};

}  // namespace ndk
