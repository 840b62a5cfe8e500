#include <VeltoConnectFoundation/Platform/Channel.h>

#include <cerrno>
#include <cstdlib>
#include <new>

#include <fcntl.h>
#include <unistd.h>

namespace velto {

/// One report on its way. Its end, received or dropped, gives the channel room again.
class Channel::Letter {
public:
    Letter(std::shared_ptr<Channel> channel, ChannelReport report)
        : channel_(std::move(channel)), report_(std::move(report)) {}
    ~Letter() { channel_->received(report_.block.length()); }
    Letter(const Letter&) = delete;
    Letter& operator=(const Letter&) = delete;

    void handOver() const {
        if (!channel_->discards()) {
            (*channel_->receiver_)(report_);
        }
    }

private:
    std::shared_ptr<Channel> channel_;
    ChannelReport report_;
};

Channel::Channel(DeliveryTarget target, Receiver receiver, std::size_t limit)
    : target_(std::move(target)),
      receiver_(std::make_shared<const Receiver>(std::move(receiver))),
      limit_(limit),
      readBuffer_(nullptr, &std::free) {
}

void Channel::open(FileDescriptor descriptor) {
    descriptor_ = std::move(descriptor);
    const int flags = ::fcntl(descriptor_.number(), F_GETFL);
    int error = ::fcntl(descriptor_.number(), F_SETFL, flags | O_NONBLOCK) == 0 ? 0 : errno;
    if (error == 0) {
        const MutexGuard guard(mutex_);
        watch_ = IOThread::shared().addReadable(descriptor_.number(),
                                                [self = shared_from_this()] { self->readable(); });
        open_ = watch_ != 0;
        error = open_ ? 0 : errno;
    }
    if (error != 0) {
        deliver({ChannelReport::Kind::openFailed, {}, error});
    }
}

void Channel::resume() noexcept {
    if (open_ && std::exchange(isPaused_, false)) {
        IOThread::shared().resume(watch_);
    }
}

void Channel::readable() {
    // A few blocks at a time, so that one flood does not keep other children waiting.
    for (int turn = 0; turn < 4; ++turn) {
        std::size_t length = 0;
        switch (readBlock(ChannelReport::Kind::block, length)) {
            case Reading::more:
                break;
            case Reading::nothingNow:
                return;
            case Reading::ended:
                close();
                return;
        }
        if (pausedWhenBehind() || length < blockSize) {
            return;
        }
    }
}

void Channel::drain() {
    {
        const MutexGuard guard(mutex_);
        if (!open_) {
            return;
        }
    }
    // A grandchild may go on writing: no more is taken than the pipe can have held.
    const int capacity = ::fcntl(descriptor_.number(), F_GETPIPE_SZ);
    std::size_t left = capacity > 0 ? static_cast<std::size_t>(capacity) : blockSize;
    for (;;) {
        std::size_t length = 0;
        if (readBlock(ChannelReport::Kind::drained, length) != Reading::more || length >= left) {
            break;
        }
        left -= length;
    }
    close();
}

Channel::Reading Channel::readBlock(ChannelReport::Kind kind, std::size_t& length) {
    if (undelivered_.isEmpty() && bufferedLength_ == 0) {
        if (!readBuffer_) {
            readBuffer_.reset(std::malloc(blockSize));
            if (!readBuffer_) {
                throw std::bad_alloc();
            }
        }
        ssize_t count = 0;
        do {
            count = ::read(descriptor_.number(), readBuffer_.get(), blockSize);
        } while (count < 0 && errno == EINTR);
        if (count < 0) {
            if (errno == EAGAIN) {
                return Reading::nothingNow;
            }
            deliver({ChannelReport::Kind::readFailed, {}, errno});
            return Reading::ended;
        }
        if (count == 0) {
            return Reading::ended;
        }
        bufferedLength_ = static_cast<std::size_t>(count);
    }
    takeFromBuffer();
    length = undelivered_.length();
    deliver({kind, undelivered_, 0});
    undelivered_ = Data();
    return Reading::more;
}

/// A block that is nearly full is handed on as it is; little text is not left in a large block.
void Channel::takeFromBuffer() {
    if (bufferedLength_ > blockSize / 2) {
        undelivered_ = Data::adoptingMalloc(readBuffer_.get(), bufferedLength_);
        static_cast<void>(readBuffer_.release());
    } else if (bufferedLength_ > 0) {
        undelivered_ = Data(readBuffer_.get(), bufferedLength_);
    }
    bufferedLength_ = 0;
}

void Channel::deliver(const ChannelReport& report) {
    {
        const MutexGuard guard(mutex_);
        if (discards_) {
            return;
        }
        waiting_ += report.block.length();
    }
    std::shared_ptr<const Letter> letter;
    try {
        letter = std::make_shared<const Letter>(shared_from_this(), report);
    } catch (...) {
        const MutexGuard guard(mutex_);
        waiting_ -= report.block.length();
        throw;
    }
    target_.post([letter = std::move(letter)] { letter->handOver(); });
}

bool Channel::pausedWhenBehind() {
    const MutexGuard guard(mutex_);
    if (waiting_ < limit_ || discards_) {
        return false;
    }
    isPaused_ = true;
    IOThread::shared().pause(watch_);
    return true;
}

void Channel::received(std::size_t length) {
    const MutexGuard guard(mutex_);
    waiting_ -= length;
    if (waiting_ < limit_ / 2) {
        resume();
    }
}

void Channel::discard() {
    const MutexGuard guard(mutex_);
    discards_ = true;
    resume();
}

bool Channel::discards() {
    const MutexGuard guard(mutex_);
    return discards_;
}

void Channel::close() {
    {
        const MutexGuard guard(mutex_);
        open_ = false;
        IOThread::shared().remove(std::exchange(watch_, 0));
    }
    descriptor_.reset();
    readBuffer_.reset();
}

}  // namespace velto
