// Client identities and write rates: the keyed hash matches the published SipHash-2-4 values and hides the address.
#include "server/clients.h"

#include <gtest/gtest.h>

#include <string>

namespace qv::server {
namespace {

const std::string kKey = "000102030405060708090a0b0c0d0e0f";

std::string bytesUpTo(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text.push_back(static_cast<char>(i));
    }
    return text;
}

struct HashCase {
    const char *name;
    std::string message;
    const char *hash;
};
class KeyedHash : public ::testing::TestWithParam<HashCase> {};
TEST_P(KeyedHash, MatchesTheReferenceValues) {
    EXPECT_EQ(clientHash(kKey, GetParam().message), GetParam().hash);
}
INSTANTIATE_TEST_SUITE_P(Vectors, KeyedHash,
                         ::testing::Values(HashCase{"Empty", "", "726fdb47dd0e0e31"},
                                           HashCase{"SevenBytes", bytesUpTo(7), "ab0200f58b01d137"},
                                           HashCase{"EightBytes", bytesUpTo(8), "93f5f5799a932462"},
                                           HashCase{"FifteenBytes", bytesUpTo(15), "a129ca6149be45e5"}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(KeyedHash, DependsOnTheKeyAndNeverShowsTheAddress) {
    const std::string address = "203.0.113.5";
    const std::string first = randomSecret();
    const std::string second = randomSecret();
    EXPECT_EQ(first.size(), 64U);
    EXPECT_NE(first, second);
    EXPECT_EQ(clientHash(first, address), clientHash(first, address));
    EXPECT_NE(clientHash(first, address), clientHash(second, address));
    EXPECT_EQ(clientHash(first, address).find(address), std::string::npos);
}

TEST(WriteRateLimiter, AllowsABurstThenOneWritePerShareOfAMinute) {
    WriteRateLimiter limiter(2);
    const auto start = WriteRateLimiter::Clock::now();
    EXPECT_FALSE(limiter.admit("a", start));
    EXPECT_FALSE(limiter.admit("a", start));
    EXPECT_EQ(limiter.admit("a", start), std::chrono::seconds(30));
    EXPECT_FALSE(limiter.admit("b", start));
    EXPECT_FALSE(limiter.admit("a", start + std::chrono::seconds(30)));
    EXPECT_TRUE(WriteRateLimiter(0).admit("a", start) == std::nullopt);
}

} // namespace
} // namespace qv::server
