// Telling clients apart without keeping their addresses: a keyed hash of an address, and a per-client write rate.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace qv::server {

// 32 random bytes in hexadecimal, from the system's random source.
std::string randomSecret();

// A keyed hash (SipHash-2-4) of the address in hexadecimal: the same for one address under one key, and of no use
// for finding the address without the key.
std::string clientHash(std::string_view key, std::string_view address);

// At most `perMinute` writes per client, in bursts of up to that many; 0 lets every write through.
class WriteRateLimiter {
  public:
    using Clock = std::chrono::steady_clock;

    explicit WriteRateLimiter(std::size_t perMinute) : perMinute_(perMinute) {}

    // Nothing when the client may write now (the write is counted); otherwise how long until it may.
    std::optional<std::chrono::seconds> admit(const std::string &client, Clock::time_point now = Clock::now());

  private:
    struct Bucket {
        double tokens = 0;
        Clock::time_point refilled;
    };

    const std::size_t perMinute_;
    std::mutex mutex_;
    std::unordered_map<std::string, Bucket> buckets_;
};

} // namespace qv::server
