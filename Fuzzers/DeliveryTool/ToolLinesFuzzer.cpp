#include <VeltoConnectFoundation/DeliveryTool/NSDataToStringFilter.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanUploadWorker.h>
#include <VeltoConnectFoundation/Files/VeltoPackageSource.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <cstdint>
#include <string_view>

// Whatever the delivery tool prints: through the filter, the line parser and the final parse.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = [] {
        MZSetLogFunction([](std::int32_t, std::string_view, velto::FormatArguments) {});
        return true;
    }();
    static_cast<void>(quiet);
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto source = std::make_shared<VeltoPackageSource>();
    const auto worker = velto::make<VeltoDrovanUploadWorker>(source, size % 2 == 0);
    const std::size_t half = size / 2;
    worker->didReceiveDrovanOutput(text.substr(0, half));
    worker->didReceiveDrovanErrorOutput(text);
    worker->didReceiveDrovanOutput(text.substr(half));
    worker->extractJsonFromErrorOutput(text);
    worker->extractNewPackageNameFromOutput(text);
    static_cast<void>(worker->parseErrorFromString(text));
    static_cast<void>(VeltoDrovanMessages::parseErrorsFromString(text));
    static_cast<void>(VeltoDrovanMessages::parseAllErrorsFromString(text));
    static_cast<void>(VeltoDrovanMessages::parseAllWarningsFromString(text));
    static_cast<void>(VeltoDrovanMessages::parseErrorFromXMLString(text));
    return 0;
}
