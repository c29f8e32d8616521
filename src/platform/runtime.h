// Port to the platform's object runtime: class lookup, method installation and the few process facts start-up needs.
#pragma once

#include <string>
#include <type_traits>

namespace qv {

// Opaque handle of a class (or of a class object, for class methods); nullptr means "no such class".
using ClassHandle = const void *;
// Opaque method implementation, a function pointer like the runtime's own; bodies are cast to it and back only as
// function pointers, which keeps a signed (arm64e) pointer valid.
using MethodImplementation = void (*)();

template <class Pointer>
concept FunctionPointer = std::is_pointer_v<Pointer> && std::is_function_v<std::remove_pointer_t<Pointer>>;

class Runtime {
  public:
    Runtime() = default;
    Runtime(const Runtime &) = delete;
    Runtime &operator=(const Runtime &) = delete;
    virtual ~Runtime() = default;

    // The class registered under exactly this name.
    virtual ClassHandle classNamed(const std::string &name) = 0;
    // The class for a name as the runtime resolves it from text, which also finds module-qualified names.
    virtual ClassHandle classForRuntimeName(const std::string &name) = 0;
    // The class object that holds the class methods of cls.
    virtual ClassHandle classObjectOf(ClassHandle cls) = 0;
    virtual bool instancesRespondToSelector(ClassHandle cls, const std::string &selector) = 0;
    // Adds a method unless the class itself already defines one under that selector; true when added.
    virtual bool addMethod(ClassHandle cls, const std::string &selector, MethodImplementation implementation,
                           const std::string &typeSignature) = 0;
    // Swaps in a new implementation and stores the replaced one in *orig.
    virtual void replaceMethod(ClassHandle cls, const std::string &selector, MethodImplementation implementation,
                               MethodImplementation *orig) = 0;
    // Loads a framework binary once, with lazy binding; failure is not reported.
    virtual void loadFramework(const std::string &path) = 0;
    virtual void log(const std::string &line) = 0;
    virtual std::string mainBundleIdentifier() = 0;
};

} // namespace qv
