// What the body readers keep of what clients send: only the known fields of a search event.
#include "server/request_bodies.h"

#include <gtest/gtest.h>

#include <string>

namespace qv::server {
namespace {

struct KeptEvent {
    const char *name;
    const char *body;
    const char *stored;
};
class SearchEventFields : public ::testing::TestWithParam<KeptEvent> {};
TEST_P(SearchEventFields, StoresOnlyTheNameQueryAndResults) {
    const auto event = parseSearchEvent(GetParam().body);
    ASSERT_TRUE(event) << event.error().describe();
    EXPECT_EQ(event->bodyJson, GetParam().stored);
}
INSTANTIATE_TEST_SUITE_P(
    Bodies, SearchEventFields,
    ::testing::Values(
        KeptEvent{"Plain", R"({"name":"search","attributes":{"query":"maps","results":[{"appId":"7","rank":1}]}})",
                  R"({"name":"search","attributes":{"query":"maps","results":[{"appId":"7","rank":1}]}})"},
        KeptEvent{"ExtraKeysEverywhere",
                  R"({"padding":"xxxxxxxx","name":"search","attributes":{"country":"fr","results":)"
                  R"([{"rank":2,"appId":"7","blob":[1,2,3]}],"query":"maps"}})",
                  R"({"name":"search","attributes":{"query":"maps","results":[{"appId":"7","rank":2}]}})"},
        KeptEvent{"NoResults", R"({"name":"search","attributes":{"query":"q","results":[],"x":{"y":"z"}}})",
                  R"({"name":"search","attributes":{"query":"q","results":[]}})"}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
} // namespace qv::server
