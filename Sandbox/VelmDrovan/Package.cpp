#include <VelmDrovan/Package.h>

#include <VelmDrovan/Crypto.h>

#include <dirent.h>
#include <expat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>
#include <optional>
#include <set>
#include <unordered_set>

namespace sandbox {
namespace {

constexpr std::string_view metadataName = "metadata.xml";
constexpr std::string_view extension = ".velmp";
constexpr std::size_t deepest = 64;

std::string trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

/// Collects a package's description from the parser's events, and its faults.
class MetadataReader {
public:
    explicit MetadataReader(Package& package) : package_(package) {}

    std::vector<Fault> read(const std::string& text) {
        const std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(
            XML_ParserCreate(nullptr), XML_ParserFree);
        parser_ = parser.get();
        XML_SetUserData(parser_, this);
        XML_SetElementHandler(
            parser_,
            [](void* self, const XML_Char* name, const XML_Char** attributes) {
                static_cast<MetadataReader*>(self)->start(name, attributes);
            },
            [](void* self, const XML_Char*) { static_cast<MetadataReader*>(self)->end(); });
        XML_SetCharacterDataHandler(parser_, [](void* self, const XML_Char* bytes, int count) {
            static_cast<MetadataReader*>(self)->text_.append(bytes,
                                                             static_cast<std::size_t>(count));
        });
        // A description has no use for entities and for attributes that stand nowhere in it.
        XML_SetStartDoctypeDeclHandler(parser_, [](void* self, const XML_Char*, const XML_Char*,
                                                   const XML_Char*, int hasDeclarations) {
            if (hasDeclarations)
                static_cast<MetadataReader*>(self)->stop(
                    "a document type with declarations is not allowed");
        });
        XML_SetSkippedEntityHandler(parser_, [](void* self, const XML_Char*, int) {
            static_cast<MetadataReader*>(self)->stop("an entity is not known");
        });
        if (XML_Parse(parser_, text.data(), static_cast<int>(text.size()), XML_TRUE) !=
            XML_STATUS_OK) {
            const std::string reason =
                stopReason_.empty() ? XML_ErrorString(XML_GetErrorCode(parser_)) : stopReason_;
            return {{MetadataMalformed, "metadata.xml is not well-formed",
                     "line " + std::to_string(XML_GetCurrentLineNumber(parser_)) + ": " + reason}};
        }
        finish();
        return std::move(faults_);
    }

private:
    struct Texts {
        std::string name, size, md5;
    };

    void fault(std::string text, std::string detail = {}) {
        faults_.push_back(
            {MetadataIncomplete, "metadata.xml: " + std::move(text), std::move(detail)});
    }

    void stop(const char* reason) {
        stopReason_ = reason;
        XML_StopParser(parser_, XML_FALSE);
    }

    static std::string attribute(const XML_Char** attributes, std::string_view name) {
        for (; *attributes; attributes += 2)
            if (name == attributes[0])
                return attributes[1];
        return {};
    }

    void start(const XML_Char* name, const XML_Char** attributes) {
        lengths_.push_back(path_.size());
        if (lengths_.size() > deepest)
            return stop("the elements are nested too deeply");
        path_.append(path_.empty() ? "" : "/").append(name);
        text_.clear();
        if (path_ == "package") {
            const std::string version = attribute(attributes, "version");
            if (version != "film2.3")
                fault("the package version is not film2.3", version);
        } else if (path_ == "package/assets") {
            if (++assetsElements_ > 1)
                fault("there is more than one assets element");
            package_.mediaType = attribute(attributes, "media_type");
            package_.vendorID = attribute(attributes, "vendor_id");
        } else if (path_ == "package/assets/asset") {
            const std::string type = attribute(attributes, "type");
            if (type != "full" && type != "preview")
                fault("an asset's type is neither full nor preview", type);
        } else if (path_ == "package/assets/asset/data_file") {
            file_.emplace();
            if (attribute(attributes, "role").empty())
                fault("a data_file has no role");
        } else if (path_ == "package/assets/asset/data_file/checksum") {
            if (const std::string type = attribute(attributes, "type"); type != "md5")
                fault("a checksum is not of the type md5", type);
        } else if (path_ != "package/provider" &&
                   path_ != "package/assets/asset/data_file/file_name" &&
                   path_ != "package/assets/asset/data_file/size") {
            package_.warnings.push_back("metadata.xml: the element is not known: " + path_);
        }
    }

    void end() {
        if (path_ == "package/provider") {
            take(package_.provider, "provider");
        } else if (file_ && path_ == "package/assets/asset/data_file") {
            takeFile(*file_);
        } else if (file_ && path_.ends_with("/data_file/file_name")) {
            take(file_->name, "file_name");
        } else if (file_ && path_.ends_with("/data_file/size")) {
            take(file_->size, "size");
        } else if (file_ && path_.ends_with("/data_file/checksum")) {
            take(file_->md5, "checksum");
        }
        text_.clear();
        path_.resize(lengths_.back());
        lengths_.pop_back();
    }

    void take(std::string& value, const char* element) {
        if (!value.empty())
            fault("an element stands twice", element);
        value = trimmed(text_);
        if (value.empty())
            fault("an element is empty", element);
    }

    void takeFile(const Texts& texts) {
        DataFile file{texts.name, 0, texts.md5, {}};
        for (char& digit : file.md5)
            if (digit >= 'A' && digit <= 'F')
                digit = static_cast<char>(digit - 'A' + 'a');
        const char* end = texts.size.data() + texts.size.size();
        const auto [stopped, error] = std::from_chars(texts.size.data(), end, file.size);
        if (texts.name.empty())
            fault("a data_file has no file_name");
        else if (!isPlainName(texts.name))
            faults_.push_back(
                {FileNameRefused, "A file name leads out of the package", texts.name});
        else if (texts.name == metadataName || !names_.insert(texts.name).second)
            fault("a file is described twice", texts.name);
        else if (error != std::errc() || stopped != end ||
                 file.size > static_cast<std::uint64_t>(INT64_MAX))
            fault("a file's size is missing or no number", texts.name);
        else if (file.md5.size() != 32 ||
                 file.md5.find_first_not_of("0123456789abcdef") != std::string::npos)
            fault("a file's checksum is missing or not 32 hexadecimal digits", texts.name);
        package_.files.push_back(std::move(file));
        file_.reset();
    }

    void finish() {
        if (package_.provider.empty())
            fault("there is no provider");
        else if (!isPlainName(package_.provider))
            fault("the provider is not usable as a name", package_.provider);
        if (package_.mediaType.empty())
            fault("there is no media_type");
        if (!isPlainName(package_.vendorID))
            fault("the vendor_id is missing or not usable as a name", package_.vendorID);
        if (package_.files.empty())
            fault("no file is described");
        // No number of files may push the announced total over the driver's signed count.
        std::uint64_t total = 0;
        for (const auto& file : package_.files) {
            if (file.size > static_cast<std::uint64_t>(INT64_MAX) - total)
                return fault("the files are too large together");
            total += file.size;
        }
    }

    Package& package_;
    XML_Parser parser_ = nullptr;
    std::string path_;                  ///< Open elements, joined with "/".
    std::vector<std::size_t> lengths_;  ///< Of path_ before each open element.
    std::string text_;
    std::optional<Texts> file_;
    std::set<std::string> names_;
    int assetsElements_ = 0;
    std::string stopReason_;
    std::vector<Fault> faults_;
};

void warnOfStrangers(Package& package) {
    std::unordered_set<std::string_view> known{".", "..", metadataName};
    for (const auto& file : package.files)
        known.insert(file.name);
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(package.folder.c_str()), closedir);
    while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        if (!known.contains(name))
            package.warnings.push_back("The file is not described by metadata.xml: " +
                                       std::string(name));
    }
    std::ranges::sort(package.warnings);  // A folder has no order of its own.
}

}  // namespace

std::uint64_t Package::totalSize() const {
    std::uint64_t total = 0;
    for (const auto& file : files)
        total += file.size;
    return total;
}

Package readPackage(const std::string& path) {
    Package package;
    package.folder = path;
    while (package.folder.size() > 1 && package.folder.back() == '/')
        package.folder.pop_back();
    package.name = package.folder.substr(package.folder.rfind('/') + 1);
    struct stat status;
    if (stat(package.folder.c_str(), &status) != 0)
        throw Failure(PackageMissing, "The package cannot be found", path + ": " + systemReason());
    if (!S_ISDIR(status.st_mode) || !package.name.ends_with(extension))
        throw Failure(PackageMissing, "The package is no folder with the extension .velmp", path);
    const std::string metadataPath = package.folder + "/" + std::string(metadataName);
    FileStamp stamp;
    const Descriptor metadata = openRegular(metadataPath, stamp);
    const auto text = metadata ? readSmallFile(metadata) : std::nullopt;
    if (!text)
        throw Failure(MetadataMissing, "The package has no readable metadata.xml",
                      package.name + ": " + unreadableReason(metadataPath));
    if (auto faults = MetadataReader(package).read(*text); !faults.empty())
        throw Failure(std::move(faults));
    warnOfStrangers(package);
    return package;
}

std::vector<Fault> checkFiles(Package& package,
                              bool digests,
                              std::size_t blockSize,
                              CheckObserver& observer) {
    std::vector<Fault> faults;
    for (DataFile& file : package.files) {
        const Descriptor input = openRegular(package.pathOf(file), file.stamp);
        if (!input) {
            if (errno == ENOENT)
                faults.push_back({FileMissing, "A file is missing from the package", file.name});
            else
                faults.push_back({FileUnreadable, "A file of the package cannot be read",
                                  file.name + ": " + unreadableReason(package.pathOf(file))});
            continue;
        }
        if (file.stamp.size != file.size) {
            faults.push_back({FileSizeWrong, "A file's size is not the one in metadata.xml",
                              file.name + " has " + std::to_string(file.stamp.size) +
                                  " bytes, not " + std::to_string(file.size)});
            continue;
        }
        if (!digests) {
            observer.advanced(file, file.size);
            continue;
        }
        observer.startedDigest(file);
        MD5 digest;
        const bool read = readBlocks(input.get(), blockSize, [&](std::string_view block) {
            digest.update(block.data(), block.size());
            observer.advanced(file, block.size());
            return true;
        });
        if (!read)
            faults.push_back({FileUnreadable, "A file of the package cannot be read",
                              file.name + ": " + systemReason()});
        else if (const std::string found = digest.hex(); found != file.md5)
            faults.push_back({FileDigestWrong,
                              "A file's MD5 checksum is not the one in metadata.xml",
                              file.name + " has " + found + ", not " + file.md5});
        observer.endedDigest(file);
    }
    return faults;
}

}  // namespace sandbox
