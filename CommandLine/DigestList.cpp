#include <CommandLine/DigestList.h>

#include <algorithm>

namespace velto::cli {

namespace {

constexpr std::size_t md5Length = 32;
constexpr std::string_view blanks = " \t";

bool isBlank(char character) {
    return blanks.find(character) != std::string_view::npos;
}

bool isMD5(std::string_view text) {
    return text.size() == md5Length &&
           text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

std::string_view withoutBlanks(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(blanks), text.size()));
}

std::optional<std::string> unescapedName(std::string_view text) {
    std::string name;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            name += text[at];
            continue;
        }
        switch (++at < text.size() ? text[at] : '\0') {
            case 'n':
                name += '\n';
                break;
            case 'r':
                name += '\r';
                break;
            case '\\':
                name += '\\';
                break;
            default:
                return std::nullopt;
        }
    }
    return name;
}

std::optional<DigestEntry> entryOf(std::string_view md5, std::string_view name, bool isEscaped) {
    std::optional<std::string> plain = isEscaped ? unescapedName(name) : std::string(name);
    if (!isMD5(md5) || !plain) {
        return std::nullopt;
    }
    return DigestEntry{std::string(md5), std::move(*plain)};
}

}  // namespace

std::string escapedName(std::string_view name) {
    std::string text;
    for (const char character : name) {
        switch (character) {
            case '\n':
                text += "\\n";
                break;
            case '\r':
                text += "\\r";
                break;
            case '\\':
                text += "\\\\";
                break;
            default:
                text += character;
        }
    }
    return text;
}

std::string digestLine(std::string_view md5, std::string_view name) {
    const std::string escaped = escapedName(name);
    return (escaped != name ? "\\" : "") + std::string(md5) + "  " + escaped;
}

bool DigestListReader::isIgnored(std::string_view line) {
    return line.starts_with('#') || line.empty() || line == "\r";
}

std::optional<DigestEntry> DigestListReader::entry(std::string_view line) {
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    line = withoutBlanks(line);
    const bool isEscaped = line.starts_with('\\');
    line.remove_prefix(isEscaped ? 1 : 0);

    constexpr std::string_view algorithm = "MD5";
    if (line.starts_with(algorithm)) {
        line.remove_prefix(algorithm.size());
        line.remove_prefix(line.starts_with(' ') ? 1 : 0);
        const std::size_t end = line.rfind(')');
        if (!line.starts_with('(') || end == std::string_view::npos) {
            return std::nullopt;
        }
        std::string_view rest = withoutBlanks(line.substr(end + 1));
        if (!rest.starts_with('=')) {
            return std::nullopt;
        }
        rest.remove_prefix(1);
        return entryOf(withoutBlanks(rest), line.substr(1, end - 1), isEscaped);
    }

    // The sum, a blank, and at least two characters: a mark and a name, or a longer name.
    if (line.size() < md5Length + 3 || !isBlank(line[md5Length]) ||
        !isMD5(line.substr(0, md5Length))) {
        return std::nullopt;
    }
    std::string_view name = line.substr(md5Length + 1);
    const bool hasMark = name.starts_with(' ') || name.starts_with('*');
    if (!hasMark && form_ == Form::marked) {
        return std::nullopt;
    }
    if (form_ == Form::unknown) {
        form_ = hasMark ? Form::marked : Form::bare;
    }
    if (form_ == Form::marked) {
        name.remove_prefix(1);
    }
    return entryOf(line.substr(0, md5Length), name, isEscaped);
}

}  // namespace velto::cli
