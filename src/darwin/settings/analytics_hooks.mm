// Answers for the maker's analytics component and the App Store delegate pass-throughs (rows 35 to 45).
#include "darwin/core/hook_bodies.h"
#include "settings/analytics_config.h"

#import <Foundation/Foundation.h>

namespace qv::darwin {
namespace {

NSString *answerFor(SEL selector) {
    const auto answer = analyticsAnswer(sel_getName(selector));
    if (!answer) {
        return nil;
    }
    return [[NSString alloc] initWithBytes:answer->data() length:answer->size() encoding:NSUTF8StringEncoding];
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

} // namespace

void bindAnalyticsBodies(HookBodies &bodies) {
    bodies["analyticsTweakGAID"] = replacement(analyticsAnswerBody, origTweakGAID);
    bodies["analyticsTweakName"] = replacement(analyticsAnswerBody, origTweakName);
    bodies["analyticsTweakVersion"] = replacement(analyticsAnswerBody, origTweakVersion);
    bodies["analyticsTweakPackageId"] = replacement(analyticsAnswerBody, origTweakPackageId);
    bodies["analyticsTwitterHandle"] = replacement(analyticsAnswerBody, origTwitterHandle);
    bodies["analyticsTwitterMessage"] = replacement(analyticsAnswerBody, origTwitterMessage);
    bodies["remoteMessagesEnabled"] = replacement(remoteMessagesEnabledBody, origMessagesEnabled);
    bodies["appDelegateLoadApplication"] = replacement(appDelegateLoadApplication, origLoadApplication);
    bodies["appDelegateDidBecomeActive"] = replacement(appDelegateDidBecomeActive, origDidBecomeActive);
    bodies["appDelegateWillResignActive"] = replacement(appDelegateWillResignActive, origWillResignActive);
    bodies["appDelegateWillTerminate"] = replacement(appDelegateWillTerminate, origWillTerminate);
}

} // namespace qv::darwin
