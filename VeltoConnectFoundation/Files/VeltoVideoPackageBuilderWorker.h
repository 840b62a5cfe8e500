#pragma once

#include <VeltoConnectFoundation/Files/VeltoPackageBuilder.h>
#include <VeltoConnectFoundation/Platform/Make.h>
#include <VeltoConnectFoundation/Work/MZThroughputWorker.h>

class MZFileCopyOperation;
class MZMD5Worker;
class VeltoPackageFolder;
class VeltoVideoMetadataWorker;

/// Makes a delivery package of a video, beside it: a new folder with the extension ".velmp" that
/// holds a copy of the video and a metadata.xml with its names, size and MD5. Its path becomes the
/// packagePath.
///
///     auto md5 = velto::make<MZMD5Worker>("Film.mov");
///     auto metadata = std::make_shared<VeltoGivenVideoMetadata>("Film", "DemoStudio", "FILM_1");
///     auto build = VeltoVideoPackageBuilderWorker::initWithMetadataWorker(metadata, md5, "Main");
///     manager->submitWork(MZWorkSeries::seriesWithWorkItems(MZWorkItem::itemsWithWorkers({md5,
///     build})));
///
/// The MD5 worker has run before: a video that is not the file that it digested, or that has
/// changed, is an error. Device, inode, size and change time tell; they do not tell of a change
/// through a writable mapping, or within one tick of an old system's clock. builderForVideo needs
/// none of that, and reads the video once.
///
/// All is made in the folder that was made, which nobody but its owner may write, whatever others
/// do meanwhile with its path; no link is followed. metadata.xml comes last, complete, and all of
/// the package is synchronized with the disk: a folder without it is no package. Cancelled or
/// failed, a build leaves the folder with what it holds so far; createdDirectory() tells which it
/// is, and discard() removes it. One build per worker.
class VELTO_EXPORT VeltoVideoPackageBuilderWorker : public VeltoPackageBuilder,
                                                    public MZThroughputWorker {
public:
    VeltoVideoPackageBuilderWorker(velto::PassKey,
                                   std::shared_ptr<VeltoVideoMetadataWorker> metadataWorker,
                                   std::shared_ptr<MZMD5Worker> md5Worker,
                                   std::string_view assetType);
    ~VeltoVideoPackageBuilderWorker() override;

    /// Both workers are never null. For films `assetType` is "Main" or "Trailer".
    static std::shared_ptr<VeltoVideoPackageBuilderWorker> initWithMetadataWorker(
        std::shared_ptr<VeltoVideoMetadataWorker> metadataWorker,
        std::shared_ptr<MZMD5Worker> md5Worker,
        std::string_view assetType);

    /// One that needs no digest made before: it digests the very bytes that it copies. Its folder
    /// is marked while it is made, and what such a build of the same video left when it was killed
    /// is taken over, by its name, too. No MD5 worker has to run.
    static std::shared_ptr<VeltoVideoPackageBuilderWorker> builderForVideo(
        std::shared_ptr<VeltoVideoMetadataWorker> metadataWorker,
        std::string_view video,
        std::string_view assetType);

    void run() override;
    void cancel() override;
    /// Removes what the build made, a whole package too, and nothing else; an error when something
    /// of it stays. After run(), on one thread.
    [[nodiscard]] velto::Error discard();
    /// Fails with an error, or with one that the worker has got meanwhile.
    [[nodiscard]] velto::Error createPackage();

    /// Whether the metadata would take the place of a video of that name: "metadata.xml", in either
    /// case, for some file systems take both for the same.
    static bool isMetadataName(std::string_view name);
    /// Beside the video: where its package is made unless anything is there.
    static std::string exampleDirectoryForVideo(std::string_view video);
    /// The path itself when nothing is there, else the first free of "…-1.velmp", "…-2.velmp" and
    /// so on.
    static std::string uniqueDirectoryNameWithExample(std::string_view path);
    /// The copied file's size as a number; none with an error.
    velto::Value fileCopy(std::string_view file, std::string_view path, velto::Error& error);

    const std::shared_ptr<VeltoVideoMetadataWorker>& videoMetadataWorker() const {
        return videoMetadataWorker_;
    }
    const std::shared_ptr<MZMD5Worker>& md5Worker() const { return md5Worker_; }
    const std::string& assetType() const { return assetType_; }
    bool isMediaTypeMovie() const;
    std::string xmlAssetType() const;                ///< "full" or "preview"
    std::string providerShortName() const override;  ///< The metadata worker's.

    /// The folder that this build has made, or taken over; empty before, and when it was discarded.
    std::string createdDirectory() const;
    /// What the metadata states; none before the copy.
    std::optional<std::string> md5() const;

    /// Of the bytes that have been copied; 100 for a worker with errors that copies nothing, and
    /// once the build has ended.
    double percentComplete() const override;
    std::uint64_t size() const override;       ///< Bytes to copy; 0 before the copy.
    std::uint64_t completed() const override;  ///< Bytes copied.

protected:
    /// The two stages of createPackage. No error also when the worker has got one.
    velto::Error _createPackageAtDirectory(std::string_view directory,
                                           std::string_view sourceFile,
                                           std::string_view md5);
    void _generateMetadataXMLForSourceFile(std::string_view sourceFile,
                                           std::string_view md5,
                                           const velto::Value& size,
                                           std::string_view directory);

private:
    void tellPhase(std::string message);
    std::shared_ptr<MZFileCopyOperation> copy() const;
    velto::Error makeFolder(const std::string& source, std::string& directory);
    VeltoPackageFolder* folderAt(std::string_view directory, velto::Error& error);
    std::shared_ptr<MZFileCopyOperation> beginCopy(std::string_view file, velto::Error& error);
    velto::Error faultOfCopy(const MZFileCopyOperation& operation) const;
    std::string metadataXML(std::string_view fileName,
                            std::string_view md5,
                            const velto::Value& size) const;

    const std::shared_ptr<VeltoVideoMetadataWorker> videoMetadataWorker_;
    const std::shared_ptr<MZMD5Worker> md5Worker_;
    const std::string assetType_;
    bool digestsCopy_ = false;  ///< Constant once it is built.
    std::unique_ptr<VeltoPackageFolder> folder_;
    bool hasCopied_ = false;  ///< A part of the video, at least.
    std::atomic<std::uint64_t> size_{0};
    mutable velto::Lock copyLock_;
    std::shared_ptr<MZFileCopyOperation> copy_ VELTO_GUARDED_BY(copyLock_);
    std::string createdDirectory_ VELTO_GUARDED_BY(copyLock_);
    std::optional<std::string> md5_ VELTO_GUARDED_BY(copyLock_);
};
