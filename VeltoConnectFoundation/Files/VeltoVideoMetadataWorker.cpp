#include <VeltoConnectFoundation/Files/VeltoVideoMetadataWorker.h>

#include <utility>

VeltoVideoMetadataWorker::~VeltoVideoMetadataWorker() = default;

VeltoGivenVideoMetadata::VeltoGivenVideoMetadata(std::string mediaType,
                                                 std::string providerShortName,
                                                 std::string vendorIdentifier,
                                                 bool isValidVendorID)
    : mediaType_(std::move(mediaType)),
      providerShortName_(std::move(providerShortName)),
      vendorIdentifier_(std::move(vendorIdentifier)),
      isValidVendorID_(isValidVendorID) {
}
