#pragma once

#include <VeltoConnectFoundation/DeliveryTool/ToolLineMarkers.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanTransfer.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// "NAME 50/100, 50% completed", with whatever stands before and behind.
struct ToolLineCounts {
    std::string_view before;  ///< Ends with the file's name, which may hold blanks.
    std::int64_t sent = 0;
    std::int64_t total = 0;

    /// None for a line of another shape.
    static std::optional<ToolLineCounts> of(std::string_view line) noexcept;
    std::string_view lastWord() const noexcept;
};

/// What a line tells of a transfer. File names may read like any of it: the kinds go before one
/// another in this order, and behind a marker all is a name.
enum class ToolLineKind : std::uint8_t {
    addingFile,
    counts,
    skippedFile,
    totalSize,
    reset,    ///< The tool starts over.
    restart,  ///< The transfer starts over.
    error,    ///< An error, or the head of a list of them.
    other,
};

/// `counts` are those of a line that has them.
ToolLineKind toolLineKind(const ToolLineMarkers& markers,
                          const std::optional<ToolLineCounts>& counts) noexcept;

/// Keeps account of a transfer's bytes, each file by its whole name and once. One thread at a time.
class VELTO_EXPORT_INTERNAL ToolTransferLedger {
public:
    /// Enters what a line of this kind tells.
    void enter(ToolLineKind kind,
               const ToolLineMarkers& markers,
               const std::optional<ToolLineCounts>& counts);
    const VeltoDrovanTransfer& transfer() const noexcept { return transfer_; }

private:
    struct File {
        std::uint64_t announced = 0;
        std::uint64_t size = 0;
        std::uint64_t sent = 0;
        bool isSkipped = false;

        bool hasArrived() const noexcept { return sent == size; }
    };
    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const noexcept {
            return std::hash<std::string_view>()(text);
        }
    };

    void announce(std::string_view text);
    void skip(std::string_view line);
    void send(const ToolLineCounts& counts);
    void restart();
    File& fileOf(const ToolLineCounts& counts);

    VeltoDrovanTransfer transfer_;
    std::unordered_map<std::string, File, TextHash, std::equal_to<>> files_;
    std::vector<File*> begun_;  ///< Since the last restart; what has arrived stands there, too.
    std::string lastBefore_;    ///< Of the last counts,
    File* last_ = nullptr;      ///< and whose they were: most lines tell of the same file again.
};
