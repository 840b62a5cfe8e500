#pragma once

#include <string>
#include <string_view>

namespace velto::cli {

/// The character set of the user's locale, in which a terminal is written to. Any thread.
class Charset {
public:
    Charset();  ///< Of the locale that is set.

    bool isUTF8() const { return name_.empty(); }
    /// Text of ours in this set. What the set lacks is written with what it has ("..." for "…"),
    /// else as a question mark.
    std::string encoded(std::string_view text) const;
    /// What will be seen of it, as text of ours: to measure its columns.
    std::string shown(std::string_view text) const;

private:
    std::string name_;  ///< Empty for UTF-8.
};

}  // namespace velto::cli
