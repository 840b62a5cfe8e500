#include <VeltoConnectFoundation/Codecs/MZMD5Context.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <utility>

using velto::Error;
using velto::markLocalized;

MZMD5Context MZMD5Context::context() {
    return {};
}

void MZMD5Context::setError(Error error) {
    error_ = std::move(error);
    state_ = MZMD5ContextState::error;
    context_.reset();
}

Error MZMD5Context::fail(std::int64_t code, const char* text) {
    const std::string translated = velto::localized(text);
    setError(Error::make(MZMD5ContextErrorDomain, code, translated, translated));
    return error_;
}

// Required: the spelling of "conext", and "attempting retrieve".

Error MZMD5Context::open() {
    if (error_) {
        return error_;
    }
    if (state_ != MZMD5ContextState::uninitialized) {
        return fail(-19002, markLocalized(
                                "MD5 conext must be uninitialized before attempting to open it."));
    }
    context_.emplace(velto::Digest::Algorithm::md5);
    if (!context_->isValid()) {
        return fail(-19001, markLocalized("Unable to initialize the MD5 context."));
    }
    state_ = MZMD5ContextState::open;
    return {};
}

Error MZMD5Context::updateWithBytes(const void* bytes, std::size_t length) {
    if (error_) {
        return error_;
    }
    if (state_ == MZMD5ContextState::uninitialized) {
        if (Error error = open()) {
            return error;
        }
    }
    if (state_ != MZMD5ContextState::open || !context_) {
        return fail(-19003,
                    markLocalized("MD5 conext must be open before attempting to update it."));
    }
    if (length != 0 && !context_->update(bytes, length)) {
        return fail(-19005, markLocalized("Unable to update MD5 context."));
    }
    return {};
}

Error MZMD5Context::close() {
    if (error_) {
        return error_;
    }
    if (state_ != MZMD5ContextState::open || !context_) {
        return fail(-19004,
                    markLocalized("MD5 conext must be open before attempting to close it."));
    }
    const std::optional<velto::Data> digest = context_->finish();
    context_.reset();
    if (!digest) {
        return fail(-19006, markLocalized("Unable to finalize MD5 context."));
    }
    md5_ = velto::hexadecimal(digest->view());
    state_ = MZMD5ContextState::closed;
    return {};
}

std::optional<std::string> MZMD5Context::md5WithError(Error* error) {
    if (!error_ && state_ == MZMD5ContextState::uninitialized) {
        open();
    }
    if (!error_ && state_ == MZMD5ContextState::open) {
        close();
    }
    if (!error_ && state_ != MZMD5ContextState::closed) {
        fail(-19007,
             markLocalized("MD5 conext must be closed before attempting retrieve the MD5."));
    }
    if (error_) {
        velto::fail(error, error_);
        return std::nullopt;
    }
    return md5_;
}
