#pragma once

#include <VelmDrovan/Failure.h>
#include <VelmDrovan/Files.h>

#include <cstdint>
#include <string>
#include <vector>

namespace sandbox {

/// A file that metadata.xml describes.
struct DataFile {
    std::string name;
    std::uint64_t size = 0;
    std::string md5;  ///< 32 lower-case hexadecimal digits.
    FileStamp stamp;  ///< Set when the file has been looked at.
};

/// A package folder whose metadata.xml is well-formed and complete.
struct Package {
    std::string folder;  ///< Without a closing "/".
    std::string name;    ///< Last component of the folder, with the extension.
    std::string provider, mediaType, vendorID;
    std::vector<DataFile> files;
    std::vector<std::string> warnings;  ///< What is no fault but worth telling.

    std::uint64_t totalSize() const;  ///< As described; metadata.xml is not counted.
    std::string pathOf(const DataFile& file) const { return folder + "/" + file.name; }
};

/// Throws a Failure that lists every fault of the metadata.
Package readPackage(const std::string& path);

/// Follows the check of a package's files; every operation is optional.
class CheckObserver {
public:
    virtual ~CheckObserver() = default;
    virtual void startedDigest(const DataFile&) {}
    virtual void advanced(const DataFile&, std::uint64_t /* bytes more */) {}
    virtual void endedDigest(const DataFile&) {}
};

/// Compares each file with its description: there, of the size, and with `digests` of the MD5.
/// Stamps the files. Answers every fault found.
std::vector<Fault> checkFiles(Package& package,
                              bool digests,
                              std::size_t blockSize,
                              CheckObserver& observer);

}  // namespace sandbox
