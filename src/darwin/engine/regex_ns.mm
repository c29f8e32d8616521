// Regex engine for the phone: the system's ICU-based regular expressions, with UTF-8 byte offsets for the core.
#include "base/regex.h"
#include "base/text.h"
#include "darwin/core/strings.h"

#import <Foundation/Foundation.h>

namespace qv {
namespace {

class NsRegex final : public Regex {
  public:
    explicit NsRegex(NSRegularExpression *expression) : expression_(expression) {}

    std::size_t groupCount() const override { return expression_.numberOfCaptureGroups; }

  private:
    void scan(std::string_view subject, const MatchVisitor &visit) const override {
        @autoreleasepool {
            const Utf16Text text(subject);
            NSString *string = [NSString stringWithCharacters:reinterpret_cast<const unichar *>(text.units().data())
                                                       length:text.units().size()];
            NSArray<NSTextCheckingResult *> *results = [expression_ matchesInString:string
                                                                            options:0
                                                                              range:NSMakeRange(0, string.length)];
            for (NSTextCheckingResult *result in results) {
                RegexMatch match;
                match.groups.reserve(result.numberOfRanges);
                for (NSUInteger group = 0; group < result.numberOfRanges; ++group) {
                    const NSRange range = [result rangeAtIndex:group];
                    if (range.location == NSNotFound) {
                        match.groups.emplace_back(RegexMatch::kNoPosition, 0);
                        continue;
                    }
                    const std::size_t start = text.byteOffset(range.location);
                    match.groups.emplace_back(start, text.byteOffset(NSMaxRange(range)) - start);
                }
                if (!visit(std::move(match))) {
                    break;
                }
            }
        }
    }

    NSRegularExpression *expression_;
};

} // namespace

std::unique_ptr<Regex> Regex::compile(std::string_view pattern, RegexCase matching) {
    @autoreleasepool {
        NSString *source = darwin::toNSStringIfValid(pattern);
        if (source == nil) {
            return nullptr;
        }
        const NSRegularExpressionOptions flags =
            matching == RegexCase::Insensitive ? NSRegularExpressionCaseInsensitive : 0;
        NSError *error = nil;
        NSRegularExpression *expression = [NSRegularExpression regularExpressionWithPattern:source
                                                                                    options:flags
                                                                                      error:&error];
        if (expression == nil) {
            return nullptr;
        }
        return std::make_unique<NsRegex>(expression);
    }
}

} // namespace qv
