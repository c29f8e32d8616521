// Answers for the maker's analytics component and the App Store delegate pass-throughs.
#include "darwin/core/hook_bodies.h"
#include "darwin/core/strings.h"
#include "settings/analytics_config.h"

#import <Foundation/Foundation.h>

#include <array>

namespace qv::darwin {
namespace {

NSString *answerFor(SEL selector) {
    const auto answer = analyticsAnswer(sel_getName(selector));
    if (!answer) {
        return nil;
    }
    return toNSString(*answer);
}

// Each configuration method answers by its own selector; orig is kept but never called.
NSString *analyticsAnswerBody(id /*self*/, SEL _cmd) {
    return answerFor(_cmd);
}

BOOL remoteMessagesEnabledBody(id /*self*/, SEL /*_cmd*/) {
    return remoteMessagesEnabled() ? YES : NO;
}

MethodImplementation origTweakGAID = nullptr;
MethodImplementation origTweakName = nullptr;
MethodImplementation origTweakVersion = nullptr;
MethodImplementation origTweakPackageId = nullptr;
MethodImplementation origTwitterHandle = nullptr;
MethodImplementation origTwitterMessage = nullptr;
MethodImplementation origMessagesEnabled = nullptr;
MethodImplementation origLoadApplication = nullptr;
MethodImplementation origDidBecomeActive = nullptr;
MethodImplementation origWillResignActive = nullptr;
MethodImplementation origWillTerminate = nullptr;

// The launch method's result type is the store's private business; a raw pointer passes whatever it returns
// through untouched, without reference counting.
void *appDelegateLoadApplication(id self, SEL _cmd, id options) {
    noteAppLifecycleEvent(AppLifecycleEvent::LoadApplication);
    return callable<void *(*)(id, SEL, id)>(origLoadApplication)(self, _cmd, options);
}

void appDelegateDidBecomeActive(id self, SEL _cmd, id application) {
    noteAppLifecycleEvent(AppLifecycleEvent::DidBecomeActive);
    callable<void (*)(id, SEL, id)>(origDidBecomeActive)(self, _cmd, application);
}

void appDelegateWillResignActive(id self, SEL _cmd, id application) {
    noteAppLifecycleEvent(AppLifecycleEvent::WillResignActive);
    callable<void (*)(id, SEL, id)>(origWillResignActive)(self, _cmd, application);
}

void appDelegateWillTerminate(id self, SEL _cmd, id application) {
    noteAppLifecycleEvent(AppLifecycleEvent::WillTerminate);
    callable<void (*)(id, SEL, id)>(origWillTerminate)(self, _cmd, application);
}

QV_HOOK_BODIES std::array kBindings{
    replacement<rowOf("QVGAAnalytics", "tweakGAID"), analyticsAnswerBody>(origTweakGAID),
    replacement<rowOf("QVGAAnalytics", "tweakName"), analyticsAnswerBody>(origTweakName),
    replacement<rowOf("QVGAAnalytics", "tweakVersion"), analyticsAnswerBody>(origTweakVersion),
    replacement<rowOf("QVGAAnalytics", "tweakPackageId"), analyticsAnswerBody>(origTweakPackageId),
    replacement<rowOf("QVGAAnalytics", "twitterHandle"), analyticsAnswerBody>(origTwitterHandle),
    replacement<rowOf("QVGAAnalytics", "twitterMessage"), analyticsAnswerBody>(origTwitterMessage),
    replacement<rowOf("QVRemoteMessageManager", "messagesEnabled"), remoteMessagesEnabledBody>(origMessagesEnabled),
    replacement<rowOf("ASAppDelegate", "_loadApplicationWithLaunchOptions:"), appDelegateLoadApplication>(
        origLoadApplication),
    replacement<rowOf("ASAppDelegate", "applicationDidBecomeActive:"), appDelegateDidBecomeActive>(origDidBecomeActive),
    replacement<rowOf("ASAppDelegate", "applicationWillResignActive:"), appDelegateWillResignActive>(
        origWillResignActive),
    replacement<rowOf("ASAppDelegate", "applicationWillTerminate:"), appDelegateWillTerminate>(origWillTerminate),
};

} // namespace

} // namespace qv::darwin
