#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velto {

/// Finds secrets in texts, as they are and as texts carry them: in base64 (also in the middle of a
/// longer text, in lines, with either alphabet), percent-encoded, with the escapes of JSON, XML and
/// shells, in other letters' case, in Latin-1 or as UTF-8 that was taken for Latin-1; and one of
/// these inside another.
///
/// A secret of less than four bytes is found only as it is, and one of less than six only in its
/// own case: otherwise too much of a text would be taken for it. Time and memory are linear in the
/// text, whatever the number of secrets.
class SecretScanner {
public:
    explicit SecretScanner(const std::vector<std::string>& secrets);
    SecretScanner(const SecretScanner&) = delete;
    SecretScanner& operator=(const SecretScanner&) = delete;
    ~SecretScanner();

    /// A place in the text, from its first byte to behind its last one.
    using Place = std::pair<std::size_t, std::size_t>;
    /// By their beginnings; none overlaps another.
    std::vector<Place> placesOfSecrets(std::string_view text) const;

private:
    struct Form {
        std::string bytes;
        std::uint16_t next = 0;  ///< The form behind it in its slot, counted from 1.
    };
    struct Layer;
    class Search;

    void add(std::string bytes);
    template <class Take>
    void search(std::string_view text, const Take& take) const;

    std::vector<std::string> shortSecrets_;
    std::vector<Form> forms_;
    std::vector<std::uint16_t> slots_;  ///< By a hash of four bytes: a form counted from 1, or 0.
    std::size_t shortest_ = 0;          ///< Of the forms.
    std::size_t longest_ = 0;
};

}  // namespace velto
