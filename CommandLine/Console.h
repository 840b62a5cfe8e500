#pragma once

#include <CommandLine/Charset.h>
#include <CommandLine/OutputDescriptor.h>

#include <atomic>
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

    Console();   ///< Throws std::system_error when the system gives no descriptor.
    ~Console();  ///< Takes the live line away.
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Before that, colours are used on terminals unless NO_COLOR is set.
    void forbidColours() { coloursAllowed_ = false; }

    void print(Stream stream, std::string_view text);  ///< In the user's character set.
    void line(Stream stream, std::string_view text);   ///< With a line feed.
    /// On standard output, with a line feed, in no character set: what only programs read.
    void lineOfBytes(std::string_view bytes);
    /// Only for a standard output that is a terminal. Empty takes it away; an equal one is not
    /// drawn again.
    void setLiveLine(std::string_view text);

    /// Becomes readable once there is hurry.
    int hurryEvent() const { return hurry_.event; }
    /// From now on, what nobody reads is given up after a moment. Any thread; takes no lock.
    void hurry() const noexcept;
    /// Takes the live line away and writes the bytes, as far as that can be done without waiting
    /// for a lock or a reader: for a process that ends or pauses. Any thread.
    void sayAtOnce(Stream stream, std::string_view bytes) noexcept;

    /// Text in a colour where the stream shows colours, else as it is.
    std::string inked(Stream stream, Ink ink, std::string_view text) const;
    /// A text in bold; on a terminal behind a tick.
    std::string successHeadline(Stream stream, std::string_view text) const;
    bool hasColours(Stream stream) const;
    bool isTerminal(Stream stream) const { return of(stream).isTerminal(); }
    bool speaksUTF8() const { return charset_.isUTF8(); }
    /// A text in the user's character set.
    std::string encoded(std::string_view text) const { return charset_.encoded(text); }
    /// A text as it will be seen.
    std::string shown(std::string_view text) const { return charset_.shown(text); }
    std::size_t width() const;  ///< Columns of the terminal that standard output is.

    /// Whether all of standard output could be written so far.
    bool isComplete() const { return problem() == 0; }
    int problem() const { return of(Stream::output).problem(); }  ///< Why not, an errno.

private:
    /// A descriptor that becomes readable once there is hurry.
    struct Hurry {
        Hurry();
        ~Hurry();
        Hurry(const Hurry&) = delete;
        Hurry& operator=(const Hurry&) = delete;
        const int event;
    };

    const OutputDescriptor& of(Stream stream) const {
        return stream == Stream::output ? output_ : errors_;
    }
    void printBytes(Stream stream, std::string_view bytes);
    void write(Stream stream, std::string_view text);
    void eraseLiveLine();
    void drawLiveLine();

    const Hurry hurry_;
    OutputDescriptor output_;
    OutputDescriptor errors_;
    const Charset charset_;
    bool coloursAllowed_;
    mutable std::mutex mutex_;
    std::string liveLine_;
    std::atomic<bool> isLiveLineDrawn_{false};
    std::size_t drawnWidth_ = 0;  ///< Of the terminal, when it was drawn.
};

}  // namespace velto::cli
