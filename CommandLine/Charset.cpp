#include <CommandLine/Charset.h>

#include <CommandLine/Text.h>

#include <iconv.h>
#include <langinfo.h>

#include <array>
#include <cerrno>

namespace velto::cli {

namespace {

/// What cannot be converted becomes a question mark, a code point each.
std::string converted(std::string_view text, const std::string& from, const std::string& to) {
    const iconv_t conversion = ::iconv_open(to.c_str(), from.c_str());
    // A set that the system has no table of has the letters of ASCII at least.
    const bool isKnown = conversion != reinterpret_cast<iconv_t>(-1);
    std::string result;
    std::array<char, 1024> buffer;
    const auto convert = [&](char** input, std::size_t* left) {
        char* output = buffer.data();
        std::size_t room = buffer.size();
        const bool isDone = ::iconv(conversion, input, left, &output, &room) != std::size_t(-1);
        const int problem = isDone ? 0 : errno;
        result.append(buffer.data(), buffer.size() - room);
        return problem;
    };
    while (!text.empty()) {
        int problem = EILSEQ;
        if (isKnown) {
            // The bytes stay as they are, whatever the interface says.
            char* input = const_cast<char*>(text.data());
            std::size_t left = text.size();
            problem = convert(&input, &left);
            text.remove_prefix(text.size() - left);
        }
        if (problem != 0 && problem != E2BIG) {
            const char32_t codePoint = takeCodePoint(text);
            result += codePoint < 0x80 ? static_cast<char>(codePoint) : '?';
        }
    }
    if (isKnown) {
        convert(nullptr, nullptr);
        ::iconv_close(conversion);
    }
    return result;
}

}  // namespace

Charset::Charset() : name_(::nl_langinfo(CODESET)) {  // locale: what the terminal shows
    if (name_ == "UTF-8") {
        name_.clear();
    }
}

std::string Charset::encoded(std::string_view text) const {
    return isUTF8() ? std::string(text) : converted(text, "UTF-8", name_ + "//TRANSLIT");
}

std::string Charset::shown(std::string_view text) const {
    return isUTF8() ? std::string(text) : converted(encoded(text), name_, "UTF-8");
}

}  // namespace velto::cli
