// Wires every method and path of cpp-httplib to VersionService, and turns the library's own errors into JSON.
#include "server/http_front.h"

#include <httplib.h>

#include <algorithm>
#include <cctype>

#include "server/request_bodies.h"

namespace qv::server {

namespace {

constexpr int kMaxPort = 65535;
constexpr std::string_view kJsonType = "application/json";
constexpr int kFirstErrorStatus = 400;
constexpr std::size_t kKeepAliveRequests = 10000;

std::string messageForStatus(int status) {
    switch (status) {
    case status::kPayloadTooLarge:
        return std::string(errorMessage(ErrorCode::PayloadTooLarge));
    case status::kNotFound:
        return std::string(errorMessage(ErrorCode::NotFound));
    case status::kBadRequest:
        return std::string(errorMessage(ErrorCode::BadRequest));
    default:
        return "request failed with status " + std::to_string(status);
    }
}

} // namespace

HttpFront::HttpFront(VersionService &service) : service_(service), server_(std::make_unique<httplib::Server>()) {
    server_->set_payload_max_length(kMaxBodyBytes);
    // Replies go out in two writes (head, body); without this, delayed acknowledgements stall every reply.
    server_->set_tcp_nodelay(true);
    // Clients such as the phone's URL session keep connections open; closing every few requests costs a handshake.
    server_->set_keep_alive_max_count(kKeepAliveRequests);
    const auto handler = [this](const httplib::Request &request, httplib::Response &response) {
        ServiceRequest serviceRequest{request.method, request.path, {}, request.body, {}};
        for (const auto &[key, value] : request.params) {
            serviceRequest.query.emplace(key, value);
        }
        for (const auto &[name, value] : request.headers) {
            std::string lowerName = name;
            std::transform(lowerName.begin(), lowerName.end(), lowerName.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            serviceRequest.headers.emplace(std::move(lowerName), value);
        }
        const ServiceResponse reply = service_.handle(serviceRequest);
        response.status = reply.status;
        for (const auto &[name, value] : reply.headers) {
            response.set_header(name, value);
        }
        if (reply.status != status::kNotModified) {
            response.set_content(reply.body, std::string(kJsonType));
        }
    };
    const std::string everyPath = ".*";
    server_->Get(everyPath, handler);
    server_->Post(everyPath, handler);
    server_->Put(everyPath, handler);
    server_->Patch(everyPath, handler);
    server_->Delete(everyPath, handler);
    server_->Options(everyPath, handler);
    server_->set_error_handler([](const httplib::Request &, httplib::Response &response) {
        if (response.status >= kFirstErrorStatus && response.body.empty()) {
            response.set_content(errorResponse(response.status, messageForStatus(response.status)).body,
                                 std::string(kJsonType));
        }
    });
}

HttpFront::~HttpFront() {
    stop();
}

std::optional<int> HttpFront::bind(const std::string &host, int port) {
    const int bound = port == 0 ? server_->bind_to_any_port(host) : (server_->bind_to_port(host, port) ? port : -1);
    if (bound <= 0) {
        return std::nullopt;
    }
    return bound;
}

bool HttpFront::serve() {
    return server_->listen_after_bind();
}

void HttpFront::stop() {
    server_->stop();
}

bool HttpFront::running() const {
    return server_->is_running();
}

std::optional<std::pair<std::string, int>> parseListenAddress(const std::string &text) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return std::nullopt;
    }
    const auto port = identifierFrom(std::string_view(text).substr(colon + 1));
    if (!port || *port > kMaxPort) {
        return std::nullopt;
    }
    return std::make_pair(text.substr(0, colon), static_cast<int>(*port));
}

} // namespace qv::server
