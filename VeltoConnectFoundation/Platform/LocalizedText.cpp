#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <VeltoConnectFoundation/Platform/Locale.h>

#include <dlfcn.h>
#include <libintl.h>

#include <array>
#include <atomic>
#include <cstdlib>

namespace velto {

namespace {

constexpr const char* textDomain = "VeltoConnectFoundation";

/// The catalogues' folder, which lies in a fixed place beside the library itself.
std::string catalogueFolder() {
    Dl_info info{};
    if (dladdr(&textDomain, &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    char* const resolved = realpath(info.dli_fname, nullptr);
    if (resolved == nullptr) {
        return {};
    }
    std::string folder = resolved;
    std::free(resolved);
    folder.resize(folder.rfind('/') + 1);
    return folder + VELTO_LOCALE_FOLDER;
}

bool bindTextDomain() {
    const std::string folder = catalogueFolder();
    return !folder.empty() && bindtextdomain(textDomain, folder.c_str()) != nullptr &&
           bind_textdomain_codeset(textDomain, "UTF-8") != nullptr;
}

/// The table's own text, or `key` itself (the same pointer) when it has none.
const char* lookUp(const char* key) {
    static const bool isBound = bindTextDomain();
    // The empty key would give the catalogue's header.
    return isBound && *key != '\0' ? dgettext(textDomain, key) : key;
}

/// Whether the translation takes the arguments of the English text. A catalogue's texts stay where
/// they are for good, so those that fit are remembered by their address.
bool fits(const char* translation, const char* english) {
    static std::array<std::atomic<const char*>, 256> known{};
    std::atomic<const char*>& slot =
        known[(reinterpret_cast<std::uintptr_t>(translation) * 0x9E3779B97F4A7C15U) >> 56U];
    if (slot.load(std::memory_order_relaxed) == translation) {
        return true;
    }
    if (detail::parseFormatSignature(translation) != detail::parseFormatSignature(english)) {
        return false;
    }
    slot.store(translation, std::memory_order_relaxed);
    return true;
}

/// The translation of `key`, or `english` when there is none that fits.
const char* fittingTranslation(const char* key, const char* english) {
    const char* const translation = lookUp(key);
    return translation != key && fits(translation, english) ? translation : english;
}

}  // namespace

std::string localized(const char* english) {
    return lookUp(english);
}

std::string localizedWithKey(const char* key, const char* fallback) {
    const char* const translation = lookUp(key);
    return translation == key ? fallback : translation;
}

std::string localizedFormatText(const char* english) {
    return fittingTranslation(english, english);
}

std::string detail::localizedFormatArguments(const char* key,
                                             const char* english,
                                             FormatArguments arguments,
                                             bool inUserLocale) {
    const char* const text = fittingTranslation(key, english);
    return inUserLocale ? formatArguments(text, arguments, userDecimalSeparator())
                        : velto::formatArguments(text, arguments);
}

}  // namespace velto
