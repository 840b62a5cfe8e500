#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The keys of a content dictionary: the MD5 of the bytes, and one of the other two.
inline constexpr std::string_view MZContentChecksumKey = "Checksum";
inline constexpr std::string_view MZContentKey = "Content";          ///< Base64 text of the bytes.
inline constexpr std::string_view MZGzipContentKey = "GzipContent";  ///< … of the gzipped bytes.

/// Bytes as the dictionary in which they travel inside JSON messages, and back. One thread at a
/// time; the shared one never changes.
class VELTO_EXPORT MZBase64EncodingUtilities {
public:
    static const MZBase64EncodingUtilities& defaultUtilities();
    static MZBase64EncodingUtilities utilities();
    static velto::TextEncoding defaultEncoding() noexcept { return velto::TextEncoding::utf8; }

    /// Of the base64 text.
    velto::TextEncoding encoding() const noexcept { return encoding_; }
    void setEncoding(velto::TextEncoding encoding) noexcept { encoding_ = encoding; }
    bool isCompressing() const noexcept { return compressing_; }
    void setCompressing(bool compressing) noexcept { compressing_ = compressing; }

    [[nodiscard]] std::optional<velto::Dictionary> encodedData(const velto::Data& data,
                                                               velto::Error* error = nullptr) const;
    /// Checks the bytes against "Checksum" when there is one; either case of its digits is fine.
    [[nodiscard]] std::optional<velto::Data> decodedData(const velto::Dictionary& content,
                                                         velto::Error* error = nullptr) const;
    /// A regular file; it is read, never mapped, since it may be cut short meanwhile.
    [[nodiscard]] std::optional<velto::Dictionary> encodedFileAtPath(
        std::string_view path,
        velto::Error* error = nullptr) const;

    /// Dictionaries in order; the first failure is the whole call's.
    [[nodiscard]] std::optional<velto::Array> encodeDatas(const std::vector<velto::Data>& datas,
                                                          velto::Error* error = nullptr) const;
    [[nodiscard]] std::optional<velto::Array> encodedFilesAtPaths(
        const std::vector<std::string>& paths,
        velto::Error* error = nullptr) const;

private:
    velto::TextEncoding encoding_ = defaultEncoding();
    bool compressing_ = true;
};
