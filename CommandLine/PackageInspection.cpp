#include <CommandLine/PackageInspection.h>

#include <CommandLine/Paths.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Files/MZMD5Worker.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>
#include <VeltoConnectFoundation/Platform/XMLDocument.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <unordered_set>
#include <utility>

namespace velto::cli {

namespace {

constexpr std::string_view metadataName = "metadata.xml";
constexpr std::string_view metadataVersion = "film2.3";
constexpr std::size_t largestMetadata = std::size_t{16} << 20;

std::string textOf(const XMLElement& parent, std::string_view child) {
    const XMLElement* const element = parent.child(child);
    return element == nullptr ? std::string() : std::string(trimmed(element->stringValue()));
}

std::string attributeOf(const XMLElement& element, std::string_view name) {
    const std::string* const value = element.attribute(name);
    return value == nullptr ? std::string() : *value;
}

std::optional<std::uint64_t> numberOf(const std::string& text) {
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, problem] = std::from_chars(text.data(), end, number);
    return problem == std::errc() && stopped == end ? std::optional(number) : std::nullopt;
}

bool isMD5(std::string_view text) {
    return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

/// Whether a name stays in the package's folder.
bool isPlain(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

InspectedFile fileOf(const XMLElement& asset, const XMLElement& element) {
    InspectedFile file;
    file.name = textOf(element, "file_name");
    file.assetType = attributeOf(asset, "type");
    file.role = attributeOf(element, "role");
    file.statedSize = numberOf(textOf(element, "size"));
    file.statedMD5 = textOf(element, "checksum");
    for (char& digit : file.statedMD5) {
        if (digit >= 'A' && digit <= 'F') {
            digit = static_cast<char>(digit - 'A' + 'a');
        }
    }
    if (!isPlain(file.name)) {
        file.faults.push_back(localized("its name leads out of the package"));
    }
    if (!file.statedSize) {
        file.faults.push_back(localized("its size is missing, or no number"));
    }
    const XMLElement* const checksum = element.child("checksum");
    if (!isMD5(file.statedMD5) || attributeOf(*checksum, "type") != "md5") {
        file.faults.push_back(localized("its checksum is missing, or no MD5"));
    }
    return file;
}

std::string pathOf(const std::string& folder, const std::string& name) {
    return (std::filesystem::path(folder) / name).string();
}

/// Why a file cannot be read; its name stands beside it.
std::string unreadable(const Error& error, std::string_view path) {
    const std::string whole = systemReason(error).localizedDescription();
    std::string_view text = whole;
    if (text.starts_with(path) && text.substr(path.size()).starts_with(": ")) {
        text.remove_prefix(path.size() + 2);
    }
    return localizedFormat("it cannot be read: %@", text);
}

void look(const std::string& folder, InspectedFile& file) {
    if (!isPlain(file.name)) {
        return;
    }
    Error error;
    const std::string path = pathOf(folder, file.name);
    const auto attributes = FileManager::linkAttributes(path, &error);
    if (!attributes) {
        file.faults.push_back(error.code() == ENOENT ? localized("it is missing")
                                                     : unreadable(error, path));
    } else if (attributes->kind != FileAttributes::Kind::regular) {
        file.faults.push_back(localized("it is not a file"));
    } else {
        file.size = attributes->size;
        if (file.statedSize && *file.statedSize != attributes->size) {
            file.faults.push_back(
                localizedFormat("it has %llu bytes, not %llu", attributes->size, *file.statedSize));
        }
    }
}

}  // namespace

bool InspectedPackage::holds() const {
    return faults.empty() && !files.empty() &&
           std::ranges::all_of(files, [](const InspectedFile& file) { return file.holds(); });
}

std::vector<std::string> InspectedPackage::allFaults() const {
    std::vector<std::string> all = faults;
    for (const InspectedFile& file : files) {
        for (const std::string& fault : file.faults) {
            all.push_back(printable(localizedFormat("%@: %@", file.name, fault)));
        }
    }
    return all;
}

bool InspectedPackage::read(const std::string& path, Failure& failure) {
    folder = absolutePath(path);
    failure = {.what = localized("There is no package to look into."),
               .next = localized("Give the path of a package: a folder NAME.velmp.")};
    Error error;
    const auto names = FileManager::namesInFolder(folder, &error);
    if (!names) {
        failure.why.push_back(printable(error.localizedDescription()));
        return false;
    }
    const std::string metadata = pathOf(folder, std::string(metadataName));
    const auto attributes = FileManager::linkAttributes(metadata, &error);
    const bool isFile = attributes && attributes->kind == FileAttributes::Kind::regular;
    const auto bytes = isFile ? FileManager::read(metadata, largestMetadata, &error) : std::nullopt;
    const auto document = bytes ? XMLDocument::parse(bytes->view(), &error) : std::nullopt;
    if (!document) {
        failure.what = localized("The package's metadata.xml cannot be read.");
        failure.why.push_back(attributes && !isFile ? localized("It is not a file.")
                                                    : printable(error.localizedDescription()));
        if (const auto place = error.localizedFailureReason()) {
            failure.why.push_back(printable(*place));
        }
        failure.next = bytes ? localized("Correct metadata.xml in the package, then try again.")
                             : localized("Make the package anew: velto package create.");
        return false;
    }
    const XMLElement& root = document->root();
    if (root.name() != "package" || attributeOf(root, "version") != metadataVersion) {
        faults.push_back(localizedFormat("metadata.xml is not of the version %@", metadataVersion));
    }
    provider = textOf(root, "provider");
    if (provider.empty()) {
        faults.push_back(localized("metadata.xml names no provider"));
    }
    std::unordered_set<std::string> known;
    for (const XMLElement* const assets : root.childrenNamed("assets")) {
        mediaType = attributeOf(*assets, "media_type");
        vendorID = attributeOf(*assets, "vendor_id");
        for (const XMLElement* const asset : assets->childrenNamed("asset")) {
            for (const XMLElement* const element : asset->childrenNamed("data_file")) {
                InspectedFile file = fileOf(*asset, *element);
                if (!known.insert(file.name).second) {
                    file.faults.push_back(localized("metadata.xml tells of it twice"));
                }
                look(folder, file);
                files.push_back(std::move(file));
            }
        }
    }
    if (vendorID.empty()) {
        faults.push_back(localized("metadata.xml names no vendor identifier"));
    }
    if (files.empty()) {
        faults.push_back(localized("metadata.xml tells of no file"));
    }
    for (const std::string& name : *names) {
        if (name != metadataName && !known.contains(name)) {
            strangers.push_back(name);
        }
    }
    std::ranges::sort(strangers);
    return true;
}

PackageInspection::PackageInspection(PassKey, InspectedPackage& package) : package_(package) {
    for (const InspectedFile& file : package_.files) {
        size_ += file.faults.empty() ? file.size.value_or(0) : 0;
    }
}

PackageInspection::~PackageInspection() = default;

void PackageInspection::run() {
    if (!startUnlessCancelled()) {
        return;
    }
    for (InspectedFile& file : package_.files) {
        if (isCancelled()) {
            return;
        }
        if (file.faults.empty()) {
            inspect(file);
        }
    }
    setPercentComplete(100);
    static_cast<void>(finishUnlessCancelled());  // A cancel that came last changes no result.
}

void PackageInspection::inspect(InspectedFile& file) {
    setStatusMessage(localizedFormat("Computing the checksum of %@…", file.name));
    const std::string path = pathOf(package_.folder, file.name);
    const auto worker = velto::make<MZMD5Worker>(path);
    {
        const Guard guard(currentLock_);
        current_ = worker;
    }
    if (isCancelled()) {
        worker->cancel();  // which cancel() did not find
    }
    worker->run();
    file.md5 = worker->md5();
    for (const Error& error : worker->errors()) {
        file.faults.push_back(unreadable(error, path));
    }
    if (file.md5 && *file.md5 != file.statedMD5) {
        file.faults.push_back(localizedFormat("its MD5 is %@, not %@", *file.md5, file.statedMD5));
    }
    const Guard guard(currentLock_);
    current_ = nullptr;
    done_ += file.size.value_or(0);
}

void PackageInspection::cancel() {
    MZAbstractWorker::cancel();
    if (const auto worker = current()) {
        worker->cancel();
    }
}

std::shared_ptr<MZMD5Worker> PackageInspection::current() const {
    const Guard guard(currentLock_);
    return current_;
}

double PackageInspection::percentComplete() const {
    const double told = MZAbstractWorker::percentComplete();
    return told >= 100 || size_ == 0
               ? told
               : static_cast<double>(completed()) / static_cast<double>(size_) * 100;
}

std::uint64_t PackageInspection::completed() const {
    const Guard guard(currentLock_);
    return std::min(size_, done_ + (current_ == nullptr ? 0 : current_->completed()));
}

}  // namespace velto::cli
