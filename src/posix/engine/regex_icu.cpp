// ICU-backed regex engine for Linux/macOS: the same engine the phone's regular expressions run on.
#include "core/regex.h"

#include <unicode/regex.h>
#include <unicode/utext.h>

namespace qv {

namespace {

class IcuRegex final : public Regex {
  public:
    explicit IcuRegex(std::unique_ptr<icu::RegexPattern> pattern, std::size_t groupCount)
        : pattern_(std::move(pattern)), groupCount_(groupCount) {}

    std::size_t groupCount() const override { return groupCount_; }

    std::optional<RegexMatch> firstMatch(std::string_view subject) const override {
        std::optional<RegexMatch> first;
        scan(subject, [&](RegexMatch match) {
            first = std::move(match);
            return false;
        });
        return first;
    }

    std::vector<RegexMatch> allMatches(std::string_view subject) const override {
        std::vector<RegexMatch> matches;
        scan(subject, [&](RegexMatch match) {
            matches.push_back(std::move(match));
            return true;
        });
        return matches;
    }

  private:
    template <class Visit> void scan(std::string_view subject, Visit &&visit) const {
        UErrorCode status = U_ZERO_ERROR;
        UText text = UTEXT_INITIALIZER;
        // An empty view may carry a null pointer, which ICU takes for a NUL-terminated string.
        const char *bytes = subject.empty() ? "" : subject.data();
        utext_openUTF8(&text, bytes, static_cast<int64_t>(subject.size()), &status);
        if (U_FAILURE(status)) {
            return;
        }
        std::unique_ptr<icu::RegexMatcher> matcher(pattern_->matcher(status));
        if (U_FAILURE(status) || !matcher) {
            utext_close(&text);
            return;
        }
        matcher->reset(&text);
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
                    match.groups.emplace_back(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
                }
            }
            if (!visit(std::move(match))) {
                break;
            }
        }
        utext_close(&text);
    }

    std::unique_ptr<icu::RegexPattern> pattern_;
    std::size_t groupCount_;
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
    std::unique_ptr<icu::RegexMatcher> probe(compiled->matcher(status));
    if (U_FAILURE(status) || !probe) {
        return nullptr;
    }
    const auto groups = static_cast<std::size_t>(probe->groupCount());
    return std::make_unique<IcuRegex>(std::move(compiled), groups);
}

} // namespace qv
