#include <CommandLine/MetadataName.h>

#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

namespace velto::cli {

std::string faultOfMetadataName(std::string_view name) {
    if (name.empty()) {
        return localized("it is empty");
    }
    for (std::string_view rest = name; !rest.empty();) {
        const std::string_view before = rest;
        const char32_t codePoint = takeCodePoint(rest);
        if (codePoint == 0xFFFD && before.size() - rest.size() == 1) {
            return localized("it is no valid UTF-8");
        }
        if (codePoint == '&' || codePoint == '<' || codePoint == '>' || codePoint == '"') {
            return localizedFormat("the character %@ would make the metadata malformed",
                                   before.substr(0, 1));
        }
        if (codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0)) {
            return localizedFormat("the control character U+%04X cannot stand in the metadata",
                                   static_cast<unsigned>(codePoint));
        }
        if (codePoint == 0xFFFE || codePoint == 0xFFFF) {
            return localizedFormat("the character U+%04X cannot stand in the metadata",
                                   static_cast<unsigned>(codePoint));
        }
    }
    return trimmed(name) == name
               ? std::string()
               : localized("it begins or ends with a blank, which readers take away");
}

}  // namespace velto::cli
