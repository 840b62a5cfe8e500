#pragma once

#include <string_view>

namespace sandbox {

/// Writes all of `bytes` to a descriptor, also to a non-blocking pipe.
void writeAll(int descriptor, std::string_view bytes);

/// The lines that a driver reads. Each is written at once, in one piece.
class Console {
public:
    enum class Verbosity { Off, Normal, Detailed };

    void setVerbosity(Verbosity verbosity) { verbosity_ = verbosity; }
    void setIndicator(bool indicator) { indicator_ = indicator; }

    void line(std::string_view text) const;      ///< A phase; standard output.
    void progress(std::string_view text) const;  ///< Only with "-indicator true".
    void detail(std::string_view text) const;    ///< Only from "-v detailed" on.
    void info(std::string_view text) const;      ///< "INFO-X: …"
    void warning(std::string_view text) const;   ///< "WARN: …"
    void result(std::string_view text) const;    ///< Standard output, whatever the verbosity.
    void error(std::string_view text) const;     ///< Standard error, whatever the verbosity.

private:
    Verbosity verbosity_ = Verbosity::Normal;
    bool indicator_ = false;
};

}  // namespace sandbox
