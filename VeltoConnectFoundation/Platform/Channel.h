#pragma once

#include <VeltoConnectFoundation/Platform/ChannelReport.h>
#include <VeltoConnectFoundation/Platform/DeliveryTarget.h>
#include <VeltoConnectFoundation/Platform/FileDescriptor.h>
#include <VeltoConnectFoundation/Platform/IOThread.h>
#include <VeltoConnectFoundation/Platform/Lock.h>

#include <cstddef>
#include <functional>
#include <memory>

namespace velto {

/// Reads one pipe on the I/O thread and delivers what it reads in order on a target.
///
/// While the target is behind by more than `limit` bytes nothing more is read, so a flood fills
/// the pipe and not the memory. The I/O thread keeps an open channel alive.
class Channel final : public std::enable_shared_from_this<Channel> {
public:
    using Receiver = std::function<void(const ChannelReport&)>;

    static constexpr std::size_t blockSize = 64UL * 1024;
    static constexpr std::size_t defaultLimit = 4UL * 1024 * 1024;

    /// `receiver` is called on the target only.
    Channel(DeliveryTarget target, Receiver receiver, std::size_t limit = defaultLimit);

    void open(FileDescriptor descriptor);  ///< Once.

    /// I/O thread. Delivers what can be read without waiting, then closes. An end of file is not
    /// waited for: somebody else may hold the other end open.
    void drain();

    /// From now on what is read is dropped and nothing is told: the writer never waits for nobody.
    void discard();

private:
    class Letter;
    enum class Reading : std::uint8_t { more, nothingNow, ended };

    void readable();
    Reading readBlock(ChannelReport::Kind kind, std::size_t& length);
    void takeFromBuffer();
    void deliver(const ChannelReport& report);
    void close();
    void resume() noexcept VELTO_REQUIRES(mutex_);
    bool pausedWhenBehind();
    bool discards();
    void received(std::size_t length);

    const DeliveryTarget target_;
    const std::shared_ptr<const Receiver> receiver_;
    const std::size_t limit_;

    FileDescriptor descriptor_;                          ///< I/O thread, once open.
    std::unique_ptr<void, void (*)(void*)> readBuffer_;  ///< I/O thread; null between large blocks.
    // What was read stays here until it is on its way: a block that there was no memory for is
    // delivered with the next look.
    std::size_t bufferedLength_ = 0;  ///< I/O thread.
    Data undelivered_;                ///< I/O thread.

    Mutex mutex_;
    std::size_t waiting_ VELTO_GUARDED_BY(mutex_) = 0;  ///< Bytes read and not yet received.
    bool open_ VELTO_GUARDED_BY(mutex_) = false;
    bool discards_ VELTO_GUARDED_BY(mutex_) = false;
    bool isPaused_ VELTO_GUARDED_BY(mutex_) = false;
    IOThread::Token watch_ VELTO_GUARDED_BY(mutex_) = 0;
};

}  // namespace velto
