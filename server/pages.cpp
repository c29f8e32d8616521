// Renders the pages for people through mustache templates, which escape every value unless a template asks
// otherwise (none does).
#include "server/pages.h"

#include <kainjow/mustache.hpp>

#include <ctime>

#include "server/app_search.h"
#include "server/embedded_files.h"

namespace qv::server {

namespace {

using kainjow::mustache::data;
using kainjow::mustache::mustache;
using kainjow::mustache::partial;

constexpr std::string_view kUnknownVersion = "Unknown version";

std::string_view fileNamed(std::string_view name) {
    for (const auto &file : embeddedPageFiles()) {
        if (file.name == name) {
            return file.contents;
        }
    }
    return {};
}

std::string formatted(std::int64_t seconds, const char *format) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if (gmtime_r(&time, &parts) == nullptr) {
        return {};
    }
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, format, &parts);
    return std::string(text, length);
}

std::string noun(std::int64_t count, const char *singular, const char *plural) {
    return count == 1 ? singular : plural;
}

// The header's search box shows the query it answered.
data pageData(std::string_view title, std::string_view query) {
    data page;
    page.set("title", std::string(title));
    page.set("query", std::string(query));
    page.set("maxQueryBytes", std::to_string(kMaxSearchQueryBytes));
    return page;
}

data appRow(const AppSummary &app) {
    data row;
    row.set("appId", std::to_string(app.appId));
    row.set("title", app.title);
    row.set("bundleId", app.bundleId);
    row.set("newest", app.newestDisplay);
    row.set("lastReported", shownTime(app.lastReportedAt));
    row.set("lastReportedIso", isoTime(app.lastReportedAt));
    return row;
}

data appRows(const std::vector<AppSummary> &apps) {
    data rows{data::type::list};
    for (const auto &app : apps) {
        rows.push_back(appRow(app));
    }
    return rows;
}

Result<std::string> render(std::string_view templateName, data &values) {
    mustache page{std::string(fileNamed(templateName))};
    if (!page.is_valid()) {
        return fail(ErrorCode::ServerFailed, std::string(templateName) + ": " + page.error_message());
    }
    values.set("header", partial([] { return std::string(fileNamed("header.mustache")); }));
    values.set("footer", partial([] { return std::string(fileNamed("footer.mustache")); }));
    std::string html = page.render(values);
    if (!page.is_valid()) {
        return fail(ErrorCode::ServerFailed, std::string(templateName) + ": " + page.error_message());
    }
    return html;
}

} // namespace

std::string shownTime(std::int64_t seconds) {
    return formatted(seconds, "%Y-%m-%d %H:%M UTC");
}

std::string isoTime(std::int64_t seconds) {
    return formatted(seconds, "%Y-%m-%dT%H:%M:%SZ");
}

Result<std::string> PageRenderer::home(const HomePage &page) const {
    data values = pageData("Start", "");
    values.set("apps", std::to_string(page.totals.apps));
    values.set("appsNoun", noun(page.totals.apps, "app", "apps"));
    values.set("versions", std::to_string(page.totals.versions));
    values.set("versionsNoun", noun(page.totals.versions, "version", "versions"));
    values.set("empty", page.totals.apps == 0);
    values.set("serviceAddress", page.serviceAddress);
    values.set("recent", appRows(page.recent));
    return render("home.mustache", values);
}

Result<std::string> PageRenderer::search(const SearchPage &page) const {
    data values = pageData("Search: " + page.query, page.query);
    if (!page.problem.empty()) {
        values.set("problem", page.problem);
    } else {
        const auto count = static_cast<std::int64_t>(page.results.size());
        std::string summary =
            count == 0 ? "No app matches " : std::to_string(count) + (count == 1 ? " app matches " : " apps match ");
        summary += "“" + page.query + "”";
        if (page.results.size() == kMaxSearchResults) {
            summary += "; the most recently reported " + std::to_string(kMaxSearchResults) +
                       " are shown, add a word to narrow it down";
        }
        values.set("summary", summary + ".");
        values.set("results", appRows(page.results));
        values.set("none", page.results.empty());
    }
    return render("search.mustache", values);
}

Result<std::string> PageRenderer::app(const AppPage &page) const {
    data values = pageData(page.app.title, "");
    values.set("title", page.app.title);
    values.set("bundleId", page.app.bundleId);
    values.set("appId", std::to_string(page.app.appId));
    values.set("firstReported", shownTime(page.app.firstReportedAt));
    values.set("firstReportedIso", isoTime(page.app.firstReportedAt));
    values.set("lastReported", shownTime(page.app.lastReportedAt));
    values.set("lastReportedIso", isoTime(page.app.lastReportedAt));
    const auto count = static_cast<std::int64_t>(page.versions.size());
    values.set("versionCount", std::to_string(count));
    values.set("versionsNoun", noun(count, "version", "versions"));
    data versions{data::type::list};
    for (const auto &version : page.versions) {
        data row;
        row.set("display", version.display.empty() ? std::string(kUnknownVersion) : version.display);
        row.set("externalId", std::to_string(version.externalId));
        row.set("appId", std::to_string(page.app.appId));
        row.set("firstReported", shownTime(version.firstReportedAt));
        row.set("firstReportedIso", isoTime(version.firstReportedAt));
        row.set("lastReported", shownTime(version.lastReportedAt));
        row.set("lastReportedIso", isoTime(version.lastReportedAt));
        versions.push_back(row);
    }
    values.set("versions", versions);
    return render("app.mustache", values);
}

Result<std::string> PageRenderer::problem(const ProblemPage &page) const {
    data values = pageData(page.heading, "");
    values.set("heading", page.heading);
    values.set("message", page.message);
    return render("problem.mustache", values);
}

std::string_view PageRenderer::stylesheet() const {
    return fileNamed("style.css");
}

} // namespace qv::server
