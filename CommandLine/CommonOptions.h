#pragma once

#include <CommandLine/Command.h>

namespace velto::cli {

inline constexpr Option configOption{.name = "config",
                                     .value = "FILE",
                                     .help = "read settings from FILE, not from the user's file",
                                     .kind = ArgumentKind::file};
inline constexpr Option setOption{.name = "set",
                                  .value = "KEY=VALUE",
                                  .help = "a setting for this run; may be repeated",
                                  .kind = ArgumentKind::typedSetting};
inline constexpr Option quietOption{.name = "quiet",
                                    .letter = 'q',
                                    .help = "print nothing but errors and what was asked for"};
inline constexpr Option verboseOption{.name = "verbose",
                                      .letter = 'v',
                                      .help = "show on standard error what is done, in detail"};
inline constexpr Option jsonOption{.name = "json",
                                   .help = "print one JSON object a line, for programs"};
inline constexpr Option logFileOption{
    .name = "log-file",
    .value = "FILE",
    .help = "add the log, with details, to FILE; a new one is yours alone",
    .kind = ArgumentKind::file};
inline constexpr Option noColorOption{.name = "no-color",
                                      .help = "no colours; NO_COLOR does the same"};
inline constexpr Option helpOption{.name = "help", .letter = 'h', .help = "show this help"};
inline constexpr Option versionOption{.name = "version", .help = "show the version"};

inline constexpr Option toolOption{.name = "tool",
                                   .value = "PATH",
                                   .help = "the delivery tool VelmDrovan; see velto tool locate",
                                   .kind = ArgumentKind::file};

}  // namespace velto::cli
