// libcurl behind the Http port.
#include "posix/curl_http.h"

#include <curl/curl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

namespace qv::posix {

namespace {

constexpr long kMaxRedirects = 8;
constexpr double kMillisecondsPerSecond = 1000.0;

void initialiseCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct Reply {
    std::string body;
    bool tooLarge = false;
};

std::size_t appendReply(char *data, std::size_t size, std::size_t count, void *context) {
    auto *reply = static_cast<Reply *>(context);
    const std::size_t bytes = size * count;
    if (reply->body.size() + bytes > CurlHttp::kMaxReplyBytes) {
        reply->tooLarge = true;
        return 0;
    }
    reply->body.append(data, bytes);
    return bytes;
}

// "host:port" of an absolute URL, as a person names the machine they could not reach.
std::string authorityOf(const std::string &url) {
    const auto scheme = url.find("://");
    const std::size_t start = scheme == std::string::npos ? 0 : scheme + 3;
    std::string authority = url.substr(start, url.find_first_of("/?#", start) - start);
    const auto credentials = authority.rfind('@');
    if (credentials != std::string::npos) {
        authority.erase(0, credentials + 1);
    }
    return authority;
}

std::string secondsText(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", seconds);
    return text;
}

std::string failureText(CURLcode code, const std::string &url, double timeoutSeconds) {
    const std::string reason = curl_easy_strerror(code);
    switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
        return "timed out after " + secondsText(timeoutSeconds) + " s (" + url + ")";
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_CONNECT:
        return "cannot reach " + authorityOf(url) + " (" + reason + ")";
    default:
        return "no usable reply from " + authorityOf(url) + " (" + reason + ")";
    }
}

// Only a request that changes nothing may go on to wherever a redirect points; a POST to another origin could hand
// its body to a party the caller never chose.
bool followsRedirects(const HttpRequest &request) {
    return request.method == "GET" || request.method == "HEAD";
}

struct CurlDeleter {
    void operator()(CURL *handle) const { curl_easy_cleanup(handle); }
};
struct HeaderListDeleter {
    void operator()(curl_slist *list) const { curl_slist_free_all(list); }
};

} // namespace

CurlHttp::CurlHttp() {
    initialiseCurlOnce();
}

CurlHttp::CurlHttp(double timeoutSeconds) : timeoutSeconds_(timeoutSeconds) {
    initialiseCurlOnce();
}

CurlHttp::~CurlHttp() {
    waitForSends();
}

HttpResult CurlHttp::fetch(const HttpRequest &request) {
    const std::unique_ptr<CURL, CurlDeleter> handle(curl_easy_init());
    if (!handle) {
        return HttpResult{0, {}, "could not start a transfer"};
    }
    CURL *curl = handle.get();
    curl_slist *headerList = nullptr;
    for (const auto &[name, value] : request.headers) {
        std::string line = name;
        line.append(": ").append(value);
        if (curl_slist *longer = curl_slist_append(headerList, line.c_str())) {
            headerList = longer;
        }
    }
    const std::unique_ptr<curl_slist, HeaderListDeleter> headers(headerList);
    Reply reply;
    curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    static const std::string kNoBody;
    const std::string &body = request.body ? *request.body : kNoBody;
    if (request.method == "POST") {
        curl_easy_setopt(curl, CURLOPT_POST, 1L);
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
    }
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    const double timeoutSeconds = timeoutSeconds_.value_or(request.timeoutSeconds);
    // Never 0, which would mean no limit at all.
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS,
                     std::max(1L, static_cast<long>(std::lround(timeoutSeconds * kMillisecondsPerSecond))));
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, followsRedirects(request) ? 1L : 0L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, kMaxRedirects);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, appendReply);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply);

    const CURLcode code = curl_easy_perform(curl);
    if (reply.tooLarge) {
        return HttpResult{0,
                          {},
                          "the reply from " + request.url + " is larger than the limit of " +
                              std::to_string(kMaxReplyBytes) + " bytes"};
    }
    if (code != CURLE_OK) {
        return HttpResult{0, {}, failureText(code, request.url, timeoutSeconds)};
    }
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    return HttpResult{static_cast<int>(status), std::move(reply.body), std::nullopt};
}

void CurlHttp::send(const HttpRequest &request) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++inFlight_;
    }
    senders_.async([this, request] {
        HttpResult result = fetch(request);
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            completed_.push_back(SentRequest{request, std::move(result)});
            --inFlight_;
        }
        idle_.notify_all();
    });
}

void CurlHttp::waitForSends() {
    std::unique_lock<std::mutex> lock(mutex_);
    idle_.wait(lock, [this] { return inFlight_ == 0; });
}

std::vector<SentRequest> CurlHttp::completedSends() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return completed_;
}

} // namespace qv::posix
