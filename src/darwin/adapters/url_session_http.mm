// Http over NSURLSession: fire-and-forget sends and blocking fetches for background queues.
#include "darwin/adapters/url_session_http.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"

#import <Foundation/Foundation.h>

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

NSURLSession *freshSession() {
    return [NSURLSession sessionWithConfiguration:NSURLSessionConfiguration.defaultSessionConfiguration];
}

} // namespace

void UrlSessionHttp::send(const HttpRequest &request) {
    guarded([&] {
        NSMutableURLRequest *made = urlRequest(request);
        if (made == nil) {
            return;
        }
        [[freshSession() dataTaskWithRequest:made
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
        [[freshSession() dataTaskWithRequest:made
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
