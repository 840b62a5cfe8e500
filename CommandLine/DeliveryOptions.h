#pragma once

#include <CommandLine/CommonOptions.h>

#include <array>

namespace velto::cli {

inline constexpr std::array<std::string_view, 4> storeNames{"velto-store", "ovalis", "zarnet-books",
                                                            "zarnet-services"};

inline constexpr std::array<std::string_view, 3> transportNames{"DAV", "Signiant", "Aspera"};

inline constexpr Option userOption{.name = "user",
                                   .letter = 'u',
                                   .value = "NAME",
                                   .help = "the account that signs in"};
inline constexpr Option providerOption{.name = "provider",
                                       .letter = 'p',
                                       .value = "NAME",
                                       .help = "the provider's short name, if there are several"};
inline constexpr Option vtcProviderOption{.name = "vtc-provider",
                                          .value = "NAME",
                                          .help = "the VTC provider, which goes before --provider"};
inline constexpr Option storeOption{
    .name = "store",
    .letter = 's',
    .value = "STORE",
    .help = "velto-store, if left out; ovalis, zarnet-books or zarnet-services",
    .choices = storeNames};

inline constexpr Option passwordStdinOption{
    .name = "password-stdin",
    .help = "the password is the first line of standard input"};
inline constexpr Option tokenFileOption{.name = "token-file",
                                        .value = "FILE",
                                        .help = "a property list that holds an authorization token",
                                        .kind = ArgumentKind::file};
inline constexpr Option apiKeyOption{.name = "api-key",
                                     .value = "ID",
                                     .help = "an API key; its file ID.p8 signs"};
inline constexpr Option issuerOption{.name = "issuer",
                                     .value = "ID",
                                     .help = "who issued the API key"};
inline constexpr Option keyFolderOption{.name = "key-folder",
                                        .value = "FOLDER",
                                        .help = "where ID.p8 lies (setting VeltoPrivateKeysPath)",
                                        .kind = ArgumentKind::folder};

inline constexpr Option transportOption{.name = "transport",
                                        .letter = 't',
                                        .value = "NAME",
                                        .help = "how the files travel: DAV, Signiant, Aspera",
                                        .choices = transportNames};
inline constexpr Option throttleOption{.name = "throttle",
                                       .value = "KBIT",
                                       .help = "at most KBIT kilobits a second"};
inline constexpr Option noChecksumOption{.name = "no-checksum",
                                         .help = "do not compare the files with their checksums"};
inline constexpr Option graceOption{.name = "grace",
                                    .value = "SECONDS",
                                    .help = "time for the tool to end by itself after Ctrl-C (1)"};

/// The groups of a command that signs in.
std::vector<OptionGroup> deliveryOptions(bool isUpload);

}  // namespace velto::cli
