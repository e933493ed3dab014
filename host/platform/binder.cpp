// The NDK binder on the host: statuses, local binders and a service manager that is a
// registry of live services by instance name.
#include <aidl/android/hardware/graphics/allocator/IAllocator.h>
#include <android/binder_manager.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>

#include <zyncam_host/Platform.h>

struct AStatus {
    binder_exception_t exception = EX_NONE;
    int32_t serviceSpecific = 0;
    binder_status_t status = STATUS_OK;
    std::string message;
};

struct AIBinder {
    std::atomic<int> strong{1};
    std::shared_ptr<ndk::ICInterface> local;
    std::string descriptor;
};

extern "C" {

AStatus* AStatus_newOk(void) {
    return new AStatus;
}
AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    return AStatus_fromExceptionCodeWithMessage(exception, "");
}
AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    auto* s = new AStatus;
    s->exception = exception;
    if (exception == EX_TRANSACTION_FAILED) s->status = STATUS_FAILED_TRANSACTION;
    s->message = message ? message : "";
    return s;
}
AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
    return AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, "");
}
AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
    auto* s = new AStatus;
    s->exception = EX_SERVICE_SPECIFIC;
    s->serviceSpecific = serviceSpecific;
    s->message = message ? message : "";
    return s;
}
AStatus* AStatus_fromStatus(binder_status_t status) {
    auto* s = new AStatus;
    if (status != STATUS_OK) {
        s->exception = EX_TRANSACTION_FAILED;
        s->status = status;
    }
    return s;
}
bool AStatus_isOk(const AStatus* status) {
    return status->exception == EX_NONE;
}
binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
    return status->exception;
}
int32_t AStatus_getServiceSpecificError(const AStatus* status) {
    return status->exception == EX_SERVICE_SPECIFIC ? status->serviceSpecific : 0;
}
binder_status_t AStatus_getStatus(const AStatus* status) {
    return status->exception == EX_TRANSACTION_FAILED ? status->status : STATUS_OK;
}
const char* AStatus_getMessage(const AStatus* status) {
    return status->message.c_str();
}
void AStatus_delete(AStatus* status) {
    delete status;
}

void AIBinder_incStrong(AIBinder* binder) {
    binder->strong.fetch_add(1, std::memory_order_relaxed);
}
void AIBinder_decStrong(AIBinder* binder) {
    if (binder->strong.fetch_sub(1, std::memory_order_acq_rel) == 1) delete binder;
}
bool AIBinder_isRemote(const AIBinder* /*binder*/) {
    return false;
}

}  // extern "C"

namespace ndk::host {

AIBinder* newLocalBinder(std::shared_ptr<ICInterface> object, const char* descriptor) {
    auto* binder = new AIBinder;
    binder->local = std::move(object);
    binder->descriptor = descriptor;
    return binder;
}

std::shared_ptr<ICInterface> localObject(AIBinder* binder, const char* descriptor) {
    if (binder == nullptr || binder->descriptor != descriptor) return nullptr;
    return binder->local;
}

}  // namespace ndk::host

namespace {

struct ServiceManager {
    std::mutex lock;
    std::map<std::string, ndk::SpAIBinder> services;
};

ServiceManager& serviceManager() {
    static auto* sm = new ServiceManager;  // outlives static destructors of service owners
    return *sm;
}

}  // namespace

extern "C" binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    if (binder == nullptr || instance == nullptr) return EX_ILLEGAL_ARGUMENT;
    AIBinder_incStrong(binder);
    ServiceManager& sm = serviceManager();
    std::lock_guard<std::mutex> lock(sm.lock);
    sm.services[instance] = ndk::SpAIBinder(binder);
    return EX_NONE;
}

extern "C" AIBinder* AServiceManager_checkService(const char* instance) {
    ServiceManager& sm = serviceManager();
    std::lock_guard<std::mutex> lock(sm.lock);
    auto it = sm.services.find(instance ? instance : "");
    if (it == sm.services.end()) return nullptr;
    AIBinder_incStrong(it->second.get());
    return it->second.get();
}

namespace zyncam::host {

ndk::SpAIBinder removeService(const char* instance) {
    ServiceManager& sm = serviceManager();
    std::lock_guard<std::mutex> lock(sm.lock);
    auto it = sm.services.find(instance);
    if (it == sm.services.end()) return nullptr;
    ndk::SpAIBinder binder = std::move(it->second);
    sm.services.erase(it);
    return binder;
}

}  // namespace zyncam::host

namespace aidl::android::hardware::graphics::allocator {

const char* IAllocator::descriptor = "android.hardware.graphics.allocator.IAllocator";

std::shared_ptr<IAllocator> IAllocator::fromBinder(const ::ndk::SpAIBinder& binder) {
    return std::static_pointer_cast<IAllocator>(ndk::host::localObject(binder.get(), descriptor));
}

}  // namespace aidl::android::hardware::graphics::allocator
