// The Runtime port on the phone: libobjc for lookups and additions, the substrate's message hook for replacements.
#pragma once

#include "platform/runtime.h"

#import <objc/runtime.h>

namespace qv::darwin {

class ObjcRuntime final : public Runtime {
  public:
    ClassHandle classNamed(const std::string &name) override;
    ClassHandle classForRuntimeName(const std::string &name) override;
    ClassHandle classObjectOf(ClassHandle cls) override;
    bool instancesRespondToSelector(ClassHandle cls, const std::string &selector) override;
    bool addMethod(ClassHandle cls, const std::string &selector, MethodImplementation implementation,
                   const std::string &typeSignature) override;
    void replaceMethod(ClassHandle cls, const std::string &selector, MethodImplementation implementation,
                       MethodImplementation *orig) override;
    void loadFramework(const std::string &path) override;
    void log(const std::string &line) override;
    std::string mainBundleIdentifier() override;
};

// Casts between the port's opaque handles and the runtime's own types.
inline Class classFromHandle(ClassHandle handle) {
    return (__bridge Class)handle;
}
inline ClassHandle handleFromClass(Class cls) {
    return (__bridge ClassHandle)cls;
}
template <class Function> MethodImplementation implementation(Function function) {
    return reinterpret_cast<MethodImplementation>(function);
}
template <class Function> Function callable(MethodImplementation orig) {
    return reinterpret_cast<Function>(orig);
}

} // namespace qv::darwin
