#pragma once

#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/Make.h>
#include <VeltoConnectFoundation/Work/MZAbstractWorker.h>
#include <VeltoConnectFoundation/Work/MZThroughputWorker.h>

class MZMD5Operation;

/// Computes the MD5 of a file; what is none (a pipe, a device) is an error. Any thread may ask
/// meanwhile how far it is.
class VELTO_EXPORT MZMD5Worker : public MZAbstractWorker, public MZThroughputWorker {
public:
    MZMD5Worker(velto::PassKey, std::string_view file);
    ~MZMD5Worker() override;

    void run() override;
    void cancel() override;  ///< Ends the digest at the next block; there is no MD5 then.

    const std::string& file() const { return file_; }
    /// 32 lower-case digits; none before the end, and when it failed or was cancelled.
    std::optional<std::string> md5() const;
    /// Of the file that is digested, when the digest began; none before, or without a file.
    std::optional<velto::FileAttributes> fileAttributes() const;

    /// Of the bytes that have been digested; 100 once the worker has ended.
    double percentComplete() const override;
    std::uint64_t size() const override;       ///< Of the file when the digest began.
    std::uint64_t completed() const override;  ///< Bytes digested.

private:
    std::optional<std::string> computeMD5(velto::Error& error);

    const std::string file_;
    const std::shared_ptr<MZMD5Operation> operation_;
    std::atomic<std::uint64_t> size_{0};
    mutable velto::Lock resultLock_;
    std::optional<std::string> md5_ VELTO_GUARDED_BY(resultLock_);
    std::optional<velto::FileAttributes> fileAttributes_ VELTO_GUARDED_BY(resultLock_);
};
