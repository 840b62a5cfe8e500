#pragma once

#include <VeltoConnectFoundation/Platform/Make.h>
#include <VeltoConnectFoundation/Platform/Observable.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

/// The storefronts. Workers, clients and package sources carry a type as a plain 64-bit integer,
/// since a host may hand on one that this version does not know.
enum MZStoreType : std::int64_t {
    MZStoreTypeNone = 0,  ///< Sentences treat it as the Velto Store.
    MZStoreTypeVeltoStore = 1,
    MZStoreTypeOvalis = 2,
    MZStoreTypeZarnetBooks = 3,
    MZStoreTypeZarnetServices = 4,
};

/// The translated texts that name the storefront a worker is working for.
///
/// A type that is not known gives a neutral English sentence and, for most, a debug log line.
/// Each sentence is a class operation that takes a store type and a property that uses the
/// object's own. Any thread. Observable: storeType.
class VELTO_EXPORT MZStoreMessages final : public velto::Observable {
public:
    MZStoreMessages(velto::PassKey, std::int64_t storeType);  ///< Use velto::make.
    ~MZStoreMessages() override;

    /// The one of the process, for store type 0.
    static std::shared_ptr<MZStoreMessages> sharedStoreMessages();

    std::int64_t storeType() const { return storeType_; }
    void setStoreType(std::int64_t storeType);

    static std::string localizedNameForStoreType(std::int64_t storeType);
    /// The name itself when no storefront has it.
    static std::string localizedNameForStore(std::string_view storeName);
    /// By exact English name; 0 when no storefront has it.
    static std::int64_t storeTypeFromStoreName(std::string_view storeName);

    static std::string authenticateWithStoreMessage(std::int64_t storeType);
    static std::string authenticatingWithStoreMessage(std::int64_t storeType);
    static std::string authenticatedWithStoreMessage(std::int64_t storeType);
    static std::string cancelledOperationWithStoreMessage(std::int64_t storeType);
    static std::string completedOperationWithStoreMessage(std::int64_t storeType);
    static std::string errorCommunicatingWithStoreMessage(std::int64_t storeType);
    static std::string errorTalkingWithStoreMessage(std::int64_t storeType);
    static std::string failedToUploadPackageMessage(std::int64_t storeType);
    static std::string operationFailedWithStoreMessage(std::int64_t storeType);
    static std::string operationSucceededWithAWarningWithStoreMessage(std::int64_t storeType);
    static std::string performOperationWithStoreMessage(std::int64_t storeType);
    static std::string performingOperationWithStoreMessage(std::int64_t storeType);
    static std::string preparingToUploadPackageMessage(std::int64_t storeType);
    static std::string requestingUploadInstructionsMessage(std::int64_t storeType);
    static std::string sendingAnalysisMessage(std::int64_t storeType);
    static std::string uploadingPackageToStoreMessage(std::int64_t storeType);
    static std::string waitingForResponseMessage(std::int64_t storeType);
    static std::string completingUploadMessage(std::int64_t storeType);

    std::string storeName() const;
    std::string authenticateWithStoreMessage() const;
    std::string authenticatingWithStoreMessage() const;
    std::string authenticatedWithStoreMessage() const;
    std::string cancelledOperationWithStoreMessage() const;
    std::string completedOperationWithStoreMessage() const;
    std::string errorCommunicatingWithStoreMessage() const;
    std::string errorTalkingWithStoreMessage() const;
    std::string failedToUploadPackageMessage() const;
    std::string operationFailedWithStoreMessage() const;
    std::string operationSucceededWithAWarningWithStoreMessage() const;
    std::string performOperationWithStoreMessage() const;
    std::string performingOperationWithStoreMessage() const;
    std::string preparingToUploadPackageMessage() const;
    std::string requestingUploadInstructionsMessage() const;
    std::string sendingAnalysisMessage() const;
    std::string uploadingPackageToStoreMessage() const;
    std::string waitingForResponseMessage() const;
    std::string completingUploadMessage() const;

private:
    mutable velto::Lock lock_;  ///< Orders the changes that observers see.
    std::atomic<std::int64_t> storeType_;
};
