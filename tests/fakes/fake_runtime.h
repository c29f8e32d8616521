// In-memory Runtime for tests: a set of classes with their own methods, and a record of everything installed.
#pragma once

#include "platform/runtime.h"

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace qv {

class FakeRuntime final : public Runtime {
  public:
    struct Event {
        enum class What { Add, Replace, LoadFramework, Log };
        What what;
        std::string className; // "+Name" for a class object
        std::string detail;    // selector, framework path or log line
        friend bool operator==(const Event &, const Event &) = default;
    };

    explicit FakeRuntime(std::string mainBundleIdentifier) : bundleIdentifier_(std::move(mainBundleIdentifier)) {}

    // What every method the fake's classes have (themselves or inherited) runs before anything replaces it.
    static void originalImplementation() {}

    // A class visible by its plain name and by the runtime's text lookup.
    void defineClass(const std::string &name) { classes_.try_emplace(name, FakeClass{name, {}, {}}); }
    // A module-qualified class: only the runtime's text lookup finds it.
    void defineRuntimeOnlyClass(const std::string &name) {
        defineClass(name);
        runtimeOnly_.insert(name);
    }
    // A class that appears only once the framework at path is loaded.
    void defineClassInFramework(const std::string &path, const std::string &name) {
        frameworkClasses_[path].push_back(name);
    }
    void defineInstanceMethod(const std::string &className, const std::string &selector) {
        defineClass(className);
        classes_.at(className).instanceMethods.insert(selector);
    }

    const std::vector<Event> &events() const { return events_; }

    ClassHandle classNamed(const std::string &name) override {
        return runtimeOnly_.count(name) != 0 ? nullptr : find(name);
    }
    ClassHandle classForRuntimeName(const std::string &name) override { return find(name); }
    ClassHandle classObjectOf(ClassHandle cls) override {
        const auto *fake = static_cast<const FakeClass *>(cls);
        return &classObjects_.try_emplace(fake->name, FakeClass{"+" + fake->name, {}, {}}).first->second;
    }
    bool instancesRespondToSelector(ClassHandle cls, const std::string &selector) override {
        return static_cast<const FakeClass *>(cls)->instanceMethods.count(selector) != 0;
    }
    bool addMethod(ClassHandle cls, const std::string &selector, MethodImplementation implementation,
                   const std::string &typeSignature) override {
        auto *fake = mutableClass(cls);
        events_.push_back({Event::What::Add, fake->name, selector});
        if (fake->instanceMethods.count(selector) != 0) {
            return false;
        }
        fake->instanceMethods.insert(selector);
        fake->signatures[selector] = typeSignature;
        implementations_[fake->name + " " + selector] = implementation;
        return true;
    }
    void replaceMethod(ClassHandle cls, const std::string &selector, MethodImplementation implementation,
                       MethodImplementation *orig) override {
        auto *fake = mutableClass(cls);
        events_.push_back({Event::What::Replace, fake->name, selector});
        auto &current = implementations_.try_emplace(fake->name + " " + selector, originalImplementation).first->second;
        *orig = current;
        current = implementation;
    }
    void loadFramework(const std::string &path) override {
        events_.push_back({Event::What::LoadFramework, {}, path});
        for (const std::string &name : frameworkClasses_[path]) {
            defineClass(name);
        }
    }
    void log(const std::string &line) override { events_.push_back({Event::What::Log, {}, line}); }
    std::string mainBundleIdentifier() override { return bundleIdentifier_; }

    // What a method of the class runs now; nothing for a method the fake never saw.
    MethodImplementation implementationOf(const std::string &className, const std::string &selector) const {
        const auto found = implementations_.find(className + " " + selector);
        return found == implementations_.end() ? nullptr : found->second;
    }

    std::string signatureOf(const std::string &className, const std::string &selector) const {
        const auto cls = classes_.find(className);
        if (cls == classes_.end()) {
            return {};
        }
        const auto signature = cls->second.signatures.find(selector);
        return signature == cls->second.signatures.end() ? std::string() : signature->second;
    }

  private:
    struct FakeClass {
        std::string name;
        std::set<std::string> instanceMethods;
        std::map<std::string, std::string> signatures;
    };

    ClassHandle find(const std::string &name) {
        const auto cls = classes_.find(name);
        return cls == classes_.end() ? nullptr : &cls->second;
    }
    FakeClass *mutableClass(ClassHandle cls) { return const_cast<FakeClass *>(static_cast<const FakeClass *>(cls)); }

    std::string bundleIdentifier_;
    std::map<std::string, FakeClass> classes_;
    std::map<std::string, FakeClass> classObjects_;
    std::set<std::string> runtimeOnly_;
    std::map<std::string, std::vector<std::string>> frameworkClasses_;
    std::map<std::string, MethodImplementation> implementations_;
    std::vector<Event> events_;
};

} // namespace qv
