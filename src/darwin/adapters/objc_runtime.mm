// libobjc and substrate behind the Runtime port; nothing here lets an exception reach the caller.
#include "darwin/adapters/objc_runtime.h"

#include "darwin/adapters/substrate.h"
#include "darwin/core/strings.h"

#import <Foundation/Foundation.h>

#include <dlfcn.h>

namespace qv::darwin {

ClassHandle ObjcRuntime::classNamed(const std::string &name) {
    return handleFromClass(objc_getClass(name.c_str()));
}

ClassHandle ObjcRuntime::classForRuntimeName(const std::string &name) {
    @autoreleasepool {
        NSString *text = toNSStringIfValid(name);
        return text == nil ? nullptr : handleFromClass(NSClassFromString(text));
    }
}

ClassHandle ObjcRuntime::classObjectOf(ClassHandle cls) {
    return handleFromClass(object_getClass((__bridge id)cls));
}

bool ObjcRuntime::instancesRespondToSelector(ClassHandle cls, const std::string &selector) {
    @try {
        return [classFromHandle(cls) instancesRespondToSelector:sel_registerName(selector.c_str())];
    } @catch (NSException *) {
        return false;
    }
}

bool ObjcRuntime::addMethod(ClassHandle cls, const std::string &selector, MethodImplementation implementation,
                            const std::string &typeSignature) {
    return class_addMethod(classFromHandle(cls), sel_registerName(selector.c_str()), implementation,
                           typeSignature.c_str());
}

void ObjcRuntime::replaceMethod(ClassHandle cls, const std::string &selector, MethodImplementation implementation,
                                MethodImplementation *orig) {
    // Without the loader's hooking library nothing is replaced, and every orig slot stays empty.
    if (&MSHookMessageEx == nullptr) {
        return;
    }
    MSHookMessageEx(classFromHandle(cls), sel_registerName(selector.c_str()), implementation, orig);
}

void ObjcRuntime::loadFramework(const std::string &path) {
    dlopen(path.c_str(), RTLD_LAZY);
}

void ObjcRuntime::log(const std::string &line) {
    @autoreleasepool {
        NSLog(@"%s", line.c_str());
    }
}

std::string ObjcRuntime::mainBundleIdentifier() {
    @autoreleasepool {
        return toStdStringOrEmpty(NSBundle.mainBundle.bundleIdentifier);
    }
}

} // namespace qv::darwin
