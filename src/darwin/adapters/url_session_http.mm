// Http over NSURLSession: fire-and-forget sends and blocking fetches for background queues.
#include "darwin/adapters/url_session_http.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"

#import <Foundation/Foundation.h>

// A report's body goes only to the address it was made for: a redirect is followed by reads alone, and anything
// else gets the redirect itself as its reply.
@interface QVRedirectPolicy : NSObject <NSURLSessionTaskDelegate>
@end

@implementation QVRedirectPolicy

- (void)URLSession:(NSURLSession *)session
                          task:(NSURLSessionTask *)task
    willPerformHTTPRedirection:(NSHTTPURLResponse *)response
                    newRequest:(NSURLRequest *)request
             completionHandler:(void (^)(NSURLRequest *))completionHandler {
    NSString *method = task.originalRequest.HTTPMethod ?: @"GET";
    const BOOL read = [method isEqualToString:@"GET"] || [method isEqualToString:@"HEAD"];
    completionHandler(read ? request : nil);
}

@end

namespace qv::darwin {

namespace {

NSMutableURLRequest *urlRequest(const HttpRequest &request) {
    NSURL *url = [NSURL URLWithString:toNSString(request.url)];
    if (url == nil) {
        return nil;
    }
    NSMutableURLRequest *made = [NSMutableURLRequest requestWithURL:url
                                                        cachePolicy:NSURLRequestUseProtocolCachePolicy
                                                    timeoutInterval:request.timeoutSeconds];
    for (const auto &[name, value] : request.headers) {
        [made addValue:toNSString(value) forHTTPHeaderField:toNSString(name)];
    }
    made.HTTPMethod = toNSString(request.method);
    if (request.body) {
        made.HTTPBody = [NSData dataWithBytes:request.body->data() length:request.body->size()];
    }
    return made;
}

// One session for the process, never invalidated: a session per request would keep each one alive until exit.
NSURLSession *sharedSession() {
    static NSURLSession *session =
        [NSURLSession sessionWithConfiguration:NSURLSessionConfiguration.defaultSessionConfiguration
                                      delegate:[QVRedirectPolicy new]
                                 delegateQueue:nil];
    return session;
}

} // namespace

void UrlSessionHttp::send(const HttpRequest &request) {
    guarded([&] {
        NSMutableURLRequest *made = urlRequest(request);
        if (made == nil) {
            return;
        }
        [[sharedSession() dataTaskWithRequest:made
                            completionHandler:^(NSData *, NSURLResponse *, NSError *){
                            }] resume];
    });
}

HttpResult UrlSessionHttp::fetch(const HttpRequest &request) {
    HttpResult result;
    result.error = "request could not be made";
    guarded([&] {
        NSMutableURLRequest *made = urlRequest(request);
        if (made == nil) {
            result.error = "bad URL " + request.url;
            return;
        }
        dispatch_semaphore_t done = dispatch_semaphore_create(0);
        __block NSData *received = nil;
        __block NSURLResponse *response = nil;
        __block NSError *failure = nil;
        [[sharedSession() dataTaskWithRequest:made
                            completionHandler:^(NSData *data, NSURLResponse *answer, NSError *error) {
                              received = data;
                              response = answer;
                              failure = error;
                              dispatch_semaphore_signal(done);
                            }] resume];
        dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
        if (failure != nil) {
            result.error = toStdString(failure.localizedDescription).value_or("request failed");
            return;
        }
        result.error.reset();
        if ([response isKindOfClass:NSHTTPURLResponse.class]) {
            result.status = static_cast<int>(static_cast<NSHTTPURLResponse *>(response).statusCode);
        }
        if (received != nil) {
            result.body.assign(static_cast<const char *>(received.bytes), received.length);
        }
    });
    return result;
}

} // namespace qv::darwin
