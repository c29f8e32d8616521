// The phone's Http port: the platform's URL session, one default-configured session per request.
#pragma once

#include "platform/http.h"

namespace qv::darwin {

class UrlSessionHttp final : public Http {
  public:
    void send(const HttpRequest &request) override;
    HttpResult fetch(const HttpRequest &request) override;
};

} // namespace qv::darwin
