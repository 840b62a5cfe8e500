#pragma once

#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanTransfer.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanUploadSentences.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanWorker.h>
#include <VeltoConnectFoundation/Work/MZThroughputWorker.h>

#include <functional>
#include <string>
#include <unordered_map>

class ToolLineMarkers;
class ToolTransferLedger;
struct ToolLineCounts;
class VeltoPackageSource;

/// Verifies a package with the store, or uploads it, through the delivery tool.
///
///     auto worker = velto::make<VeltoDrovanUploadWorker>(source, /* verifyOnly */ false);
///     MZWorkSeriesManager::defaultManager()->submitWork(MZWorkSeries::seriesWithWork(worker));
///
/// Progress is the worker's percentComplete, statusMessage, size() and completed(); a failed run
/// ends with at least one error. A run without errors is one whose tool ended with 0: whether the
/// tool also said that the work is done tells deliveryConfirmed(). Secrets reach the tool in
/// environment variables with random names that the command line refers to as "@env:NAME".
class VELTO_EXPORT VeltoDrovanUploadWorker : public VeltoDrovanWorker, public MZThroughputWorker {
public:
    /// Variables that were added for secrets, beside the environment that holds them.
    struct SecretEnvironment {
        velto::Dictionary environment;
        std::vector<std::string> names;  ///< One for each non-empty secret, in order.
    };

    VeltoDrovanUploadWorker(velto::PassKey,
                            std::shared_ptr<VeltoPackageSource> source,
                            bool verifyOnly = false);
    ~VeltoDrovanUploadWorker() override;
    void didCreate();

    /// 1 words messages as "deliver", any other value (0 at first) as "upload". Process-wide.
    static void setUploadVerb(std::int64_t verb);
    /// Whether the transport is named to the tool: "DAV" by the setting "SendDAVTransport", others
    /// always, none never.
    static bool appendTransport(const std::optional<std::string>& transport);
    /// In single quotes, always; the tool takes them off.
    static std::string quoteIfNeeded(std::string_view text);

    static SecretEnvironment buildEnvironmentWithDSToken(std::string_view token);
    static SecretEnvironment buildEnvironmentWithPassword(std::string_view password);
    static SecretEnvironment buildEnvironmentWithSessionID(std::string_view sessionID,
                                                           std::string_view sharedSecret);
    /// Over an empty environment when none is given.
    static velto::Dictionary buildEnvironmentWithDataCenters(
        std::string_view dataCenters,
        const std::optional<velto::Dictionary>& preservingEnvironment);

    const std::shared_ptr<VeltoPackageSource>& source() const { return source_; }
    bool isVerifyOnly() const { return verifyOnly_; }
    std::uint64_t size() const override;       ///< Bytes to send, as the tool announced them.
    std::uint64_t completed() const override;  ///< Bytes sent so far over all files.
    std::vector<velto::Error> uploadErrors() const { return errors(); }
    std::string VTCProviderShortName() const;
    bool isChecksumEnabled() const { return checksumEnabled_.load(); }
    void setChecksumEnabled(bool enabled) { checksumEnabled_ = enabled; }
    std::optional<std::string> uploadedPackageName() const;  ///< As the tool reported it.
    velto::Value jsonOutput() const;  ///< The tool's result block; none without.
    /// After the run: whether the tool ended with 0 and itself said that the work is done. For an
    /// upload its result block or new package name, with all bytes sent or at the store already;
    /// for a verify the end of the validation as its last step. Never when it reported errors.
    bool deliveryConfirmed() const { return confirmed_.load(); }
    /// Whether the tool wrote an "ERROR:" line or a list of errors since it last started the
    /// transfer over, whatever its exit status.
    bool reportedErrors() const { return reportedErrors_.load(); }
    /// Exact also for file names with blanks, which size() and completed() are not.
    VeltoDrovanTransfer transfer() const;

    /// One line from either stream.
    void processDrovanOutput(std::string_view line);
    /// The percentage as text with three decimals; none for a line that tells no progress.
    std::optional<std::string> extractPercentCompleted(std::string_view line);
    void scanForFileSizes(std::string_view line);
    /// Of a file that the store already has.
    std::optional<std::string> extractResumePercentCompleted(std::string_view line);
    static bool extractSchedulingRestart(std::string_view line);
    static bool extractAuthenticating(std::string_view line);
    static bool extractAnalyzingAssets(std::string_view line);
    static bool extractDiagnosticTesting(std::string_view line);
    static bool extractCommunicatingWithStore(std::string_view line);
    static bool extractComputingChecksum(std::string_view line);
    static bool extractDoneComputingChecksum(std::string_view line);
    static bool extractUploadDone(std::string_view line);
    static std::optional<std::string> extractJSONData(
        std::string_view line);  ///< What follows "JSON:".
    static velto::Value extractJSON(
        std::string_view line);  ///< The same read; none when it is no JSON.
    void processVerifyProgress(const velto::Dictionary& progress);
    void extractJsonFromErrorOutput(std::string_view output);
    void extractNewPackageNameFromOutput(std::string_view output);
    void resetProgress();          ///< Sizes, counts and total: the tool starts over.
    void resetSigniantProgress();  ///< Counts only: the transfer starts over.

    /// none for a store type that is not 0 to 4
    std::optional<std::string> errorOccurredUploadingToStoreErrorMessage() const;
    std::optional<std::string> errorSendingDataToStoreMessage() const;
    std::optional<std::string> finalizingDeliveryWithStoreMessage() const;
    std::optional<std::string> uploadPackageToStoreMessage() const;
    std::optional<std::string> uploadingPackageToStoreMessage() const;
    std::optional<std::string> uploadedPackageToStoreMessage() const;
    std::optional<std::string> verifyingAssetsWithStoreMessage() const;
    std::optional<std::string> verifyingMetadataWithStoreMessage() const;

protected:
    using VeltoDrovanWorker::drovanCompleted;
    void drovanWillStart() override;
    void drovanWasLaunched() override;
    void didReceiveDrovanLine(std::optional<std::string_view> line) override;
    void didReceiveDrovanErrorLine(std::optional<std::string_view> line) override;
    void drovanCompleted() override;
    /// A final status text read from the output of a successful run; the base has none.
    virtual std::optional<std::string> parseResultsFromString(std::string_view output);

private:
    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const noexcept {
            return std::hash<std::string_view>()(text);
        }
    };
    template <class Number>
    using NumbersByFile = std::unordered_map<std::string, Number, TextHash, std::equal_to<>>;

    struct Credentials {
        std::vector<std::string> arguments;
        std::optional<velto::Dictionary> environment;
    };
    Credentials credentials() const;
    std::vector<std::string> transferArguments() const;

    std::optional<std::string> sentence(VeltoDrovanUploadSentence which) const;
    void setStatus(VeltoDrovanUploadSentence which);
    std::optional<std::string> percentCompleted(std::string_view line,
                                                const ToolLineMarkers& markers,
                                                const std::optional<ToolLineCounts>& counts);
    void noteVerifyStep(std::string_view description);
    void enterLine(const ToolLineMarkers& markers, const std::optional<ToolLineCounts>& counts);
    void readUnfinishedLine(std::string_view output);
    bool saysDone() const;
    void scanFileSizes(const ToolLineMarkers& markers, std::string_view line);
    std::optional<std::string> resumePercentCompleted(const ToolLineMarkers& markers);
    bool hasTransferSize() const;
    void setTransferSize(std::int64_t size);
    std::string percentText() const VELTO_REQUIRES(progressLock_);
    void addFailure(std::string_view error, std::string_view out);
    void readResults(std::string_view error, std::string_view out);

    const std::shared_ptr<VeltoPackageSource> source_;
    const bool verifyOnly_;
    std::atomic<bool> checksumEnabled_{true};
    std::atomic<bool> confirmed_{false};
    std::atomic<bool> reportedErrors_{false};
    bool hasLoginEnvironment_ = false;  ///< The thread of run() alone.
    mutable velto::Lock progressLock_;
    std::uint64_t transferSize_ VELTO_GUARDED_BY(progressLock_) = 0;
    std::uint64_t transferred_ VELTO_GUARDED_BY(progressLock_) = 0;
    bool transferSizeSet_ VELTO_GUARDED_BY(progressLock_) = false;
    NumbersByFile<std::uint64_t> bytesTransferred_ VELTO_GUARDED_BY(progressLock_);
    NumbersByFile<std::int64_t> fileSizes_ VELTO_GUARDED_BY(progressLock_);
    std::unique_ptr<ToolTransferLedger> ledger_ VELTO_GUARDED_BY(progressLock_);
    bool isValidated_ VELTO_GUARDED_BY(progressLock_) = false;
    std::optional<std::string> uploadedPackageName_ VELTO_GUARDED_BY(progressLock_);
    velto::Value jsonOutput_ VELTO_GUARDED_BY(progressLock_);
};
