#pragma once

#include <CommandLine/Failure.h>
#include <VeltoConnectFoundation/Platform/Make.h>
#include <VeltoConnectFoundation/Work/MZAbstractWorker.h>
#include <VeltoConnectFoundation/Work/MZThroughputWorker.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class MZMD5Worker;

namespace velto::cli {

/// A file as a package's metadata states it, and as it was found.
struct InspectedFile {
    std::string name;
    std::string assetType;
    std::string role;
    std::optional<std::uint64_t> statedSize;
    std::string statedMD5;              ///< Lower case.
    std::optional<std::uint64_t> size;  ///< None when there is no such file.
    std::optional<std::string> md5;     ///< None when it was not computed.
    std::vector<std::string> faults = {};

    bool holds() const { return faults.empty() && md5.has_value(); }
};

struct InspectedPackage {
    std::string folder;  ///< Absolute.
    std::string provider;
    std::string mediaType;
    std::string vendorID;
    std::vector<InspectedFile> files;
    std::vector<std::string> strangers;  ///< Names that the metadata does not tell of, sorted.
    std::vector<std::string> faults;     ///< Of the metadata.

    bool holds() const;
    /// The metadata's and then the files', each of these with the file's name.
    std::vector<std::string> allFaults() const;

    /// Reads metadata.xml and looks at the folder. False, with the reason, when it is no package.
    bool read(const std::string& path, Failure& failure);
};

/// Digests those files of a package that have their stated sizes, and compares.
class PackageInspection final : public MZAbstractWorker, public MZThroughputWorker {
public:
    PackageInspection(PassKey, InspectedPackage& package);  ///< Which outlives the worker's run.
    ~PackageInspection() override;

    void run() override;
    void cancel() override;

    double percentComplete() const override;
    std::uint64_t size() const override { return size_; }
    std::uint64_t completed() const override;

private:
    void inspect(InspectedFile& file);
    std::shared_ptr<MZMD5Worker> current() const;

    InspectedPackage& package_;
    std::uint64_t size_ = 0;
    std::atomic<std::uint64_t> done_{0};  ///< Bytes of the files before the current one.
    mutable Lock currentLock_;
    std::shared_ptr<MZMD5Worker> current_ VELTO_GUARDED_BY(currentLock_);
};

}  // namespace velto::cli
