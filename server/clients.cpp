// SipHash-2-4 over client addresses, random secrets, and token buckets per client.
#include "server/clients.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <random>

namespace qv::server {

namespace {

constexpr std::size_t kSecretBytes = 32;
constexpr std::size_t kKeyBytes = 16;
// Buckets kept before full ones are forgotten; a full bucket is what a new client gets anyway.
constexpr std::size_t kMaxBuckets = 100000;
constexpr double kSecondsPerMinute = 60.0;

std::uint64_t rotateLeft(std::uint64_t value, int bits) {
    return (value << bits) | (value >> (64 - bits)); // NOLINT(readability-magic-numbers): word width
}

std::uint64_t littleEndianWord(const unsigned char *bytes, std::size_t count) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < count; ++i) {
        word |= static_cast<std::uint64_t>(bytes[i]) << (8 * i); // NOLINT(readability-magic-numbers): bits per byte
    }
    return word;
}

// The reference SipHash-2-4 with a 128-bit key.
// NOLINTBEGIN(readability-magic-numbers): the algorithm's own constants and rotations
std::uint64_t sipHash(const std::array<unsigned char, kKeyBytes> &key, std::string_view text) {
    const std::uint64_t k0 = littleEndianWord(key.data(), 8);
    const std::uint64_t k1 = littleEndianWord(key.data() + 8, 8);
    std::uint64_t v0 = 0x736f6d6570736575ULL ^ k0;
    std::uint64_t v1 = 0x646f72616e646f6dULL ^ k1;
    std::uint64_t v2 = 0x6c7967656e657261ULL ^ k0;
    std::uint64_t v3 = 0x7465646279746573ULL ^ k1;
    const auto round = [&] {
        v0 += v1;
        v1 = rotateLeft(v1, 13);
        v1 ^= v0;
        v0 = rotateLeft(v0, 32);
        v2 += v3;
        v3 = rotateLeft(v3, 16);
        v3 ^= v2;
        v0 += v3;
        v3 = rotateLeft(v3, 21);
        v3 ^= v0;
        v2 += v1;
        v1 = rotateLeft(v1, 17);
        v1 ^= v2;
        v2 = rotateLeft(v2, 32);
    };
    const auto *bytes = reinterpret_cast<const unsigned char *>(text.data());
    const std::size_t whole = text.size() / 8 * 8;
    for (std::size_t at = 0; at < whole; at += 8) {
        const std::uint64_t m = littleEndianWord(bytes + at, 8);
        v3 ^= m;
        round();
        round();
        v0 ^= m;
    }
    const std::uint64_t last =
        littleEndianWord(bytes + whole, text.size() - whole) | (static_cast<std::uint64_t>(text.size()) << 56);
    v3 ^= last;
    round();
    round();
    v0 ^= last;
    v2 ^= 0xff;
    round();
    round();
    round();
    round();
    return v0 ^ v1 ^ v2 ^ v3;
}
// NOLINTEND(readability-magic-numbers)

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10; // NOLINT(readability-magic-numbers): hexadecimal digits
    }
    return -1;
}

// The first 16 bytes the secret's hexadecimal stands for; any other text is hashed down to them instead.
std::array<unsigned char, kKeyBytes> keyFrom(std::string_view secret) {
    std::array<unsigned char, kKeyBytes> key{};
    for (std::size_t i = 0; i < kKeyBytes; ++i) {
        const int high = 2 * i + 1 < secret.size() ? hexValue(secret[2 * i]) : -1;
        const int low = 2 * i + 1 < secret.size() ? hexValue(secret[2 * i + 1]) : -1;
        if (high < 0 || low < 0) {
            const std::array<unsigned char, kKeyBytes> zero{};
            const std::uint64_t first = sipHash(zero, secret);
            const std::uint64_t second = sipHash(zero, std::string(secret) + "\x01");
            for (std::size_t b = 0; b < kKeyBytes / 2; ++b) {
                key[b] = static_cast<unsigned char>(first >> (8 * b)); // NOLINT(readability-magic-numbers)
                key[b + kKeyBytes / 2] =
                    static_cast<unsigned char>(second >> (8 * b)); // NOLINT(readability-magic-numbers)
            }
            return key;
        }
        key[i] = static_cast<unsigned char>(high * 16 + low); // NOLINT(readability-magic-numbers): two hex digits
    }
    return key;
}

} // namespace

std::string randomSecret() {
    std::random_device source;
    std::string secret;
    for (std::size_t i = 0; i < kSecretBytes; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(source() & 0xffU)); // NOLINT: one byte
        secret += digits;
    }
    return secret;
}

std::string clientHash(std::string_view key, std::string_view address) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(sipHash(keyFrom(key), address)));
    return text;
}

std::optional<std::chrono::seconds> WriteRateLimiter::admit(const std::string &client, Clock::time_point now) {
    if (perMinute_ == 0) {
        return std::nullopt;
    }
    const auto capacity = static_cast<double>(perMinute_);
    const double perSecond = capacity / kSecondsPerMinute;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (buckets_.size() >= kMaxBuckets) {
        // Forget the clients whose buckets have filled up again: they lose nothing by it.
        for (auto bucket = buckets_.begin(); bucket != buckets_.end();) {
            const double refilled = bucket->second.tokens +
                                    std::chrono::duration<double>(now - bucket->second.refilled).count() * perSecond;
            bucket = refilled >= capacity ? buckets_.erase(bucket) : std::next(bucket);
        }
    }
    auto [bucket, added] = buckets_.try_emplace(client, Bucket{capacity, now});
    Bucket &mine = bucket->second;
    if (!added) {
        mine.tokens =
            std::min(capacity, mine.tokens + std::chrono::duration<double>(now - mine.refilled).count() * perSecond);
        mine.refilled = now;
    }
    if (mine.tokens >= 1.0) {
        mine.tokens -= 1.0;
        return std::nullopt;
    }
    return std::chrono::seconds(static_cast<long>(std::ceil((1.0 - mine.tokens) / perSecond)));
}

} // namespace qv::server
