#include <VeltoConnectFoundation/Files/MZFileCopyMD5Operation.h>

#include <VeltoConnectFoundation/Platform/CopyFile.h>

#include <utility>

using velto::Error;

MZFileCopyMD5Operation::MZFileCopyMD5Operation(velto::PassKey key,
                                               std::string_view file,
                                               velto::Value fileSize)
    : MZFileCopyOperation(key, file, std::move(fileSize)) {
}

MZFileCopyMD5Operation::~MZFileCopyMD5Operation() = default;

std::shared_ptr<MZFileCopyMD5Operation> MZFileCopyMD5Operation::initWithFile(std::string_view path,
                                                                             Error& error) {
    velto::Value size = computeFileSize(path, error);
    return size ? velto::make<MZFileCopyMD5Operation>(path, std::move(size)) : nullptr;
}

std::shared_ptr<MZFileCopyMD5Operation> MZFileCopyMD5Operation::initWithFile(
    std::string_view path) {
    return velto::make<MZFileCopyMD5Operation>(path, computeFileSize(path));
}

Error MZFileCopyMD5Operation::finish(Error error) {
    md5_.reset();
    MZMD5Context context = std::exchange(context_, MZMD5Context::context());
    if (const Error& digest = context.error()) {
        return digest;
    }
    if (!error) {
        md5_ = context.md5WithError(&error);
    }
    return error;
}

void MZFileCopyMD5Operation::prepare(velto::CopyFileObserver& observer) {
    observer.bytes = [this](const std::uint8_t* bytes, std::size_t count) {
        return !isCancelled() && !context_.updateWithBytes(bytes, count);
    };
}
