// Host stand-in for the NDK binder's interface base classes.
#pragma once

#include <android/binder_auto_utils.h>

#include <memory>

namespace ndk {

// Base of binder objects that live in shared ownership.
class SharedRefBase : public std::enable_shared_from_this<SharedRefBase> {
public:
    virtual ~SharedRefBase() = default;

    template <class T, class... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        return std::shared_ptr<T>(new T(std::forward<Args>(args)...));
    }

    std::shared_ptr<SharedRefBase> ref() { return shared_from_this(); }
    template <typename CHILD>
    std::shared_ptr<CHILD> ref() {
        return std::static_pointer_cast<CHILD>(ref());
    }
};

class ICInterface : public SharedRefBase {
public:
    virtual SpAIBinder asBinder() = 0;
    virtual bool isRemote() = 0;
};

}  // namespace ndk

namespace ndk {

namespace host {
// A binder for a local object; the binder keeps the object alive. The host's counterpart of
// what a Bn class builds with AIBinder_new.
AIBinder* newLocalBinder(std::shared_ptr<ICInterface> object, const char* descriptor);
// The local object behind a binder of this descriptor, or null.
std::shared_ptr<ICInterface> localObject(AIBinder* binder, const char* descriptor);
}  // namespace host

// Local (service-side) implementation base of an interface.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
public:
    SpAIBinder asBinder() override {
        return SpAIBinder(
                host::newLocalBinder(this->template ref<ICInterface>(), INTERFACE::descriptor));
    }
    bool isRemote() override { return false; }
};

}  // namespace ndk
