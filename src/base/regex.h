// Regular expressions with ICU semantics on every platform; replacement templates are expanded here, portably.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv {

struct RegexMatch {
    static constexpr std::size_t kNoPosition = static_cast<std::size_t>(-1);
    // (start, length) in bytes of the UTF-8 subject; group 0 is the whole match. A group that did not take part
    // in the match starts at kNoPosition.
    std::vector<std::pair<std::size_t, std::size_t>> groups;

    // The text of group n, or empty text when the group does not exist or did not take part.
    std::string_view group(std::string_view subject, std::size_t n) const;
};

enum class RegexCase { Sensitive, Insensitive };

class Regex {
  public:
    // Compiles with the platform's ICU engine; nullptr when the pattern is invalid.
    static std::unique_ptr<Regex> compile(std::string_view pattern, RegexCase matching = RegexCase::Sensitive);

    Regex() = default;
    Regex(const Regex &) = delete;
    Regex &operator=(const Regex &) = delete;
    virtual ~Regex() = default;

    virtual std::size_t groupCount() const = 0;
    std::optional<RegexMatch> firstMatch(std::string_view subject) const;
    std::vector<RegexMatch> allMatches(std::string_view subject) const;

    // Replaces every match by the template: "$n" is capture group n (empty text when that group does not exist
    // or did not take part), a backslash makes the next character literal.
    std::string replaceAll(std::string_view subject, std::string_view replacementTemplate) const;

  protected:
    // The engine's one job: hand each match, in order, to visit until visit returns false.
    using MatchVisitor = std::function<bool(RegexMatch)>;
    virtual void scan(std::string_view subject, const MatchVisitor &visit) const = 0;
};

} // namespace qv
