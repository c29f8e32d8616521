// ICU-backed regex engine for Linux/macOS: the same engine the phone's regular expressions run on.
#include "base/regex.h"
#include "base/text.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <vector>

namespace qv {

namespace {

// ICU indexes UTF-16 text with 32-bit integers.
constexpr std::size_t kMaxSubjectLength = INT32_MAX;

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
        // ICU matches UTF-16 on its fast path; the table maps its indices back to the subject's byte offsets.
        const Utf16Text text(subject);
        // A read-only alias of the units: no copy.
        const icu::UnicodeString units(false, text.units().data(), static_cast<int32_t>(text.units().size()));
        const MatcherLease lease(*this);
        icu::RegexMatcher *matcher = lease.get();
        if (matcher == nullptr) {
            return;
        }
        matcher->reset(units);
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
                    const std::size_t first = text.byteOffset(static_cast<std::size_t>(start));
                    match.groups.emplace_back(first, text.byteOffset(static_cast<std::size_t>(end)) - first);
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

std::unique_ptr<Regex> Regex::compile(std::string_view pattern, RegexCase matching) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    const uint32_t flags = matching == RegexCase::Insensitive ? UREGEX_CASE_INSENSITIVE : 0;
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
