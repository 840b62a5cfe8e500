#include <VeltoConnectFoundation/Platform/Regex.h>

#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <unicode/regex.h>

#include <limits>

namespace velto {

class Regex::Content {
public:
    std::string text;
    std::unique_ptr<icu::RegexPattern> pattern;
};

namespace {

/// Steps of the match engine, each about a millisecond.
constexpr std::int32_t timeLimit = 1000;

/// A matcher, which serves one thread, over UTF-16 text that it owns.
class Search {
public:
    Search(const icu::RegexPattern& pattern, std::string_view text)
        : units_(utf16FromUTF8(text)),
          input_(false, units_.data(), static_cast<std::int32_t>(units_.size())) {
        if (units_.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
            status_ = U_BUFFER_OVERFLOW_ERROR;
            return;
        }
        matcher_.reset(pattern.matcher(input_, status_));
        if (matcher_ != nullptr) {
            matcher_->setTimeLimit(timeLimit, status_);
        }
    }

    bool matches() { return isUsable() && matcher_->matches(status_) && U_SUCCESS(status_); }
    bool lookingAt() { return isUsable() && matcher_->lookingAt(status_) && U_SUCCESS(status_); }
    bool find() { return isUsable() && matcher_->find(status_) && U_SUCCESS(status_); }

    RegexMatch match() {
        RegexMatch groups;
        for (std::int32_t group = 0; group <= matcher_->groupCount(); ++group) {
            const std::int32_t start = matcher_->start(group, status_);
            if (start < 0) {
                groups.emplace_back();
                continue;
            }
            const std::int32_t length = matcher_->end(group, status_) - start;
            groups.emplace_back(utf8FromUTF16(std::u16string_view(units_).substr(
                static_cast<std::size_t>(start), static_cast<std::size_t>(length))));
        }
        return groups;
    }

private:
    bool isUsable() const { return matcher_ != nullptr && U_SUCCESS(status_); }

    std::u16string units_;
    icu::UnicodeString input_;
    UErrorCode status_ = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher_;
};

}  // namespace

Regex::Regex(PassKey, std::unique_ptr<const Content> content) : content_(std::move(content)) {
}
Regex::~Regex() = default;

std::shared_ptr<const Regex> Regex::regexWithPattern(std::string_view pattern,
                                                     RegexCase letters,
                                                     Error* error) {
    const std::u16string units = utf16FromUTF8(pattern);
    UErrorCode status = U_ZERO_ERROR;
    UParseError position{};
    auto content = std::make_unique<Content>();
    content->text = pattern;
    content->pattern.reset(icu::RegexPattern::compile(
        icu::UnicodeString(false, units.data(), static_cast<std::int32_t>(units.size())),
        letters == RegexCase::insensitive ? std::uint32_t{UREGEX_CASE_INSENSITIVE} : 0U, position,
        status));
    if (U_FAILURE(status)) {
        fail(error, Error::make(GeneralErrorDomain, status, "The regular expression is not valid.",
                                format("%@ in “%@”", u_errorName(status), pattern)));
        return nullptr;
    }
    return make<Regex>(std::move(content));
}

std::optional<RegexMatch> Regex::matchWhole(std::string_view text) const {
    Search search(*content_->pattern, text);
    return search.matches() ? std::optional(search.match()) : std::nullopt;
}

std::optional<RegexMatch> Regex::matchAtStart(std::string_view text) const {
    Search search(*content_->pattern, text);
    return search.lookingAt() ? std::optional(search.match()) : std::nullopt;
}

std::optional<RegexMatch> Regex::firstMatch(std::string_view text) const {
    Search search(*content_->pattern, text);
    return search.find() ? std::optional(search.match()) : std::nullopt;
}

std::vector<RegexMatch> Regex::allMatches(std::string_view text) const {
    Search search(*content_->pattern, text);
    std::vector<RegexMatch> matches;
    while (search.find()) {
        matches.push_back(search.match());
    }
    return matches;
}

std::string_view Regex::className() const {
    return "RegularExpression";
}

std::string Regex::description() const {
    return content_->text;
}

}  // namespace velto
