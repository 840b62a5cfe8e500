#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovan.h>

#include <VeltoConnectFoundation/Platform/ArgumentMask.h>
#include <VeltoConnectFoundation/Platform/Bundle.h>
#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Platform/ProcessInfo.h>
#include <VeltoConnectFoundation/Platform/ProxyResolver.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>
#include <VeltoConnectFoundation/WebService/VeltoServiceAddresses.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <algorithm>
#include <utility>

using velto::Bundle;
using velto::format;
using velto::Guard;
using velto::Setting;
using velto::SettingKind;
using velto::Value;

// What the delivery tool is told besides the caller's own arguments.

namespace {

const Setting appendServiceAddress(
    "DrovanAppendServiceAddress",
    SettingKind::boolean,
    "NO",
    "Append the service addresses to every command line of the delivery tool");
const Setting proxyDiscoveryEnabled(
    VeltoDrovanProxyDiscoveryEnabled,
    SettingKind::boolean,
    "YES",
    "Ask the system for a proxy for the delivery tool when none is set");
const Setting proxyHost(VeltoDrovanProxyHost,
                        SettingKind::string,
                        {},
                        "Proxy host for the delivery tool");
const Setting proxyPort(VeltoDrovanProxyPort,
                        SettingKind::string,
                        {},
                        "Proxy port for the delivery tool");
const Setting defaultsURL(VeltoDrovanDefaultsURL,
                          SettingKind::string,
                          "https://content.velto.invalid/drovan/Defaults.properties",
                          "Where the delivery tool's published defaults are");
const Setting extraArgs(VeltoDrovanExtraArgs,
                        SettingKind::stringOrArray,
                        {},
                        "Further arguments for the delivery tool, as one text or a list");

/// A text of arguments as it was set, blanks and all, with the values of secrets masked. `words`
/// are what it was cut into.
std::string maskedText(std::string_view text, const std::vector<std::string>& words) {
    std::string masked;
    const std::vector<std::string> shown = velto::maskedArgumentList(words);
    for (std::size_t index = 0; index < words.size(); ++index) {
        const std::size_t start = text.find_first_not_of(' ');
        masked.append(text.substr(0, start)).append(shown[index]);
        text.remove_prefix(start + words[index].size());
    }
    return masked.append(text);
}

}  // namespace

std::optional<std::string> LookupServiceAddressWithKey(std::string_view key) {
    std::string address = velto::UserDefaults::shared().stringValue(key);
    return address.empty() ? std::nullopt : std::optional(std::move(address));
}

const std::vector<std::string>& VeltoDrovan::defaultClientArguments() {
    static const auto* const arguments = [] {
        const Bundle host = Bundle::application();
        std::string name(host.infoValue("MZClientName").string());
        if (name.empty()) {
            name = host.name();
        }
        if (name.empty()) {
            name = velto::ProcessInfo::processName();
        }
        // The quotes are part of the arguments: no shell takes them off.
        return new std::vector<std::string>{format("-Ddrovan.client='%@'", name),
                                            format("-Ddrovan.client.version='%@'", host.version())};
    }();
    return *arguments;
}

std::vector<std::string> VeltoDrovan::proxyArguments() {
    std::string host = proxyHost.stringValue();
    std::string port = proxyPort.stringValue();
    if (host.empty() && port.empty() && proxyDiscoveryEnabled.boolValue()) {
        const std::string url = VeltoProducerServiceAddress.stringValue();
        const std::vector<velto::Proxy> proxies = velto::ProxyResolver::shared().proxiesForURL(url);
        const auto usable = std::ranges::find_if(proxies, [](const velto::Proxy& proxy) {
            return !proxy.host.empty() && proxy.port != 0;
        });
        if (usable != proxies.end()) {
            host = usable->host;
            port = format("%u", static_cast<unsigned>(usable->port));
        }
    }
    if (host.empty() || port.empty()) {
        return {};
    }
    MZLogInfo("Using the proxy host '%@' for delivery.", host);
    MZLogInfo("Using the proxy port '%@' for delivery.", port);
    return {"-DproxySet=true",
            format("-DproxyHost='%@'", host),
            format("-Dhttp.proxyHost='%@'", host),
            format("-DproxyPort=%@", port),  // Required: without quotes, unlike the others.
            format("-Dhttp.proxyPort='%@'", port),
            format("-Dhttps.proxyHost='%@'", host),
            format("-Dhttps.proxyPort='%@'", port)};
}

std::optional<std::string> VeltoDrovan::encodingHouseServiceEndpoint() {
    return LookupServiceAddressWithKey("VeltoConnectServiceAddress");
}

std::optional<std::string> VeltoDrovan::veltoProducerServiceEndpoint() {
    return LookupServiceAddressWithKey("VeltoProducerServiceAddress");
}

bool VeltoDrovan::containsClientName(const std::vector<std::string>& arguments) {
    return std::ranges::any_of(arguments, [](const std::string& argument) {
        return argument.starts_with("-Ddrovan.client=");
    });
}

std::vector<std::string> VeltoDrovan::parseExtraArgumentsString(std::string_view text) {
    std::vector<std::string> arguments;
    std::string current;
    char quote = 0;
    for (const char c : text) {
        if (c == ' ' && quote == 0) {
            if (!current.empty()) {
                arguments.push_back(std::exchange(current, {}));
            }
            continue;
        }
        current += c;
        if (c == '\'' || c == '"') {
            quote = quote == 0 ? c : quote == c ? '\0' : quote;
        }
    }
    if (!current.empty()) {
        arguments.push_back(std::move(current));
    }
    return arguments;
}

std::vector<std::string> VeltoDrovan::augmentedArguments() const {
    std::vector<std::string> all;
    std::string serviceAddress;
    {
        Guard guard(lock_);
        all = arguments_;
        serviceAddress = serviceAddress_;
    }
    const auto append = [&](const std::vector<std::string>& more) {
        all.insert(all.end(), more.begin(), more.end());
    };
    if (appendServiceAddress.boolValue()) {
        if (const auto producer = veltoProducerServiceEndpoint()) {
            append({"-vTPServiceAddress", *producer});
        }
        if (const auto encodingHouse = encodingHouseServiceEndpoint()) {
            append({"-encodingHouseServiceAddress", *encodingHouse});
        }
        if (!serviceAddress.empty()) {
            append({"-serviceAddress", serviceAddress});
        }
    }
    if (!containsClientName(all)) {
        append(defaultClientArguments());
    }
    append(proxyArguments());
    const Value extra = extraArgs.value();
    if (!extra) {
        return all;
    }
    std::vector<std::string> words;
    if (extra.isArray()) {
        for (const Value& word : extra.array()) {
            words.push_back(word.description());
        }
        const std::vector<std::string> masked = velto::maskedArgumentList(words);
        MZLogInfo("Found %@: %@", VeltoDrovanExtraArgs,
                  velto::Array(std::vector<Value>(masked.begin(), masked.end())));
    } else {
        words = parseExtraArgumentsString(extra.string());
        MZLogInfo("Found %@: %@", VeltoDrovanExtraArgs, maskedText(extra.string(), words));
        if (!words.empty()) {
            MZLogInfo("Parsed %@ to: %@", VeltoDrovanExtraArgs, velto::maskedArguments(words));
        }
    }
    append(words);
    return all;
}
