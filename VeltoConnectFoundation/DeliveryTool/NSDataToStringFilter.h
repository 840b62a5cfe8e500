#pragma once

#include <VeltoConnectFoundation/Platform/TextEncoding.h>
#include <VeltoConnectFoundation/Platform/Value.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

class NSDataToStringFilter;

/// Receives the pieces of a filter. Required, so it has no default body.
class VELTO_EXPORT NSDataToStringFilterDelegate {
public:
    virtual ~NSDataToStringFilterDelegate();

    /// One piece with its separator at the end, valid during the call; none for a piece that does
    /// not decode.
    virtual void filterDidFilterString(NSDataToStringFilter& filter,
                                       std::optional<std::string_view> string) = 0;
};

/// Cuts a stream of bytes into strings that end with a separator. One thread at a time.
///
/// UTF-8 pieces are handed on where they lie in the block, without a copy; only a piece that came
/// in several blocks is put together first.
class VELTO_EXPORT NSDataToStringFilter {
public:
    /// Cuts at line feeds. The delegate is held weakly; none raises InvalidArgumentException.
    explicit NSDataToStringFilter(std::weak_ptr<NSDataToStringFilterDelegate> delegate);
    /// `separator` is a byte value. Required: the spelling of the second label.
    NSDataToStringFilter(int separator, std::weak_ptr<NSDataToStringFilterDelegate> deletegate);

    /// Every piece that is complete goes to the delegate before the call returns.
    void appendData(std::string_view bytes);
    void appendData(const velto::Data& bytes) { appendData(bytes.view()); }

    velto::TextEncoding stringEncoding() const { return encoding_; }
    void setStringEncoding(velto::TextEncoding encoding) { encoding_ = encoding; }
    velto::Data unusedData() const;  ///< The bytes after the last separator.

private:
    void handOver(NSDataToStringFilterDelegate* delegate, std::string_view piece, bool isKnownUTF8);

    char separator_;
    velto::TextEncoding encoding_ = velto::TextEncoding::utf8;
    std::weak_ptr<NSDataToStringFilterDelegate> delegate_;
    std::string unused_;          ///< Holds no separator, unless
    bool isInterrupted_ = false;  ///< the delegate threw.
};
