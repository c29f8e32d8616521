// Portable half of the regex facade: template expansion and replacement over the engine's matches.
#include "base/regex.h"

namespace qv {

std::string_view RegexMatch::group(std::string_view subject, std::size_t n) const {
    if (n >= groups.size() || groups[n].first == kNoPosition || groups[n].first > subject.size()) {
        return {};
    }
    return subject.substr(groups[n].first, groups[n].second);
}

namespace {

// "$" takes its first digit always and further digits while the number still names an existing group,
// as the platform's template syntax does.
void expandTemplate(std::string &out, std::string_view subject, const RegexMatch &match, std::size_t groupCount,
                    std::string_view replacementTemplate) {
    for (std::size_t i = 0; i < replacementTemplate.size(); ++i) {
        const char c = replacementTemplate[i];
        if (c == '\\' && i + 1 < replacementTemplate.size()) {
            out += replacementTemplate[++i];
            continue;
        }
        if (c == '$' && i + 1 < replacementTemplate.size() && replacementTemplate[i + 1] >= '0' &&
            replacementTemplate[i + 1] <= '9') {
            std::size_t number = static_cast<std::size_t>(replacementTemplate[++i] - '0');
            while (i + 1 < replacementTemplate.size() && replacementTemplate[i + 1] >= '0' &&
                   replacementTemplate[i + 1] <= '9') {
                const std::size_t longer = number * 10 + static_cast<std::size_t>(replacementTemplate[i + 1] - '0');
                if (longer > groupCount) {
                    break;
                }
                number = longer;
                ++i;
            }
            out += match.group(subject, number);
            continue;
        }
        out += c;
    }
}

} // namespace

std::optional<RegexMatch> Regex::firstMatch(std::string_view subject) const {
    std::optional<RegexMatch> first;
    scan(subject, [&](RegexMatch match) {
        first = std::move(match);
        return false;
    });
    return first;
}

std::vector<RegexMatch> Regex::allMatches(std::string_view subject) const {
    std::vector<RegexMatch> matches;
    scan(subject, [&](RegexMatch match) {
        matches.push_back(std::move(match));
        return true;
    });
    return matches;
}

std::string Regex::replaceAll(std::string_view subject, std::string_view replacementTemplate) const {
    std::string out;
    out.reserve(subject.size() + replacementTemplate.size());
    std::size_t copied = 0;
    for (const auto &match : allMatches(subject)) {
        const auto [start, length] = match.groups.front();
        out.append(subject.substr(copied, start - copied));
        expandTemplate(out, subject, match, groupCount(), replacementTemplate);
        copied = start + length;
    }
    out.append(subject.substr(copied));
    return out;
}

} // namespace qv
