#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/Make.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

/// The texts of the groups of one match; group 0 is the whole match. A group that took no part is
/// none.
using RegexMatch = std::vector<std::optional<std::string>>;

enum class RegexCase : std::uint8_t { sensitive, insensitive };

/// A compiled regular expression; "." does not match a line break. Any thread.
///
/// Matching is bounded in time (about a second) and memory: beyond either there is no match.
class VELTO_EXPORT Regex final : public Object {
public:
    class Content;
    Regex(PassKey, std::unique_ptr<const Content> content);  ///< Use regexWithPattern.
    ~Regex() override;

    /// Null when the pattern does not compile.
    [[nodiscard]] static std::shared_ptr<const Regex> regexWithPattern(
        std::string_view pattern,
        RegexCase letters = RegexCase::sensitive,
        Error* error = nullptr);

    /// none unless the expression matches the whole text.
    std::optional<RegexMatch> matchWhole(std::string_view text) const;
    /// none unless it matches from the text's beginning on.
    std::optional<RegexMatch> matchAtStart(std::string_view text) const;
    std::optional<RegexMatch> firstMatch(std::string_view text) const;
    /// From left to right, without overlap.
    std::vector<RegexMatch> allMatches(std::string_view text) const;

    std::string_view className() const override;
    std::string description() const override;  ///< The pattern.

private:
    std::unique_ptr<const Content> content_;
};

}  // namespace velto
