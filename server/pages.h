// The service's pages for people: what each page shows, rendered from the templates in server/pages/.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "server/storage.h"

namespace qv::server {

struct HomePage {
    StorageTotals totals;
    std::vector<AppSummary> recent;
    std::string serviceAddress; // where clients reach this service, for the feeding instructions
};

struct SearchPage {
    std::string query;
    std::vector<AppSummary> results;
    std::string problem; // why the query was refused; empty when it ran
};

struct AppPage {
    AppSummary app;
    std::vector<VersionHistory> versions;
};

struct ProblemPage {
    std::string heading;
    std::string message;
};

// Every value is HTML-escaped as it goes into a page; templates hold the only markup. Fails with ServerFailed
// when a template does not parse, which the tests rule out for the templates built in.
class PageRenderer {
  public:
    Result<std::string> home(const HomePage &page) const;
    Result<std::string> search(const SearchPage &page) const;
    Result<std::string> app(const AppPage &page) const;
    Result<std::string> problem(const ProblemPage &page) const;
    std::string_view stylesheet() const;
};

// "2026-11-24 23:40 UTC" for seconds since the epoch, and the same instant as "2026-11-24T23:40:11Z".
std::string shownTime(std::int64_t seconds);
std::string isoTime(std::int64_t seconds);

} // namespace qv::server
