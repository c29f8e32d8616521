// ICU-backed regex engine for Linux/macOS: the same engine the phone's regular expressions run on.
#include "core/regex.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <vector>

namespace qv {

namespace {

constexpr char16_t kReplacementCharacter = 0xFFFD;
// ICU indexes UTF-16 text with 32-bit integers.
constexpr std::size_t kMaxSubjectLength = INT32_MAX;

// The subject as UTF-16, which ICU matches on its fast path, with the way back to UTF-8 byte offsets.
// Pure ASCII (the usual buy-parameter string) maps one to one and needs no table. Malformed UTF-8 reads as one
// replacement character per offending byte, so every UTF-16 index still maps to a byte offset inside the subject.
class Utf16Subject {
  public:
    explicit Utf16Subject(std::string_view subject) : size_(subject.size()) {
        const auto length = static_cast<int32_t>(subject.size());
        char16_t *units = text_.getBuffer(length);
        if (units == nullptr) {
            return;
        }
        int32_t written = 0;
        std::size_t position = 0;
        while (position < subject.size() && static_cast<unsigned char>(subject[position]) < kFirstNonAscii) {
            units[written++] = static_cast<char16_t>(subject[position++]);
        }
        text_.releaseBuffer(written);
        if (position < subject.size()) {
            decodeRest(subject, position);
        }
    }

    const icu::UnicodeString &text() const { return text_; }

    std::size_t byteOffset(int64_t index) const {
        if (byteOffsets_.empty()) {
            return index < 0 ? 0 : std::min(static_cast<std::size_t>(index), size_);
        }
        if (index < 0) {
            return 0;
        }
        const auto unit = static_cast<std::size_t>(index);
        return unit < byteOffsets_.size() ? byteOffsets_[unit] : size_;
    }

  private:
    static constexpr unsigned kFirstNonAscii = 0x80;
    static constexpr unsigned kContinuationMask = 0xC0;
    static constexpr unsigned kContinuationTag = 0x80;
    static constexpr char32_t kLastCodePoint = 0x10FFFF;
    static constexpr char32_t kFirstSurrogate = 0xD800;
    static constexpr char32_t kLastSurrogate = 0xDFFF;

    struct Decoded {
        char32_t codePoint;
        std::size_t length; // 0 when the bytes at the position are not well-formed UTF-8
    };

    static Decoded decode(std::string_view subject, std::size_t position) {
        constexpr unsigned kTwoByteLead = 0xC0;
        constexpr unsigned kThreeByteLead = 0xE0;
        constexpr unsigned kFourByteLead = 0xF0;
        constexpr unsigned kPastLeads = 0xF8;
        constexpr char32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
        constexpr unsigned kPayloadBits = 6;
        constexpr unsigned kPayloadMask = 0x3F;
        const auto lead = static_cast<unsigned char>(subject[position]);
        std::size_t length = 0;
        char32_t codePoint = 0;
        if (lead >= kTwoByteLead && lead < kThreeByteLead) {
            length = 2;
            codePoint = lead & 0x1FU;
        } else if (lead >= kThreeByteLead && lead < kFourByteLead) {
            length = 3;
            codePoint = lead & 0x0FU;
        } else if (lead >= kFourByteLead && lead < kPastLeads) {
            length = 4;
            codePoint = lead & 0x07U;
        } else {
            return {0, 0};
        }
        if (position + length > subject.size()) {
            return {0, 0};
        }
        for (std::size_t i = 1; i < length; ++i) {
            const auto next = static_cast<unsigned char>(subject[position + i]);
            if ((next & kContinuationMask) != kContinuationTag) {
                return {0, 0};
            }
            codePoint = (codePoint << kPayloadBits) | (next & kPayloadMask);
        }
        if (codePoint < kMinimum[length] || codePoint > kLastCodePoint ||
            (codePoint >= kFirstSurrogate && codePoint <= kLastSurrogate)) {
            return {0, 0};
        }
        return {codePoint, length};
    }

    void decodeRest(std::string_view subject, std::size_t position) {
        byteOffsets_.reserve(subject.size() + 1);
        for (std::size_t i = 0; i < position; ++i) {
            byteOffsets_.push_back(i);
        }
        while (position < subject.size()) {
            const auto lead = static_cast<unsigned char>(subject[position]);
            Decoded decoded{lead, 1};
            if (lead >= kFirstNonAscii) {
                decoded = decode(subject, position);
                if (decoded.length == 0) {
                    decoded = {kReplacementCharacter, 1};
                }
            }
            const int32_t before = text_.length();
            text_.append(static_cast<UChar32>(decoded.codePoint));
            for (int32_t unit = before; unit < text_.length(); ++unit) {
                byteOffsets_.push_back(position);
            }
            position += decoded.length;
        }
        byteOffsets_.push_back(subject.size());
    }

    icu::UnicodeString text_;
    std::vector<std::size_t> byteOffsets_;
    std::size_t size_;
};

class IcuRegex final : public Regex {
  public:
    IcuRegex(std::unique_ptr<icu::RegexPattern> pattern, std::unique_ptr<icu::RegexMatcher> firstMatcher)
        : pattern_(std::move(pattern)), groupCount_(static_cast<std::size_t>(firstMatcher->groupCount())),
          spare_(firstMatcher.release()) {}
    IcuRegex(const IcuRegex &) = delete;
    IcuRegex &operator=(const IcuRegex &) = delete;
    ~IcuRegex() override { delete spare_.load(std::memory_order_acquire); }

    std::size_t groupCount() const override { return groupCount_; }

  private:
    // Making a matcher allocates its whole state, which costs more than a short search; one spare matcher is kept
    // and lent to whichever thread comes first, others make their own. Lock-free, so a const Regex stays safe to
    // share between threads.
    class MatcherLease {
      public:
        explicit MatcherLease(const IcuRegex &owner) : owner_(owner) {
            matcher_ = owner_.spare_.exchange(nullptr, std::memory_order_acquire);
            if (matcher_ == nullptr) {
                UErrorCode status = U_ZERO_ERROR;
                matcher_ = owner_.pattern_->matcher(status);
                if (U_FAILURE(status)) {
                    delete matcher_;
                    matcher_ = nullptr;
                }
            }
        }
        MatcherLease(const MatcherLease &) = delete;
        MatcherLease &operator=(const MatcherLease &) = delete;
        ~MatcherLease() {
            icu::RegexMatcher *expected = nullptr;
            if (matcher_ != nullptr &&
                !owner_.spare_.compare_exchange_strong(expected, matcher_, std::memory_order_release)) {
                delete matcher_;
            }
        }
        icu::RegexMatcher *get() const { return matcher_; }

      private:
        const IcuRegex &owner_;
        icu::RegexMatcher *matcher_ = nullptr;
    };

    void scan(std::string_view subject, const MatchVisitor &visit) const override {
        if (subject.size() > kMaxSubjectLength) {
            return;
        }
        const Utf16Subject text(subject);
        const MatcherLease lease(*this);
        icu::RegexMatcher *matcher = lease.get();
        if (matcher == nullptr) {
            return;
        }
        matcher->reset(text.text());
        UErrorCode status = U_ZERO_ERROR;
        while (matcher->find(status) && U_SUCCESS(status)) {
            RegexMatch match;
            match.groups.reserve(groupCount_ + 1);
            for (std::size_t group = 0; group <= groupCount_; ++group) {
                const int64_t start = matcher->start64(static_cast<int32_t>(group), status);
                const int64_t end = matcher->end64(static_cast<int32_t>(group), status);
                if (U_FAILURE(status) || start < 0) {
                    status = U_ZERO_ERROR;
                    match.groups.emplace_back(RegexMatch::kNoPosition, 0);
                } else {
                    const std::size_t first = text.byteOffset(start);
                    match.groups.emplace_back(first, text.byteOffset(end) - first);
                }
            }
            if (!visit(std::move(match))) {
                break;
            }
        }
        // The matcher is lent again later; it must not keep pointing into this call's text.
        static const auto *const kNoText = new icu::UnicodeString();
        matcher->reset(*kNoText);
    }

    std::unique_ptr<icu::RegexPattern> pattern_;
    std::size_t groupCount_;
    mutable std::atomic<icu::RegexMatcher *> spare_{nullptr};
};

} // namespace

std::unique_ptr<Regex> Regex::compile(std::string_view pattern, unsigned options) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    const uint32_t flags = (options & kCaseInsensitive) != 0 ? UREGEX_CASE_INSENSITIVE : 0;
    const icu::UnicodeString source =
        icu::UnicodeString::fromUTF8(icu::StringPiece(pattern.data(), static_cast<int32_t>(pattern.size())));
    std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(source, flags, parseError, status));
    if (U_FAILURE(status) || !compiled) {
        return nullptr;
    }
    std::unique_ptr<icu::RegexMatcher> firstMatcher(compiled->matcher(status));
    if (U_FAILURE(status) || !firstMatcher) {
        return nullptr;
    }
    return std::make_unique<IcuRegex>(std::move(compiled), std::move(firstMatcher));
}

} // namespace qv
