#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <string>

/// Answers what a package of a video has to say about it. Read while the package is built, on the
/// thread that builds it.
class VELTO_EXPORT VeltoVideoMetadataWorker {
public:
    virtual ~VeltoVideoMetadataWorker();

    virtual std::string mediaType() const = 0;  ///< "Film" and "Movie" are films.
    virtual std::string providerShortName() const = 0;
    virtual std::string vendorIdentifier() const = 0;
    virtual bool isValidVendorID() const = 0;  ///< Without, no package is built.
};

/// The plain one: the caller knows the values.
class VELTO_EXPORT VeltoGivenVideoMetadata final : public VeltoVideoMetadataWorker {
public:
    VeltoGivenVideoMetadata(std::string mediaType,
                            std::string providerShortName,
                            std::string vendorIdentifier,
                            bool isValidVendorID = true);

    std::string mediaType() const override { return mediaType_; }
    std::string providerShortName() const override { return providerShortName_; }
    std::string vendorIdentifier() const override { return vendorIdentifier_; }
    bool isValidVendorID() const override { return isValidVendorID_; }

private:
    const std::string mediaType_;
    const std::string providerShortName_;
    const std::string vendorIdentifier_;
    const bool isValidVendorID_;
};
