#pragma once

#include <mutex>
#include <string>
#include <string_view>

namespace velto::cli {

enum class Ink { plain, bold, faint, good, bad, warning };

/// Standard output and standard error as one place, where at most one live line stands below what
/// has been printed. Any thread; a line is never torn.
class Console {
public:
    enum class Stream { output, errors };

    Console();
    ~Console();  ///< Takes the live line away.
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Before that, colours are used on terminals unless NO_COLOR is set.
    void forbidColours() { coloursAllowed_ = false; }

    void print(Stream stream, std::string_view text);  ///< As it is.
    void line(Stream stream, std::string_view text);   ///< With a line feed.
    /// Only for a standard output that is a terminal. Empty takes it away; an equal one is not
    /// drawn again.
    void setLiveLine(std::string_view text);

    /// Text in a colour where the stream shows colours, else as it is.
    std::string inked(Stream stream, Ink ink, std::string_view text) const;
    /// A text in bold; on a terminal behind a tick.
    std::string successHeadline(Stream stream, std::string_view text) const;
    bool hasColours(Stream stream) const;
    bool isTerminal(Stream stream) const { return isTerminal_[index(stream)]; }
    bool speaksUTF8() const { return speaksUTF8_; }
    std::size_t width() const;  ///< Columns of the terminal that standard output is.

    /// Whether all of standard output could be written so far.
    bool isComplete() const;

private:
    static std::size_t index(Stream stream) { return static_cast<std::size_t>(stream); }
    void write(Stream stream, std::string_view text);
    void eraseLiveLine();
    void drawLiveLine();

    bool isTerminal_[2];
    const bool speaksUTF8_;
    bool coloursAllowed_;
    mutable std::mutex mutex_;
    std::string liveLine_;
    bool isLiveLineDrawn_ = false;
    bool isComplete_ = true;
};

}  // namespace velto::cli
