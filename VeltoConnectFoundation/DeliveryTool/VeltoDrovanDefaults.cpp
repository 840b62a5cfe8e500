#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanDefaults.h>

#include <VeltoConnectFoundation/Platform/TextEncoding.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

velto::Dictionary VeltoDrovanDefaultsFromText(std::string_view text) {
    velto::Dictionary defaults;
    int number = 0;
    for (const std::string_view line : velto::split(text, "\n")) {
        ++number;
        const std::size_t equals = line.find('=');
        if (line.starts_with('#') || equals == std::string_view::npos) {
            continue;
        }
        if (equals == 0) {
            MZLogError("Failed to get key for drovan defaults line (%d): '%@'", number, line);
            continue;
        }
        defaults.set(line.substr(0, equals), velto::trimmed(line.substr(equals + 1)));
    }
    return defaults;
}
