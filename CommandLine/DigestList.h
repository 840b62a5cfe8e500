#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Lists of MD5 sums as md5sum writes and reads them.
namespace velto::cli {

/// A name on one line: a line feed, a carriage return and a backslash stand as \n, \r and \\, and
/// a line with such a name begins with a backslash.
std::string escapedName(std::string_view name);

/// "MD5  NAME" without a line feed.
std::string digestLine(std::string_view md5, std::string_view name);

struct DigestEntry {
    std::string md5;  ///< 32 digits of either case.
    std::string name;
};

/// Reads the lines of one list. A list is either of "MD5  NAME" and "MD5 *NAME", or of "MD5 NAME";
/// which of the two, its first such line says. "MD5 (NAME) = MD5" is read in both.
class DigestListReader {
public:
    /// none for a line that is no entry
    std::optional<DigestEntry> entry(std::string_view line);
    /// Empty lines and comments are neither entries nor wrong.
    static bool isIgnored(std::string_view line);

private:
    enum class Form { unknown, marked, bare };

    Form form_ = Form::unknown;
};

}  // namespace velto::cli
