#include <VeltoConnectFoundation/Files/VeltoVideoPackageBuilderWorker.h>

#include <VeltoConnectFoundation/Files/MZFileCopyMD5Operation.h>
#include <VeltoConnectFoundation/Files/MZMD5Worker.h>
#include <VeltoConnectFoundation/Files/VeltoPackageFolderPrivate.h>
#include <VeltoConnectFoundation/Files/VeltoVideoMetadataWorker.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <cerrno>
#include <filesystem>
#include <utility>

using velto::Error;
using velto::FileManager;
using velto::format;
using velto::Guard;
using velto::localized;
using velto::localizedFormat;
using velto::Value;

namespace {

constexpr std::string_view metadataName = "metadata.xml";

std::string withoutExtension(std::string_view path) {
    return std::filesystem::path(path).replace_extension().string();
}

std::string lastComponent(std::string_view path) {
    return std::filesystem::path(path).filename().string();
}

/// The name by number: the example itself, then "…-1.velmp" and so on.
std::string candidate(std::string_view example, unsigned long number) {
    return number == 0 ? std::string(example)
                       : withoutExtension(example) + format("-%lu.velmp", number);
}

Error refusal(int code, const std::string& text) {
    return Error::make(velto::GeneralErrorDomain, code, text, text);
}

/// Why a package cannot hold the video under its name, if it cannot.
Error faultOfSource(const std::string& source) {
    const auto attributes = FileManager::linkAttributes(source);
    if (attributes && attributes->kind == velto::FileAttributes::Kind::symbolicLink) {
        return refusal(
            ELOOP, localizedFormat("%@: it is a symbolic link, and a package holds files", source));
    }
    if (VeltoVideoPackageBuilderWorker::isMetadataName(lastComponent(source))) {
        return refusal(EEXIST,
                       localizedFormat("%@: a package's own metadata bears this name", source));
    }
    return {};
}

/// The failure's own words may begin with the directory, which is told once.
std::string unmade(std::string_view directory, const Error& failure) {
    std::string reason = failure.localizedDescription();
    const std::string name = std::string(directory) + ": ";
    reason.erase(0, reason.starts_with(name) ? name.size() : 0);
    return localizedFormat("Unable to create directory: %@: %@", directory, reason);
}

std::string cancelledMessage() {
    return localized("Creation of video package cancelled");
}

}  // namespace

VeltoVideoPackageBuilderWorker::VeltoVideoPackageBuilderWorker(
    velto::PassKey,
    std::shared_ptr<VeltoVideoMetadataWorker> metadataWorker,
    std::shared_ptr<MZMD5Worker> md5Worker,
    std::string_view assetType)
    : videoMetadataWorker_(std::move(metadataWorker)),
      md5Worker_(std::move(md5Worker)),
      assetType_(assetType) {
    velto::assertParameter(videoMetadataWorker_ != nullptr, "metadataWorker",
                           "initWithMetadataWorker", "VeltoVideoPackageBuilderWorker.cpp");
    velto::assertParameter(md5Worker_ != nullptr, "md5Worker", "initWithMetadataWorker",
                           "VeltoVideoPackageBuilderWorker.cpp");
    setStatusMessage(localized("Create Velto Store package"));
}

VeltoVideoPackageBuilderWorker::~VeltoVideoPackageBuilderWorker() = default;

std::shared_ptr<VeltoVideoPackageBuilderWorker>
VeltoVideoPackageBuilderWorker::initWithMetadataWorker(
    std::shared_ptr<VeltoVideoMetadataWorker> metadataWorker,
    std::shared_ptr<MZMD5Worker> md5Worker,
    std::string_view assetType) {
    return velto::make<VeltoVideoPackageBuilderWorker>(std::move(metadataWorker),
                                                       std::move(md5Worker), assetType);
}

std::shared_ptr<VeltoVideoPackageBuilderWorker> VeltoVideoPackageBuilderWorker::builderForVideo(
    std::shared_ptr<VeltoVideoMetadataWorker> metadataWorker,
    std::string_view video,
    std::string_view assetType) {
    auto builder = initWithMetadataWorker(std::move(metadataWorker),
                                          velto::make<MZMD5Worker>(video), assetType);
    builder->digestsCopy_ = true;
    return builder;
}

void VeltoVideoPackageBuilderWorker::run() {
    if (!startUnlessCancelled()) {
        setPercentComplete(100);
        return;
    }
    setPercentComplete(0);
    try {
        if (!videoMetadataWorker_->isValidVendorID()) {
            addErrorMessage(localized("No valid metadata"));
        } else if (!digestsCopy_ && !md5Worker_->md5()) {
            addErrorMessage(localized("No valid MD5"));
        } else {
            addError(createPackage());
        }
    } catch (...) {
        setPercentComplete(100);
        throw;
    }
    setPercentComplete(100);
    if (!finishUnlessCancelled()) {
        setStatusMessage(cancelledMessage());
    }
}

void VeltoVideoPackageBuilderWorker::cancel() {
    VeltoPackageBuilder::cancel();
    if (const auto running = copy()) {
        running->cancel();
    }
    setStatusMessage(cancelledMessage());
}

/// The last word of a cancelled build is that it was cancelled, whoever comes first.
void VeltoVideoPackageBuilderWorker::tellPhase(std::string message) {
    if (!isCancelled()) {
        setStatusMessage(std::move(message));
    }
    if (isCancelled()) {
        setStatusMessage(cancelledMessage());
    }
}

Error VeltoVideoPackageBuilderWorker::createPackage() {
    const std::string source = md5Worker_->file();
    if (Error fault = faultOfSource(source)) {
        return fault;
    }
    std::string directory;
    if (const Error failure = makeFolder(source, directory)) {
        tellPhase(localized("Creating Velto Store package…"));
        addErrorMessage(unmade(directory, failure));
        return {};
    }
    Error error =
        _createPackageAtDirectory(directory, source, md5Worker_->md5().value_or(std::string()));
    if (!error && !hasErrors()) {
        tellPhase(localizedFormat("Generated package: %@", directory));
    }
    return error;
}

/// The first free name. It is asked for by making the folder: another build may want it, too.
Error VeltoVideoPackageBuilderWorker::makeFolder(const std::string& source,
                                                 std::string& directory) {
    using Kind = VeltoPackageFolder::Kind;
    const std::string example = exampleDirectoryForVideo(source);
    Error failure;
    for (unsigned long number = 0; folder_ == nullptr; ++number) {
        directory = candidate(example, number);
        folder_ = VeltoPackageFolder::create(directory,
                                             digestsCopy_ ? Kind::marked : Kind::unmarked, failure);
        if (folder_ == nullptr && failure.code() != EEXIST) {
            return failure;
        }
        if (folder_ == nullptr && digestsCopy_) {
            folder_ = VeltoPackageFolder::takeOver(directory, lastComponent(source));
        }
    }
    Guard guard(copyLock_);
    createdDirectory_ = directory;
    return {};
}

VeltoPackageFolder* VeltoVideoPackageBuilderWorker::folderAt(std::string_view directory,
                                                             Error& error) {
    if (folder_ == nullptr || folder_->path() != directory) {
        folder_ = VeltoPackageFolder::at(std::string(directory), error);
    }
    return folder_.get();
}

Error VeltoVideoPackageBuilderWorker::discard() {
    if (createdDirectory().empty()) {
        return {};
    }
    const std::string video = lastComponent(md5Worker_->file());
    if (Error failure = folder_->remove(hasCopied_ ? video : std::string())) {
        return failure;
    }
    folder_.reset();
    Guard guard(copyLock_);
    createdDirectory_.clear();
    return {};
}

bool VeltoVideoPackageBuilderWorker::isMetadataName(std::string_view name) {
    return name.size() == metadataName.size() && velto::findIgnoringCase(name, metadataName) == 0;
}

std::string VeltoVideoPackageBuilderWorker::exampleDirectoryForVideo(std::string_view video) {
    return withoutExtension(video) + "-UntitledVeltoStoreDelivery.velmp";
}

std::string VeltoVideoPackageBuilderWorker::uniqueDirectoryNameWithExample(std::string_view path) {
    // A link that leads nowhere takes its name, too.
    std::string name(path);
    for (unsigned long number = 1; FileManager::linkAttributes(name); ++number) {
        name = candidate(path, number);
    }
    return name;
}

Error VeltoVideoPackageBuilderWorker::_createPackageAtDirectory(std::string_view directory,
                                                                std::string_view sourceFile,
                                                                std::string_view md5) {
    tellPhase(localized("Creating Velto Store package…"));
    Error failure;
    VeltoPackageFolder* const folder = folderAt(directory, failure);
    if (folder == nullptr) {
        addErrorMessage(unmade(directory, failure));
        return {};
    }
    tellPhase(localized("Copying media to the package…"));
    const auto operation = beginCopy(sourceFile, failure);
    if (operation == nullptr) {
        return failure;
    }
    hasCopied_ = true;
    if ((failure = operation->copyToFolder(folder->folder(), lastComponent(sourceFile)))) {
        hasCopied_ = failure.underlyingError().code() != EEXIST;
        return failure;
    }
    if ((failure = faultOfCopy(*operation))) {
        return failure;
    }
    if (isCancelled()) {
        return {};
    }
    const auto* const digesting = dynamic_cast<const MZFileCopyMD5Operation*>(operation.get());
    const std::string digest =
        digesting != nullptr ? digesting->md5().value_or(std::string()) : std::string(md5);
    {
        Guard guard(copyLock_);
        md5_ = digest;
    }
    tellPhase(localized("Generating metadata…"));
    _generateMetadataXMLForSourceFile(folder->folder().pathOf(lastComponent(sourceFile)), digest,
                                      operation->copied(), directory);
    return {};
}

/// The metadata tells of a video that stayed as it was while it was copied, and has been since it
/// was digested.
Error VeltoVideoPackageBuilderWorker::faultOfCopy(const MZFileCopyOperation& operation) const {
    const auto& copied = operation.sourceAttributes();
    const auto digested = digestsCopy_ ? copied : md5Worker_->fileAttributes();
    return copied && digested && copied->isUnchangedSince(*digested)
               ? Error()
               : refusal(ESTALE, localizedFormat("%@: it changed while the package was made",
                                                 operation.file()));
}

std::shared_ptr<MZFileCopyOperation> VeltoVideoPackageBuilderWorker::beginCopy(
    std::string_view file,
    Error& error) {
    if (const auto previous = copy()) {
        previous->cancel();
    }
    std::shared_ptr<MZFileCopyOperation> operation;
    if (digestsCopy_) {
        operation = MZFileCopyMD5Operation::initWithFile(file, error);
    } else {
        operation = MZFileCopyOperation::initWithFile(file, error);
    }
    if (operation == nullptr) {
        return nullptr;
    }
    operation->setCopyFileProgressCallbackBlockPtr(
        [this](std::uint64_t, std::uint64_t, bool&) { setPercentComplete(percentComplete()); });
    {
        Guard guard(copyLock_);
        copy_ = operation;
        size_ = operation->size();
    }
    if (isCancelled()) {
        operation->cancel();  // which cancel() found no copy to do to
    }
    return operation;
}

Value VeltoVideoPackageBuilderWorker::fileCopy(std::string_view file,
                                               std::string_view path,
                                               Error& error) {
    const auto operation = beginCopy(file, error);
    if (operation == nullptr) {
        return {};
    }
    if (Error failure = operation->copyToPath(path)) {
        error = std::move(failure);
        return {};
    }
    return operation->fileSize();
}

void VeltoVideoPackageBuilderWorker::_generateMetadataXMLForSourceFile(std::string_view sourceFile,
                                                                       std::string_view md5,
                                                                       const Value& size,
                                                                       std::string_view directory) {
    tellPhase(localized("Generating metadata…"));
    Error failure;
    VeltoPackageFolder* const folder = folderAt(directory, failure);
    if (folder != nullptr) {
        failure = folder->finish(metadataXML(lastComponent(sourceFile), md5, size));
    }
    if (failure) {
        addError(failure);
    } else {
        setPackagePath(directory);
    }
}

std::string VeltoVideoPackageBuilderWorker::metadataXML(std::string_view fileName,
                                                        std::string_view md5,
                                                        const Value& size) const {
    // Required: values stand as they are, without escaping.
    std::string text;
    text += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    text += "<package version=\"film2.3\">\n";
    text += format("\t<provider>%@</provider>\n", providerShortName());
    text += format("\t<assets media_type=\"%@\" vendor_id=\"%@\">\n",
                   videoMetadataWorker_->mediaType(), videoMetadataWorker_->vendorIdentifier());
    text += format("\t\t<asset type=\"%@\">\n", xmlAssetType());
    text += format("\t\t\t<data_file role=\"%@\">\n", "source");
    text += format("\t\t\t\t<file_name>%@</file_name>\n", fileName);
    text += format("\t\t\t\t<size>%@</size>\n", size);
    text += format("\t\t\t\t<checksum type=\"md5\">%@</checksum>\n", md5);
    text += "\t\t\t</data_file>\n";
    text += "\t\t</asset>\n";
    text += "\t</assets>\n";
    text += "</package>\n";
    return text;
}

bool VeltoVideoPackageBuilderWorker::isMediaTypeMovie() const {
    const std::string mediaType = videoMetadataWorker_->mediaType();
    return mediaType == "Film" || mediaType == "Movie";
}

std::string VeltoVideoPackageBuilderWorker::xmlAssetType() const {
    return isMediaTypeMovie() && assetType_ == "Trailer" ? "preview" : "full";
}

std::string VeltoVideoPackageBuilderWorker::providerShortName() const {
    return videoMetadataWorker_->providerShortName();
}

std::string VeltoVideoPackageBuilderWorker::createdDirectory() const {
    Guard guard(copyLock_);
    return createdDirectory_;
}

std::optional<std::string> VeltoVideoPackageBuilderWorker::md5() const {
    Guard guard(copyLock_);
    return md5_;
}

std::shared_ptr<MZFileCopyOperation> VeltoVideoPackageBuilderWorker::copy() const {
    Guard guard(copyLock_);
    return copy_;
}

double VeltoVideoPackageBuilderWorker::percentComplete() const {
    const double told = VeltoPackageBuilder::percentComplete();
    if (told >= 100) {
        return told;
    }
    const std::uint64_t total = size_;
    if (total == 0) {
        return hasErrors() ? 100 : 0;
    }
    return static_cast<double>(completed()) / static_cast<double>(total) * 100;
}

std::uint64_t VeltoVideoPackageBuilderWorker::size() const {
    return size_;
}

std::uint64_t VeltoVideoPackageBuilderWorker::completed() const {
    const auto running = copy();
    return running == nullptr ? 0 : running->copied();
}
