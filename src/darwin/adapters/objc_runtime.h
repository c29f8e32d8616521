// The Runtime port on the phone: libobjc for lookups and additions, the substrate's message hook for replacements.
#pragma once

#include "platform/runtime.h"

#import <objc/runtime.h>

#include <type_traits>

// On arm64e every C function pointer, IMP and objc_msgSend included, is signed with the same key and no type
// discriminator, so a cast between function pointer types keeps a pointer valid and libobjc and the substrate accept
// the library's IMPs. A compiler that discriminates by type would re-sign at each cast in a way they reject.
#if __has_feature(ptrauth_function_pointer_type_discrimination)
#error "IMPs shared with libobjc and the substrate need function pointers signed without a type discriminator"
#endif

namespace qv::darwin {

// The port's opaque implementation is the runtime's own IMP, so it reaches libobjc and the substrate uncast.
static_assert(std::is_same_v<MethodImplementation, IMP>);

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
// An IMP back as the method's own type: function pointer to function pointer only, never through an integer or a
// data pointer, which would strip or skip the signature.
template <FunctionPointer Function> Function callable(MethodImplementation orig) {
    return reinterpret_cast<Function>(orig);
}

} // namespace qv::darwin
