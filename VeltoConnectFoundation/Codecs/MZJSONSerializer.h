#pragma once

#include <VeltoConnectFoundation/Platform/Stream.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <optional>
#include <string_view>

/// Writes a value tree as compact JSON: strings, null, arrays, dictionaries in their own order,
/// numbers, dates as "2001-01-01T00:00:00.000Z". Trees of any depth.
///
/// A stream is handed runs of bytes in order; it must be open. When something fails, what came
/// before it has been written. One thread at a time.
class VELTO_EXPORT MZJSONSerializer {
public:
    static MZJSONSerializer serializer();  ///< In UTF-8.

    velto::TextEncoding encoding() const noexcept { return encoding_; }
    /// UTF-8, UTF-16 of either order (without a mark), or any that text can be encoded in; there
    /// each unit is converted for itself, and one without a form in it is left out.
    void setEncoding(velto::TextEncoding encoding) noexcept { encoding_ = encoding; }

    [[nodiscard]] std::optional<velto::Data> serializeToJSON(const velto::Value& value,
                                                             velto::Error* error = nullptr) const;
    /// Any kind at the top; a key of a dictionary is written as the kind it is.
    velto::Error serializeToJSON(const velto::Value& value, velto::OutputStream& stream) const;

    velto::Error serializeStringToJSON(std::string_view string, velto::OutputStream& stream) const;
    velto::Error serializeNullToJSON(velto::OutputStream& stream) const;
    velto::Error serializeArrayToJSON(const velto::Array& array, velto::OutputStream& stream) const;
    velto::Error serializeDictionaryToJSON(const velto::Dictionary& dictionary,
                                           velto::OutputStream& stream) const;
    /// `number` is a number of any kind.
    velto::Error serializeNumberToJSON(const velto::Value& number,
                                       velto::OutputStream& stream) const;
    velto::Error serializeDateToJSON(velto::Date date, velto::OutputStream& stream) const;

private:
    velto::TextEncoding encoding_ = velto::TextEncoding::utf8;
};
