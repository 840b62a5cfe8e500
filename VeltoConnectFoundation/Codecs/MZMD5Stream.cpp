#include <VeltoConnectFoundation/Codecs/MZMD5Stream.h>

#include <utility>

using velto::Error;
using velto::StreamStatus;

template <class Wrapped>
MZMD5Stream<Wrapped>::MZMD5Stream(std::shared_ptr<Wrapped> stream) : stream_(std::move(stream)) {
}

template <class Wrapped>
MZMD5Stream<Wrapped>::~MZMD5Stream() = default;

template <class Wrapped>
bool MZMD5Stream<Wrapped>::failsWith(const Error& error) {
    if (!error) {
        return false;
    }
    error_ = error;
    if (const auto delegate = this->delegate().lock()) {
        delegate->streamHandleEvent(*this, velto::StreamEvent::errorOccurred);
    }
    return true;
}

template <class Wrapped>
void MZMD5Stream<Wrapped>::open() {
    stream_->open();
    if (stream_->streamStatus() != StreamStatus::error) {
        failsWith(context_.open());
    }
}

template <class Wrapped>
void MZMD5Stream<Wrapped>::close() {
    stream_->close();
    // A file that failed is closed afterwards, and still holds why: that must not be hidden.
    if (stream_->streamStatus() != StreamStatus::error && !stream_->streamError()) {
        failsWith(context_.close());
    }
}

template <class Wrapped>
std::ptrdiff_t MZMD5Stream<Wrapped>::passed(const std::uint8_t* bytes, std::ptrdiff_t count) {
    if (count > 0 && failsWith(context_.updateWithBytes(bytes, static_cast<std::size_t>(count)))) {
        return -1;
    }
    return count;
}

template <class Wrapped>
std::optional<std::string> MZMD5Stream<Wrapped>::md5WithError(Error* error) {
    if (Error own = streamError()) {
        velto::fail(error, std::move(own));
        return std::nullopt;
    }
    return context_.md5WithError(error);
}

template <class Wrapped>
StreamStatus MZMD5Stream<Wrapped>::streamStatus() const {
    return error_ ? StreamStatus::error : stream_->streamStatus();
}

template <class Wrapped>
Error MZMD5Stream<Wrapped>::streamError() const {
    return error_ ? error_ : stream_->streamError();
}

template <class Wrapped>
velto::Value MZMD5Stream<Wrapped>::propertyForKey(std::string_view key) const {
    return stream_->propertyForKey(key);
}

template <class Wrapped>
bool MZMD5Stream<Wrapped>::setProperty(const velto::Value& value, std::string_view key) {
    return stream_->setProperty(value, key);
}

template <class Wrapped>
std::weak_ptr<velto::StreamDelegate> MZMD5Stream<Wrapped>::delegate() const {
    return stream_->delegate();
}

template <class Wrapped>
void MZMD5Stream<Wrapped>::setDelegate(std::weak_ptr<velto::StreamDelegate> delegate) {
    stream_->setDelegate(std::move(delegate));
}

template class MZMD5Stream<velto::InputStream>;
template class MZMD5Stream<velto::OutputStream>;
