#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanUploadWorker.h>

#include <VeltoConnectFoundation/Authentication/VeltoAuthenticationContextImpl.h>
#include <VeltoConnectFoundation/Codecs/MZJSONDeserializer.h>
#include <VeltoConnectFoundation/Codecs/MZJSONSerializer.h>
#include <VeltoConnectFoundation/DeliveryTool/ToolLineMarkers.h>
#include <VeltoConnectFoundation/DeliveryTool/ToolTransferLedger.h>
#include <VeltoConnectFoundation/Files/VeltoPackageSource.h>
#include <VeltoConnectFoundation/Platform/Base64.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/ProcessInfo.h>
#include <VeltoConnectFoundation/Platform/StandardJSON.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>
#include <VeltoConnectFoundation/Platform/UUID.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>
#include <VeltoConnectFoundation/Work/MZLog.h>
#include <VeltoConnectFoundation/Work/MZStoreMessages.h>

#include <algorithm>
#include <charconv>
#include <utility>

using velto::Array;
using velto::Dictionary;
using velto::Error;
using velto::Exception;
using velto::format;
using velto::Guard;
using velto::localized;
using velto::localizedFormat;
using velto::Setting;
using velto::SettingKind;
using velto::Value;
using Marker = ToolLineMarker;
using Sentence = VeltoDrovanUploadSentence;
using Verb = VeltoDrovanUploadVerb;

namespace {

const Setting sendDAVTransport("SendDAVTransport",
                               SettingKind::boolean,
                               "YES",
                               "Name the transport DAV to the delivery tool");
const Setting defaultTransportThrottle("DefaultTransportThrottle",
                                       SettingKind::string,
                                       {},
                                       "Throttle passed to the delivery tool");
const Setting serviceAddressOverride("velmDrovanServiceAddress",
                                     SettingKind::string,
                                     {},
                                     "Service address passed to the delivery tool");

constexpr std::string_view fastTransportThrottle = "100000";

std::atomic<std::int64_t> uploadVerb{0};

/// The copy of our environment with a variable of a random name for each non-empty secret.
VeltoDrovanUploadWorker::SecretEnvironment environmentWithSecrets(
    std::initializer_list<std::string_view> secrets) {
    VeltoDrovanUploadWorker::SecretEnvironment built{velto::ProcessInfo::environment(), {}};
    for (const std::string_view secret : secrets) {
        if (!secret.empty()) {
            built.names.push_back(velto::UUID::random());
            built.environment.set(built.names.back(), secret);
        }
    }
    return built;
}

/// A dictionary as the tool takes it in an option; none when it cannot be written as JSON.
std::optional<std::string> base64OfJSON(const Dictionary& dictionary) {
    const std::optional<velto::Data> json = MZJSONSerializer().serializeToJSON(dictionary);
    if (!json) {
        return std::nullopt;
    }
    return velto::encodeBase64(json->view(), velto::Base64Form::lines64);
}

std::optional<ToolLineCounts> countsOf(std::string_view line, const ToolLineMarkers& markers) {
    return markers.has(Marker::percentCompleted) ? ToolLineCounts::of(line) : std::nullopt;
}

/// The object of a "JSON:" line that tells how a verify goes on; empty for any other.
Dictionary verifyProgress(const ToolLineMarkers& markers) {
    const Value json = velto::parseJSON(markers.after(Marker::json)).value_or(Value());
    return json["messageType"].string() == "VerifyProgress" ? json.dictionary() : Dictionary();
}

}  // namespace

VeltoDrovanUploadWorker::VeltoDrovanUploadWorker(velto::PassKey key,
                                                 std::shared_ptr<VeltoPackageSource> source,
                                                 bool verifyOnly)
    : VeltoDrovanWorker(key),
      source_(std::move(source)),
      verifyOnly_(verifyOnly),
      ledger_(std::make_unique<ToolTransferLedger>()) {
    velto::assertParameter(source_ != nullptr, "source",
                           "initWithPackageSource:verifyOnly:", "VeltoDrovanUploadWorker.cpp");
}

VeltoDrovanUploadWorker::~VeltoDrovanUploadWorker() = default;

void VeltoDrovanUploadWorker::didCreate() {
    VeltoDrovanWorker::didCreate();
    setStoreType(source_->storeType());
    setStatus(Sentence::upload);
}

void VeltoDrovanUploadWorker::setUploadVerb(std::int64_t verb) {
    uploadVerb = verb;
}

bool VeltoDrovanUploadWorker::appendTransport(const std::optional<std::string>& transport) {
    if (!transport) {
        return false;
    }
    return *transport != "DAV" || sendDAVTransport.boolValue();
}

std::string VeltoDrovanUploadWorker::quoteIfNeeded(std::string_view text) {
    return format("'%@'", velto::replaceAll(text, "'", "'\\''"));
}

VeltoDrovanUploadWorker::SecretEnvironment VeltoDrovanUploadWorker::buildEnvironmentWithDSToken(
    std::string_view token) {
    return environmentWithSecrets({token});
}

VeltoDrovanUploadWorker::SecretEnvironment VeltoDrovanUploadWorker::buildEnvironmentWithPassword(
    std::string_view password) {
    return environmentWithSecrets({password});
}

VeltoDrovanUploadWorker::SecretEnvironment VeltoDrovanUploadWorker::buildEnvironmentWithSessionID(
    std::string_view sessionID,
    std::string_view sharedSecret) {
    return environmentWithSecrets({sessionID, sharedSecret});
}

Dictionary VeltoDrovanUploadWorker::buildEnvironmentWithDataCenters(
    std::string_view dataCenters,
    const std::optional<Dictionary>& preservingEnvironment) {
    Dictionary environment = preservingEnvironment.value_or(Dictionary());
    environment.set("TX_DATA_CENTERS", dataCenters);
    return environment;
}

VeltoDrovanUploadWorker::Credentials VeltoDrovanUploadWorker::credentials() const {
    const std::shared_ptr<VeltoAuthenticationContextImpl> authentication =
        source_->authentication();
    const auto fromEnvironment = [](SecretEnvironment built,
                                    std::initializer_list<std::string_view> options) {
        Credentials result;
        std::size_t index = 0;
        for (const std::string_view option : options) {
            result.arguments.emplace_back(option);
            result.arguments.push_back(format("@env:%@", built.names[index++]));
        }
        result.environment = std::move(built.environment);
        return result;
    };
    if (authentication != nullptr) {
        // Read once: a sign-in elsewhere may change them, and each option needs its variable.
        const std::string sessionID = authentication->sessionID();
        const std::string sharedSecret = authentication->sharedSecret();
        if (!sessionID.empty() && !sharedSecret.empty()) {
            return fromEnvironment(buildEnvironmentWithSessionID(sessionID, sharedSecret),
                                   {"-sessionid", "-sharedsecret"});
        }
        if (const Dictionary headers = authentication->httpHeaders(); !headers.isEmpty()) {
            if (const std::optional<std::string> text = base64OfJSON(headers)) {
                return {{"-hsa2headers", *text}, {}};
            }
            return {};
        }
        if (const std::string token = authentication->rovquill(); !token.empty()) {
            return fromEnvironment(buildEnvironmentWithDSToken(token), {"-dsToken"});
        }
    }
    if (const std::string password = source_->password(); !password.empty()) {
        return fromEnvironment(buildEnvironmentWithPassword(password), {"-p"});
    }
    if (authentication != nullptr && authentication->canJWTAuthenticate()) {
        return {{"-apiKey", authentication->apiKey(), "-apiIssuer", authentication->issuerID()},
                {}};
    }
    return {};
}

std::vector<std::string> VeltoDrovanUploadWorker::transferArguments() const {
    std::vector<std::string> arguments;
    std::string transport = source_->transport();
    const bool named = appendTransport(transport.empty() ? std::nullopt : std::optional(transport));
    if (named) {
        arguments.insert(arguments.end(), {"-t", transport});
    }
    if (const std::string throttle = defaultTransportThrottle.stringValue(); !throttle.empty()) {
        arguments.insert(arguments.end(), {"-k", throttle});
    } else if (named && (velto::findIgnoringCase(transport, "Signiant") != std::string::npos ||
                         velto::findIgnoringCase(transport, "Aspera") != std::string::npos)) {
        arguments.insert(arguments.end(), {"-k", std::string(fastTransportThrottle)});
    }
    return arguments;
}

/// The child has its secrets; the next run makes new ones.
void VeltoDrovanUploadWorker::drovanWasLaunched() {
    if (std::exchange(hasLoginEnvironment_, false)) {
        setEnvironment(std::nullopt);
    }
}

void VeltoDrovanUploadWorker::drovanWillStart() {
    VeltoDrovanWorker::drovanWillStart();
    {
        Guard guard(progressLock_);
        transferred_ = 0;
        transferSizeSet_ = false;
        transferSize_ = 0;
        bytesTransferred_.clear();
        fileSizes_.clear();
        *ledger_ = {};
        isValidated_ = false;
    }
    confirmed_ = false;
    reportedErrors_ = false;
    std::vector<std::string> arguments{"-m", verifyOnly_ ? "verify" : "upload", "-u"};
    const auto append = [&](auto... texts) { (arguments.emplace_back(texts), ...); };

    if (const std::string username = source_->username(); !username.empty()) {
        append(quoteIfNeeded(username));
    } else {
        MZLogDebug("Username is nil or empty string.");
        append("zarnet");
    }
    append("-vp", "json");

    const std::shared_ptr<VeltoAuthenticationContextImpl> authentication =
        source_->authentication();
    if (authentication != nullptr && !authentication->txHeaders().isEmpty()) {
        if (const std::optional<std::string> text = base64OfJSON(authentication->txHeaders())) {
            append(format("-DTxHeaders=%@", *text));
        }
    }
    Credentials login = credentials();
    arguments.insert(arguments.end(), login.arguments.begin(), login.arguments.end());
    if (authentication != nullptr && authentication->hasDataCenters()) {
        const std::string centers = authentication->getDataCenters().value_or(std::string());
        login.environment = buildEnvironmentWithDataCenters(centers, login.environment);
        MZLogDebug("Adding the following data centers to drovan environment: %@", centers);
    }
    if (login.environment && !login.environment->isEmpty()) {
        setEnvironment(login.environment);
        hasLoginEnvironment_ = true;
    }
    if (const std::string provider = source_->VTCProviderShortName(); !provider.empty()) {
        append("-vtc_provider", quoteIfNeeded(provider));
    } else if (const std::string shortName = source_->providerShortName(); !shortName.empty()) {
        append("-s", quoteIfNeeded(shortName));
    }
    if (!verifyOnly_) {
        const std::vector<std::string> transfer = transferArguments();
        arguments.insert(arguments.end(), transfer.begin(), transfer.end());
    }
    append("-f", quoteIfNeeded(source_->packagePath()));
    if (!isChecksumEnabled()) {
        append("-checksumValidation", "false");
    }
    append("-indicator", "true", "-v", "eXtreme");
    if (const std::string address = serviceAddressOverride.stringValue(); !address.empty()) {
        MZLog("VelmDrovan -serviceAddress override: %@", address);
        append("-serviceAddress", address);
    }
    if (const std::string client = source_->clientName(); !client.empty()) {
        append(format("-Ddrovan.client='%@'", client),
               format("-Ddrovan.client.version='%@'", source_->versionString()));
    }
    setArguments(std::move(arguments));
}

void VeltoDrovanUploadWorker::didReceiveDrovanLine(std::optional<std::string_view> line) {
    if (line) {
        processDrovanOutput(*line);
    }
}

void VeltoDrovanUploadWorker::didReceiveDrovanErrorLine(std::optional<std::string_view> line) {
    if (line) {
        processDrovanOutput(*line);
    }
}

void VeltoDrovanUploadWorker::processDrovanOutput(std::string_view line) {
    const ToolLineMarkers markers(line);
    if (!markers.any()) {
        return;
    }
    const std::optional<ToolLineCounts> counts = countsOf(line, markers);
    enterLine(markers, counts);
    if (const std::optional<std::string> percent = percentCompleted(line, markers, counts)) {
        double value = 0;
        std::from_chars(percent->data(), percent->data() + percent->size(), value);
        setPercentComplete(value);
        setStatus(Sentence::uploading);
    } else if (markers.has(Marker::checkingChecksum)) {
        setStatusMessage(localized("Verifying asset checksums…"));
    } else if (markers.has(Marker::doneCheckingChecksum)) {
        setStatusMessage(localized("Negotiating connection…"));
    } else if (markers.has(Marker::diagnosticTest)) {
        resetProgress();
        setStatusMessage(localized("Testing TCP/UDP connectivity…"));
    } else if (markers.has(Marker::json)) {
        if (const Dictionary progress = verifyProgress(markers); !progress.isEmpty()) {
            processVerifyProgress(progress);
        }
    } else if (markers.has(Marker::authenticating)) {
        setStatus(Sentence::verifyingMetadata);
    } else if (markers.has(Marker::analyzingAssets)) {
        setStatus(Sentence::verifyingAssets);
    } else if (markers.has(Marker::uploadDone)) {
        setStatus(Sentence::finalizingDelivery);
    } else if (markers.has(Marker::schedulingRestart)) {
        resetSigniantProgress();
        setStatus(Sentence::errorSendingData);
    }
}

std::optional<std::string> VeltoDrovanUploadWorker::extractPercentCompleted(std::string_view line) {
    const ToolLineMarkers markers(line);
    return percentCompleted(line, markers, countsOf(line, markers));
}

std::optional<std::string> VeltoDrovanUploadWorker::percentCompleted(
    std::string_view line,
    const ToolLineMarkers& markers,
    const std::optional<ToolLineCounts>& counts) {
    scanFileSizes(markers, line);
    if (!hasTransferSize()) {
        if (markers.has(Marker::settingTotalSize)) {
            setTransferSize(velto::leadingInteger(markers.after(Marker::settingTotalSize)));
        }
        return std::nullopt;
    }
    if (std::optional<std::string> resumed = resumePercentCompleted(markers)) {
        return resumed;
    }
    if (!counts) {
        return std::nullopt;
    }
    const std::string_view name = counts->lastWord();
    Guard guard(progressLock_);
    auto known = bytesTransferred_.find(name);
    if (known == bytesTransferred_.end()) {
        known = bytesTransferred_.emplace(name, 0).first;
    }
    transferred_ += static_cast<std::uint64_t>(counts->sent) - known->second;  // may go down
    known->second = static_cast<std::uint64_t>(counts->sent);
    return percentText();
}

void VeltoDrovanUploadWorker::scanForFileSizes(std::string_view line) {
    scanFileSizes(ToolLineMarkers(line), line);
}

void VeltoDrovanUploadWorker::scanFileSizes(const ToolLineMarkers& markers, std::string_view line) {
    if (markers.has(Marker::computingTotalSize)) {
        resetProgress();
    }
    if (!markers.has(Marker::addingFile)) {
        return;
    }
    const std::string_view rest = markers.after(Marker::addingFile);
    const std::size_t firstSpace = rest.find(' ');
    if (firstSpace == std::string_view::npos) {
        MZLogDebug("*** Warning: Unable to scan file sizes: %@", line);
        return;
    }
    const std::int64_t size = velto::leadingInteger(rest.substr(rest.rfind(' ') + 1));
    Guard guard(progressLock_);
    fileSizes_.insert_or_assign(std::string(rest.substr(0, firstSpace)), size);
}

std::optional<std::string> VeltoDrovanUploadWorker::extractResumePercentCompleted(
    std::string_view line) {
    return hasTransferSize() ? resumePercentCompleted(ToolLineMarkers(line)) : std::nullopt;
}

std::optional<std::string> VeltoDrovanUploadWorker::resumePercentCompleted(
    const ToolLineMarkers& markers) {
    constexpr std::string_view nameMarker = "The file named ";
    if (!markers.has(Marker::skippedFile)) {
        return std::nullopt;
    }
    const std::string_view before = markers.before(Marker::skippedFile);
    const std::size_t start = before.find(nameMarker);
    if (start == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view name = before.substr(start + nameMarker.size());
    {
        Guard guard(progressLock_);
        if (const auto size = fileSizes_.find(name); size != fileSizes_.end()) {
            transferred_ += static_cast<std::uint64_t>(size->second);
            bytesTransferred_.insert_or_assign(std::string(name),
                                               static_cast<std::uint64_t>(size->second));
            return percentText();
        }
    }
    MZLogDebug("*** Warning: No file size found for filename: %@", name);
    return std::nullopt;
}

bool VeltoDrovanUploadWorker::hasTransferSize() const {
    Guard guard(progressLock_);
    return transferSizeSet_;
}

void VeltoDrovanUploadWorker::setTransferSize(std::int64_t size) {
    if (size <= 0) {
        return;
    }
    {
        Guard guard(progressLock_);
        transferSize_ = static_cast<std::uint64_t>(size);
        transferSizeSet_ = true;
    }
    MZLogDebug("Set transfer size: %lld", size);
}

std::string VeltoDrovanUploadWorker::percentText() const {
    const double size = transferSize_ == 0 ? 1.0 : static_cast<double>(transferSize_);
    return format("%.03lf", static_cast<double>(transferred_) / size * 100);
}

bool VeltoDrovanUploadWorker::extractSchedulingRestart(std::string_view line) {
    return ToolLineMarkers(line).has(Marker::schedulingRestart);
}

bool VeltoDrovanUploadWorker::extractAuthenticating(std::string_view line) {
    return ToolLineMarkers(line).has(Marker::authenticating);
}

bool VeltoDrovanUploadWorker::extractAnalyzingAssets(std::string_view line) {
    return ToolLineMarkers(line).has(Marker::analyzingAssets);
}

bool VeltoDrovanUploadWorker::extractDiagnosticTesting(std::string_view line) {
    return ToolLineMarkers(line).has(Marker::diagnosticTest);
}

bool VeltoDrovanUploadWorker::extractCommunicatingWithStore(std::string_view line) {
    return ToolLineMarkers(line).has(Marker::communicatingWithStore);
}

bool VeltoDrovanUploadWorker::extractComputingChecksum(std::string_view line) {
    return ToolLineMarkers(line).has(Marker::checkingChecksum);
}

bool VeltoDrovanUploadWorker::extractDoneComputingChecksum(std::string_view line) {
    return ToolLineMarkers(line).has(Marker::doneCheckingChecksum);
}

bool VeltoDrovanUploadWorker::extractUploadDone(std::string_view line) {
    return ToolLineMarkers(line).has(Marker::uploadDone);
}

std::optional<std::string> VeltoDrovanUploadWorker::extractJSONData(std::string_view line) {
    const ToolLineMarkers markers(line);
    return markers.has(Marker::json) ? std::optional(std::string(markers.after(Marker::json)))
                                     : std::nullopt;
}

Value VeltoDrovanUploadWorker::extractJSON(std::string_view line) {
    const std::optional<std::string> text = extractJSONData(line);
    return text ? velto::parseJSON(*text).value_or(Value()) : Value();
}

void VeltoDrovanUploadWorker::processVerifyProgress(const Dictionary& progress) {
    const std::string_view description = progress["description"].string();
    noteVerifyStep(description);
    if (description == "Analyzing metadata") {
        setStatusMessage(localized("Analyzing metadata"));
    } else if (description == "Adding asset to analyze:") {
        setStatusMessage(localizedFormat("Adding asset to analyze: %@", progress["asset"]));
    } else if (description == "Validating assets") {
        setStatusMessage(localized("Validating assets"));
    } else if (description == "Validation completed.") {
        setStatusMessage(localized("Validation completed"));  // Required: without the full stop.
    } else if (description == "Validation failed.") {
        setStatusMessage(localized("Validation failed"));  // Required: without the full stop.
    }
    const Value& count = progress["count"];
    if (!count) {
        setPercentComplete(-1);
    } else if (count.integerValue() == 0) {
        setPercentComplete(100);
    } else if (count.integerValue() > 0) {
        setPercentComplete(progress["index"].doubleValue() / count.doubleValue() * 100);
    }
}

/// The last step that is known decides.
void VeltoDrovanUploadWorker::noteVerifyStep(std::string_view description) {
    constexpr std::string_view before[] = {"Analyzing metadata",
                                           "Adding asset to analyze:", "Validating assets",
                                           "Validation failed."};
    const bool isEnd = description == "Validation completed.";
    if (isEnd || std::ranges::find(before, description) != std::end(before)) {
        Guard guard(progressLock_);
        isValidated_ = isEnd;
    }
}

void VeltoDrovanUploadWorker::resetProgress() {
    {
        Guard guard(progressLock_);
        bytesTransferred_.clear();
        fileSizes_.clear();
        transferSizeSet_ = false;
        transferred_ = 0;
        transferSize_ = 0;
    }
    setPercentComplete(0);
}

void VeltoDrovanUploadWorker::resetSigniantProgress() {
    {
        Guard guard(progressLock_);
        bytesTransferred_.clear();
        transferred_ = 0;
    }
    setPercentComplete(0);
}

void VeltoDrovanUploadWorker::drovanCompleted() {
    VeltoDrovanWorker::drovanCompleted();
    // Looked at where they lie: together they may be very large.
    const velto::Data outText = drovan()->standardOutText();
    const velto::Data errorText = drovan()->standardErrorText();
    const std::string_view out = outText.view();
    const std::string_view error = errorText.view();
    if (terminationStatus() != 0) {
        addFailure(error, out);
    } else {
        const std::optional<std::string> result = parseResultsFromString(out);
        setStatusMessage(result ? result : uploadedPackageToStoreMessage());
    }
    readResults(error, out);
    readUnfinishedLine(out);
    readUnfinishedLine(error);
    confirmed_ = terminationStatus() == 0 && saysDone() && !reportedErrors_;
}

bool VeltoDrovanUploadWorker::saysDone() const {
    Guard guard(progressLock_);
    return verifyOnly_ ? isValidated_
                       : (jsonOutput_ || uploadedPackageName_) && ledger_->transfer().isWhole();
}

/// Without its line feed a last line was none for the hooks; what it tells counts all the same.
void VeltoDrovanUploadWorker::readUnfinishedLine(std::string_view output) {
    const std::string_view line = output.substr(output.rfind('\n') + 1);
    const ToolLineMarkers markers(line);
    if (markers.has(Marker::json)) {
        noteVerifyStep(verifyProgress(markers)["description"].string());
    }
    enterLine(markers, countsOf(line, markers));
}

/// What went wrong before the transfer starts over is not the end of it.
void VeltoDrovanUploadWorker::enterLine(const ToolLineMarkers& markers,
                                        const std::optional<ToolLineCounts>& counts) {
    const ToolLineKind kind = toolLineKind(markers, counts);
    if (kind == ToolLineKind::error || kind == ToolLineKind::restart) {
        reportedErrors_ = kind == ToolLineKind::error;
    }
    Guard guard(progressLock_);
    ledger_->enter(kind, markers, counts);
}

VeltoDrovanTransfer VeltoDrovanUploadWorker::transfer() const {
    Guard guard(progressLock_);
    return ledger_->transfer();
}

void VeltoDrovanUploadWorker::addFailure(std::string_view error, std::string_view out) {
    // An unknown store type has no sentence of its own, and a failed run must not pass for a good
    // one.
    const std::string fallback = errorOccurredUploadingToStoreErrorMessage().value_or(
        storeMessages()->errorTalkingWithStoreMessage());
    try {
        MZLogInfo(" Error:\n%@", error);
        MZLogInfo(" Out:\n%@", out);
        std::vector<Error> errors = VeltoDrovanMessages::parseErrorsFromString(error);
        if (errors.empty()) {
            errors = VeltoDrovanMessages::parseErrorsFromString(out);
        }
        if (errors.empty()) {
            errors = VeltoDrovanMessages::parseAllErrorsFromString(error);
        }
        MZLogDebug("Errors: %@", Array(std::vector<Value>(errors.begin(), errors.end())));
        if (errors.empty()) {
            addErrorMessage(fallback);
        } else {
            addErrors(errors);
        }
    } catch (const Exception& exception) {
        addException(exception);
        addErrorMessage(fallback);
        MZLogError("Exception while extracting error: %@", exception);
    }
}

void VeltoDrovanUploadWorker::readResults(std::string_view error, std::string_view out) {
    // One stream after the other is all that the tool printed, standard error first.
    const auto all = [&](const auto& parse) {
        std::vector<Value> values;
        for (const std::string_view text : {error, out}) {
            const std::vector<Error> found = parse(text);
            values.insert(values.end(), found.begin(), found.end());
        }
        return Array(std::move(values));
    };
    try {
        extractJsonFromErrorOutput(error);
        extractNewPackageNameFromOutput(error);
        addWarnings(all(&VeltoDrovanMessages::parseAllWarningsFromString));
        addInfoMessages(all(&VeltoDrovanMessages::parseAllInfoMessagesFromString));
    } catch (const Exception& exception) {
        MZLogError("Exception while parsing warnings: %@", exception);
    }
}

std::optional<std::string> VeltoDrovanUploadWorker::parseResultsFromString(std::string_view) {
    return std::nullopt;
}

void VeltoDrovanUploadWorker::extractJsonFromErrorOutput(std::string_view output) {
    constexpr std::string_view startMarker = "JSON-START>>";
    const std::size_t start = output.find(startMarker);
    const std::size_t end = output.find("<<JSON-END");
    if (start == std::string_view::npos || end == std::string_view::npos ||
        end < start + startMarker.size()) {
        return;
    }
    const std::size_t from = start + startMarker.size();
    Error error;
    Value json = MZJSONDeserializer().deserializeJSONData(
        velto::Data(output.substr(from, end - from)), &error);
    if (error) {
        MZLogError("Failed to decode json from output '%@': %@", output, error);
    } else {
        MZLogDebug("Found json in output: '%@'", output);
    }
    Guard guard(progressLock_);
    jsonOutput_ = std::move(json);
}

void VeltoDrovanUploadWorker::extractNewPackageNameFromOutput(std::string_view output) {
    constexpr std::string_view marker = "NewPackageName = ";
    constexpr std::string_view ending = ".velmp";
    std::optional<std::string> name;
    if (const std::size_t found = output.find(marker); found != std::string_view::npos) {
        const std::string_view rest = output.substr(found + marker.size());
        if (const std::size_t end = rest.find(ending); end != std::string_view::npos) {
            name = std::string(rest.substr(0, end + ending.size()));
            MZLogDebug("Found new package name for upload: '%@'", *name);
        } else {
            MZLogDebug("Failed to find new package name in output.");
        }
    }
    Guard guard(progressLock_);
    uploadedPackageName_ = std::move(name);
}

std::uint64_t VeltoDrovanUploadWorker::size() const {
    Guard guard(progressLock_);
    return transferSize_;
}

std::uint64_t VeltoDrovanUploadWorker::completed() const {
    Guard guard(progressLock_);
    return transferred_;
}

std::string VeltoDrovanUploadWorker::VTCProviderShortName() const {
    return source_->VTCProviderShortName();
}

std::optional<std::string> VeltoDrovanUploadWorker::uploadedPackageName() const {
    Guard guard(progressLock_);
    return uploadedPackageName_;
}

Value VeltoDrovanUploadWorker::jsonOutput() const {
    Guard guard(progressLock_);
    return jsonOutput_;
}

std::optional<std::string> VeltoDrovanUploadWorker::sentence(Sentence which) const {
    const Verb verb = verifyOnly_ ? Verb::verify : uploadVerb == 1 ? Verb::deliver : Verb::upload;
    return VeltoDrovanUploadSentenceText(which, verb, storeType());
}

void VeltoDrovanUploadWorker::setStatus(Sentence which) {
    setStatusMessage(sentence(which));
}

std::optional<std::string> VeltoDrovanUploadWorker::errorOccurredUploadingToStoreErrorMessage()
    const {
    return sentence(Sentence::errorOccurred);
}

std::optional<std::string> VeltoDrovanUploadWorker::errorSendingDataToStoreMessage() const {
    return sentence(Sentence::errorSendingData);
}

std::optional<std::string> VeltoDrovanUploadWorker::finalizingDeliveryWithStoreMessage() const {
    return sentence(Sentence::finalizingDelivery);
}

std::optional<std::string> VeltoDrovanUploadWorker::uploadPackageToStoreMessage() const {
    return sentence(Sentence::upload);
}

std::optional<std::string> VeltoDrovanUploadWorker::uploadingPackageToStoreMessage() const {
    return sentence(Sentence::uploading);
}

std::optional<std::string> VeltoDrovanUploadWorker::uploadedPackageToStoreMessage() const {
    return sentence(Sentence::uploaded);
}

std::optional<std::string> VeltoDrovanUploadWorker::verifyingAssetsWithStoreMessage() const {
    return sentence(Sentence::verifyingAssets);
}

std::optional<std::string> VeltoDrovanUploadWorker::verifyingMetadataWithStoreMessage() const {
    return sentence(Sentence::verifyingMetadata);
}
