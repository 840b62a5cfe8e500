#include <VeltoConnectFoundation/Codecs/MZBufferedOutputStream.h>
#include <VeltoConnectFoundation/Codecs/WriteAllPrivate.h>
#include <VeltoConnectFoundation/Platform/Exception.h>

#include <algorithm>

using velto::Error;

MZBufferedOutputStream::MZBufferedOutputStream(std::shared_ptr<velto::OutputStream> output,
                                               std::size_t bufferSize)
    : output_(std::move(output)), opaque_(MZByteQueueCreate(bufferSize)) {
    velto::assertParameter(opaque_ != nullptr, "_opaque",
                           "-[MZBufferedOutputStream initWithOutputStream:bufferSize:]",
                           "MZBufferedOutputStream.m");
}

MZBufferedOutputStream::~MZBufferedOutputStream() {
    MZByteQueueRelease(opaque_);
}

void MZBufferedOutputStream::open() {
    output_->open();
}

void MZBufferedOutputStream::close() {
    flushByteQueue();
    output_->close();
}

std::ptrdiff_t MZBufferedOutputStream::write(const std::uint8_t* bytes, std::size_t length) {
    if (length > opaque_->capacity - opaque_->length && flushByteQueue()) {
        return -1;
    }
    const std::size_t taken = std::min(length, opaque_->capacity);
    if (taken != 0) {
        MZByteQueueAppendBytes(opaque_, bytes, taken);
    }
    return static_cast<std::ptrdiff_t>(taken);
}

Error MZBufferedOutputStream::flushByteQueue() {
    Error error =
        writeAll(*output_, opaque_->head, opaque_->length, MZBufferedOutputStreamErrorDomain);
    MZByteQueueRemoveAllBytes(opaque_);
    if (error) {
        error_ = error;
        if (const auto delegate = output_->delegate().lock()) {
            delegate->streamHandleEvent(*this, velto::StreamEvent::errorOccurred);
        }
    }
    return error;
}

bool MZBufferedOutputStream::hasSpaceAvailable() const {
    return output_->hasSpaceAvailable();
}

velto::StreamStatus MZBufferedOutputStream::streamStatus() const {
    return output_->streamStatus();
}

Error MZBufferedOutputStream::streamError() const {
    return error_ ? error_ : output_->streamError();
}

velto::Value MZBufferedOutputStream::propertyForKey(std::string_view key) const {
    const_cast<MZBufferedOutputStream*>(this)->flushByteQueue();
    return output_->propertyForKey(key);
}

bool MZBufferedOutputStream::setProperty(const velto::Value& value, std::string_view key) {
    return output_->setProperty(value, key);
}

std::weak_ptr<velto::StreamDelegate> MZBufferedOutputStream::delegate() const {
    return output_->delegate();
}

void MZBufferedOutputStream::setDelegate(std::weak_ptr<velto::StreamDelegate> delegate) {
    output_->setDelegate(std::move(delegate));
}
