#include <VeltoConnectFoundation/DeliveryTool/NSDataToStringFilter.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/Format.h>

#include <cstring>
#include <utility>

namespace {

std::size_t findByte(std::string_view bytes, char byte, std::size_t from) noexcept {
    const void* found =
        from < bytes.size() ? std::memchr(bytes.data() + from, byte, bytes.size() - from) : nullptr;
    return found == nullptr
               ? std::string_view::npos
               : static_cast<std::size_t>(static_cast<const char*>(found) - bytes.data());
}

}  // namespace

NSDataToStringFilterDelegate::~NSDataToStringFilterDelegate() = default;

NSDataToStringFilter::NSDataToStringFilter(std::weak_ptr<NSDataToStringFilterDelegate> delegate)
    : NSDataToStringFilter('\n', std::move(delegate)) {
}

NSDataToStringFilter::NSDataToStringFilter(int separator,
                                           std::weak_ptr<NSDataToStringFilterDelegate> deletegate)
    : separator_(static_cast<char>(separator)), delegate_(std::move(deletegate)) {
    if (delegate_.expired()) {
        throw velto::Exception(
            velto::InvalidArgumentException,
            velto::format("Delegate does not respond to %@", "filter:didFilterString:"));
    }
}

void NSDataToStringFilter::appendData(std::string_view bytes) {
    if (isInterrupted_) {
        isInterrupted_ = false;
        appendData(std::exchange(unused_, {}).append(bytes));
        return;
    }
    const std::size_t first = findByte(bytes, separator_, 0);
    if (first == std::string_view::npos) {
        unused_.append(bytes);
        return;
    }
    std::size_t start = 0;
    try {
        const std::shared_ptr<NSDataToStringFilterDelegate> delegate = delegate_.lock();
        if (!unused_.empty()) {
            std::string piece = std::exchange(unused_, {});
            start = first + 1;
            handOver(delegate.get(), piece.append(bytes.substr(0, start)), false);
        }
        const void* last = ::memrchr(bytes.data(), separator_, bytes.size());
        const auto end =
            static_cast<std::size_t>(static_cast<const char*>(last) - bytes.data()) + 1;
        // One look at a whole block costs much less than one at each line. A piece of a valid
        // block is valid, as its ends are separators, unless these are no characters.
        const bool isKnownUTF8 = encoding_ == velto::TextEncoding::utf8 && separator_ >= 0 &&
                                 velto::isValidUTF8(bytes.substr(start, end - start));
        while (start < end) {
            const std::size_t next = findByte(bytes, separator_, start) + 1;
            const std::string_view piece = bytes.substr(start, next - start);
            start = next;
            handOver(delegate.get(), piece, isKnownUTF8);
        }
    } catch (...) {
        // The pieces behind the one that the delegate threw at are told with the next block.
        isInterrupted_ = true;
        unused_.assign(bytes.substr(start));
        throw;
    }
    unused_.assign(bytes.substr(start));
}

void NSDataToStringFilter::handOver(NSDataToStringFilterDelegate* delegate,
                                    std::string_view piece,
                                    bool isKnownUTF8) {
    if (delegate == nullptr) {
        return;
    }
    if (encoding_ != velto::TextEncoding::utf8) {
        const std::optional<std::string> decoded = velto::decodeText(piece, encoding_);
        delegate->filterDidFilterString(
            *this, decoded ? std::optional<std::string_view>(*decoded) : std::nullopt);
    } else if (isKnownUTF8 || velto::isValidUTF8(piece)) {
        delegate->filterDidFilterString(*this, piece);
    } else {
        delegate->filterDidFilterString(*this, std::nullopt);
    }
}

velto::Data NSDataToStringFilter::unusedData() const {
    return velto::Data(std::string_view(unused_));
}
