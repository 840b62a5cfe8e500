#include <VeltoConnectFoundation/Files/MZMD5Worker.h>
#include <VeltoConnectFoundation/Files/VeltoVideoMetadataWorker.h>
#include <VeltoConnectFoundation/Files/VeltoVideoPackageBuilderWorker.h>
#include <VeltoConnectFoundation/Platform/Digest.h>
#include <VeltoConnectFoundation/Platform/FileDescriptor.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/XMLDocument.h>
#include <VeltoConnectFoundation/Work/MZWorkItem.h>

#include <Tests/Support/IsError.h>
#include <Tests/Support/RandomSeed.h>
#include <Tests/Support/ScopedUserDefaults.h>
#include <Tests/Support/SmallDisk.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <thread>

namespace {

using velto::Error;
using velto::FileManager;
using velto::testing::contentsOfFile;
using velto::testing::IsError;
using velto::testing::TemporaryDirectory;
using Builder = VeltoVideoPackageBuilderWorker;

constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20;

std::string md5Of(const std::string& bytes) {
    return velto::hexadecimal(
        velto::Digest::of(velto::Digest::Algorithm::md5, bytes).value().view());
}

/// A builder whose MD5 worker has run.
std::shared_ptr<Builder> builderFor(const std::string& video,
                                    const VeltoGivenVideoMetadata& metadata = {"Film", "DemoStudio",
                                                                               "FILM_1"},
                                    std::string_view assetType = "Main") {
    const auto md5 = velto::make<MZMD5Worker>(video);
    md5->run();
    return Builder::initWithMetadataWorker(std::make_shared<VeltoGivenVideoMetadata>(metadata), md5,
                                           assetType);
}

/// Why a package folder is not complete; empty when it is.
std::string faultOf(const std::filesystem::path& package) {
    const auto document = velto::XMLDocument::parse(contentsOfFile(package / "metadata.xml"));
    if (!document) {
        return "metadata.xml is malformed";
    }
    const velto::XMLElement& file =
        document->root().child("assets")->child("asset")->children().front();
    const std::string media = contentsOfFile(package / file.child("file_name")->text());
    return file.child("size")->text() != std::to_string(media.size()) ? "wrong size"
           : file.child("checksum")->text() != md5Of(media)           ? "wrong checksum"
                                                                      : "";
}

TEST(VeltoVideoPackageBuilderWorker, BuildsAPackageBesideTheVideo) {
    const TemporaryDirectory folder;
    const std::string video = folder.write("movie.mov", "video");
    const auto builder = builderFor(video);
    EXPECT_EQ(builder->statusMessage(), "Create Velto Store package");
    EXPECT_EQ(builder->percentComplete(), 0);
    EXPECT_EQ(builder->size(), 0U);
    std::vector<std::string> messages;
    const velto::Observation observation =
        builder->observe("statusMessage", [&](const velto::PropertyChange&) {
            messages.push_back(builder->statusMessage().value_or(""));
        });
    MZWorkItem::itemWithWorker(builder)->main();
    const std::string package = folder.at("movie-UntitledVeltoStoreDelivery.velmp");
    EXPECT_FALSE(builder->hasErrors()) << builder->description();
    EXPECT_EQ(builder->packagePath(), package);
    EXPECT_EQ(builder->createdDirectory(), package);
    EXPECT_EQ(builder->workStatus(), MZWorkStatusFinished);
    EXPECT_EQ(builder->percentComplete(), 100);
    EXPECT_EQ(builder->size(), 5U);
    EXPECT_EQ(builder->completed(), 5U);
    EXPECT_THAT(messages, ::testing::ElementsAre(
                              "Creating Velto Store package…", "Copying media to the package…",
                              "Generating metadata…", "Generated package: " + package));
    EXPECT_EQ(contentsOfFile(package + "/movie.mov"), "video");
    EXPECT_EQ(contentsOfFile(package + "/metadata.xml"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<package version=\"film2.3\">\n"
              "\t<provider>DemoStudio</provider>\n"
              "\t<assets media_type=\"Film\" vendor_id=\"FILM_1\">\n"
              "\t\t<asset type=\"full\">\n"
              "\t\t\t<data_file role=\"source\">\n"
              "\t\t\t\t<file_name>movie.mov</file_name>\n"
              "\t\t\t\t<size>5</size>\n"
              "\t\t\t\t<checksum type=\"md5\">421b47ffd946ca083b65cd668c6b17e6</checksum>\n"
              "\t\t\t</data_file>\n"
              "\t\t</asset>\n"
              "\t</assets>\n"
              "</package>\n");
    EXPECT_EQ(FileManager::namesInFolder(package).value().size(), 2U);
}

TEST(VeltoVideoPackageBuilderWorker, NamesTheAssetByMediaAndAssetType) {
    const TemporaryDirectory folder;
    const std::string video = folder.write("a.mov", "x");
    const struct {
        const char* mediaType;
        const char* assetType;
        bool isMovie;
        const char* expected;
    } rows[] = {
        {"Film", "Main", true, "full"},        {"Film", "Trailer", true, "preview"},
        {"Movie", "Trailer", true, "preview"}, {"Film", "Poster", true, "full"},
        {"TV", "Trailer", false, "full"},      {"film", "Trailer", false, "full"},
    };
    for (const auto& row : rows) {
        const auto builder = builderFor(video, {row.mediaType, "P", "V"}, row.assetType);
        EXPECT_EQ(builder->xmlAssetType(), row.expected) << row.mediaType << row.assetType;
        EXPECT_EQ(builder->isMediaTypeMovie(), row.isMovie) << row.mediaType;
    }
}

/// Required: values stand as they are. Their first build takes the first name, and so on.
TEST(VeltoVideoPackageBuilderWorker, WritesValuesUnescapedAndCountsNamesUp) {
    const TemporaryDirectory folder;
    const std::string video = folder.write("a.b/movie.x.mov", "x");
    ASSERT_EQ(
        symlink("nowhere", folder.at("a.b/movie.x-UntitledVeltoStoreDelivery-1.velmp").c_str()), 0);
    for (const char* const number : {"", "-2", "-3"}) {
        const auto builder = builderFor(video, {"Film", "A&B", "<V>"});
        builder->run();
        const std::string package =
            folder.at("a.b/movie.x-UntitledVeltoStoreDelivery" + std::string(number) + ".velmp");
        EXPECT_EQ(builder->packagePath(), package);
        const std::string text = contentsOfFile(package + "/metadata.xml");
        EXPECT_NE(text.find("<provider>A&B</provider>"), std::string::npos);
        EXPECT_NE(text.find("vendor_id=\"<V>\""), std::string::npos);
    }
}

/// Nothing is created where an input is missing; otherwise what there is so far stays, without
/// metadata.
TEST(VeltoVideoPackageBuilderWorker, SaysWhatItLacks) {
    const TemporaryDirectory folder;
    const std::string video = folder.write("in/movie.mov", "x");
    const auto valid = std::make_shared<VeltoGivenVideoMetadata>("Film", "P", "V");
    const auto invalid = std::make_shared<VeltoGivenVideoMetadata>("Film", "P", "V", false);
    const auto digested = velto::make<MZMD5Worker>(video);
    digested->run();
    const auto vanished = velto::make<MZMD5Worker>(folder.write("in/gone.mov", "x"));
    vanished->run();
    ASSERT_TRUE(FileManager::remove(folder.at("in/gone.mov")));
    const auto homeless = velto::make<MZMD5Worker>(folder.write("out/movie.mov", "x"));
    homeless->run();
    ASSERT_TRUE(FileManager::remove(folder.at("out")));
    folder.write("out", "no folder");
    const struct {
        std::shared_ptr<VeltoVideoMetadataWorker> metadata;
        std::shared_ptr<MZMD5Worker> md5;
        std::string text;
        bool creates;
    } rows[] = {
        {invalid, digested, "No valid metadata", false},
        {valid, velto::make<MZMD5Worker>(video), "No valid MD5", false},
        {valid, vanished, "No such file at path: " + folder.at("in/gone.mov"), true},
        {valid, homeless,
         "Unable to create directory: " +
             folder.at("out/movie-UntitledVeltoStoreDelivery.velmp: Not a directory"),
         false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const auto builder = Builder::initWithMetadataWorker(row.metadata, row.md5, "Main");
        builder->run();
        EXPECT_EQ(builder->errorMessage(), row.text);
        EXPECT_EQ(builder->errors().size(), 1U);
        EXPECT_EQ(builder->percentComplete(), 100);
        EXPECT_EQ(builder->packagePath(), "");
        EXPECT_EQ(!builder->createdDirectory().empty(), row.creates);
        EXPECT_FALSE(FileManager::exists(builder->createdDirectory() + "/metadata.xml"));
    }
}

/// What the checksum is of has to be what the package holds.
TEST(VeltoVideoPackageBuilderWorker, RefusesAVideoThatIsNotTheDigestedOne) {
    const TemporaryDirectory folder;
    const struct {
        const char* name;
        std::function<void(const std::string& video)> change;
    } rows[] = {
        {"longer", [](const std::string& video) { std::ofstream(video, std::ios::app) << "more"; }},
        {"overwritten",
         [](const std::string& video) {
             const auto time = std::filesystem::last_write_time(video);
             const auto before = FileManager::attributes(video);
             while (FileManager::attributes(video)->changed == before->changed) {
                 std::ofstream(video, std::ios::in) << "VIDEO";
                 std::filesystem::last_write_time(video, time);
             }
         }},
        {"replaced",
         [](const std::string& video) {
             const auto time = std::filesystem::last_write_time(video);
             std::filesystem::rename(video, video + ".old");
             std::ofstream(video) << "VIDEO";
             std::filesystem::last_write_time(video, time);
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto builder = builderFor(folder.write("movie.mov", "video"));
        row.change(folder.at("movie.mov"));
        builder->run();
        ASSERT_EQ(builder->errors().size(), 1U);
        EXPECT_THAT(builder->errors().front(), IsError(velto::GeneralErrorDomain, ESTALE));
        EXPECT_EQ(builder->packagePath(), "");
        EXPECT_FALSE(FileManager::exists(builder->createdDirectory() + "/metadata.xml"));
    }
    folder.write("target", "video");
    std::filesystem::create_symlink("target", folder.at("link.mov"));
    folder.write("Metadata.XML", "video");
    for (const char* name : {"link.mov", "Metadata.XML"}) {
        SCOPED_TRACE(name);
        const auto builder = builderFor(folder.at(name));
        builder->run();
        EXPECT_EQ(builder->errors().size(), 1U);
        EXPECT_EQ(builder->createdDirectory(), "");
    }
}

/// Calls `act` when the copy begins, or when all of it has been copied.
velto::Observation whenCopying(Builder& builder, bool isDone, std::function<void()> act) {
    return builder.observe(
        isDone ? "percentComplete" : "statusMessage",
        [&builder, isDone, act](const velto::PropertyChange&) {
            if (isDone ? builder.size() != 0 && builder.percentComplete() >= 100
                       : builder.statusMessage() == "Copying media to the package…") {
                act();
            }
        });
}

/// What others do meanwhile in the folder of the video, or in the package's.
TEST(VeltoVideoPackageBuilderWorker, IsNotLedAstrayWhileItCopies) {
    const mode_t mask = umask(0);
    for (const bool digestsCopy : {false, true}) {
        SCOPED_TRACE(digestsCopy);
        const TemporaryDirectory folder;
        const std::string video = folder.write("movie.mov", "video");
        const std::string victim = folder.write("victim", "a stranger's");
        folder.write("other.mov", "VIDEO");
        const std::string package = folder.at("movie-UntitledVeltoStoreDelivery.velmp");
        const auto build = [&](bool atEnd, const std::function<void()>& act) {
            auto builder = digestsCopy
                               ? Builder::builderForVideo(std::make_shared<VeltoGivenVideoMetadata>(
                                                              "Film", "DemoStudio", "FILM_1"),
                                                          video, "Main")
                               : builderFor(video);
            const auto observation = whenCopying(*builder, atEnd, act);
            builder->run();
            return builder;
        };
        const auto rename = [&](const std::string& from, const std::string& to) {
            std::filesystem::rename(folder.at(from), folder.at(to));
        };
        // Another film is there while the copy begins, and this one again when it is checked.
        unsigned turn = 0;
        auto builder = builderFor(video);
        {
            const auto swap = [&] {
                rename("movie.mov", "kept");
                rename("other.mov", "movie.mov");
                rename("kept", "other.mov");
                ++turn;
            };
            if (digestsCopy) {
                builder = build(true, [&] { std::ofstream(video, std::ios::app) << "more"; });
                std::filesystem::resize_file(video, 5);
            } else {
                const auto first = whenCopying(*builder, false, swap);
                const auto second = whenCopying(*builder, true, [&] {
                    if (turn == 1) {
                        swap();
                    }
                });
                builder->run();
                EXPECT_EQ(turn, 2U);
            }
        }
        ASSERT_EQ(builder->errors().size(), 1U);
        EXPECT_THAT(builder->errors().front(), IsError(velto::GeneralErrorDomain, ESTALE));
        EXPECT_FALSE(FileManager::exists(package + "/metadata.xml"));
        EXPECT_FALSE(builder->discard());
        EXPECT_FALSE(FileManager::exists(package));

        builder = build(false, [&] {
            EXPECT_EQ(FileManager::attributes(package)->mode, 0755U);
            std::filesystem::create_symlink(victim, package + "/metadata.xml");
        });
        EXPECT_EQ(contentsOfFile(victim), "a stranger's");
        ASSERT_EQ(builder->errors().size(), 1U);
        EXPECT_THAT(builder->errors().front(), IsError(velto::POSIXErrorDomain, EEXIST));
        EXPECT_EQ(builder->packagePath(), "");
        EXPECT_TRUE(builder->discard());
        EXPECT_TRUE(std::filesystem::is_symlink(package + "/metadata.xml"));
        ASSERT_TRUE(FileManager::remove(package));

        builder = build(false, [&] {
            std::filesystem::rename(package, folder.at("moved"));
            folder.write(std::filesystem::path(package).filename().string() + "/movie.mov", "own");
        });
        ASSERT_EQ(builder->errors().size(), 1U);
        EXPECT_THAT(builder->errors().front(), IsError(velto::GeneralErrorDomain, ESTALE));
        EXPECT_TRUE(builder->discard());
        EXPECT_THAT(*FileManager::namesInFolder(package), ::testing::ElementsAre("movie.mov"));
        EXPECT_THAT(*FileManager::namesInFolder(folder.at("moved")), ::testing::IsEmpty());
    }
    umask(mask);
}

TEST(VeltoVideoPackageBuilderWorker, PassesAnExceptionOnAtFullProgress) {
    struct Throwing final : VeltoVideoMetadataWorker {
        std::string mediaType() const override { return {}; }
        std::string providerShortName() const override { return {}; }
        std::string vendorIdentifier() const override { return {}; }
        bool isValidVendorID() const override { throw 1; }
    };
    const auto builder = Builder::initWithMetadataWorker(std::make_shared<Throwing>(),
                                                         velto::make<MZMD5Worker>("none"), "Main");
    EXPECT_THROW(builder->run(), int);
    EXPECT_EQ(builder->percentComplete(), 100);
}

TEST(VeltoVideoPackageBuilderWorker, TakesItsSettingsFromTheUser) {
    const velto::testing::ScopedUserDefaults defaults({{"VeltoUsername", "me"},
                                                       {"VeltoPassword", "secret"},
                                                       {"VeltoTransport", "DAV"},
                                                       {"VeltoPackagePath", "/p"},
                                                       {"VeltoProviderShortname", "P"},
                                                       {"VeltoVTCProviderShortname", "VTC"}});
    const auto builder = builderFor("none");
    EXPECT_EQ(builder->username(), "me");
    EXPECT_EQ(builder->password(), "secret");
    EXPECT_EQ(builder->transport(), "DAV");
    EXPECT_EQ(builder->packagePath(), "/p");
    EXPECT_EQ(builder->VeltoPackageBuilder::providerShortName(), "P");
    EXPECT_EQ(builder->providerShortName(), "DemoStudio");
    EXPECT_EQ(builder->VTCProviderShortName(), "VTC");
}

/// Whenever the cancel comes, there is a whole package, or none and no metadata; before the run,
/// there is not even a folder.
TEST(VeltoVideoPackageBuilderWorker, CancelsAtAnyMoment) {
    std::mt19937_64 random(velto::testing::randomSeed());
    const TemporaryDirectory folder;
    const std::string video = folder.write("movie.mov", std::string(12 * mebibyte, 'x'));
    const auto md5 = velto::make<MZMD5Worker>(video);
    md5->run();
    const auto metadata = std::make_shared<VeltoGivenVideoMetadata>("Film", "P", "V");
    unsigned whole = 0;
    for (unsigned round = 0; round < 100; ++round) {
        const auto builder = Builder::initWithMetadataWorker(metadata, md5, "Main");
        const auto delay = std::chrono::microseconds(random() % 12000);
        std::thread canceller([&] {
            const auto end = std::chrono::steady_clock::now() + delay;
            while (std::chrono::steady_clock::now() < end) {
                EXPECT_LE(builder->percentComplete(), 100);
            }
            builder->cancel();
        });
        if (round == 0) {
            builder->cancel();
        }
        builder->run();
        canceller.join();
        const std::string package = builder->createdDirectory();
        if (round == 0) {
            ASSERT_EQ(package, "");
        }
        if (!package.empty() && FileManager::exists(package + "/metadata.xml")) {
            ++whole;
            ASSERT_EQ(faultOf(package), "");
            ASSERT_EQ(builder->packagePath(), package);
        } else {
            ASSERT_EQ(builder->packagePath(), "");
        }
        ASSERT_EQ(builder->percentComplete(), 100);
        ASSERT_EQ(builder->statusMessage(), "Creation of video package cancelled");
        ASSERT_TRUE(package.empty() || FileManager::remove(package));
    }
    std::cout << whole << " of 100 were built before\n";
}

TEST(VeltoVideoPackageBuilderWorker, CopiesOnceMoreUntilItIsCancelled) {
    const TemporaryDirectory folder;
    const std::string video = folder.write("movie.mov", "video");
    const auto builder = builderFor(video);
    Error error;
    for (const char* const copy : {"first", "second"}) {
        EXPECT_EQ(builder->fileCopy(video, folder.at(copy), error), velto::Value(5));
        EXPECT_EQ(contentsOfFile(folder.at(copy)), "video");
    }
    builder->cancel();
    EXPECT_FALSE(builder->fileCopy(video, folder.at("third"), error));
    EXPECT_EQ(error.localizedDescription(), "The user canceled the file copy.");
    EXPECT_FALSE(FileManager::exists(folder.at("third")));
}

/// Several builds of one video at once: each gets a folder of its own.
TEST(VeltoVideoPackageBuilderWorker, SharesNoFolderWithAnotherBuild) {
    const TemporaryDirectory folder;
    const std::string video = folder.write("movie.mov", "video");
    std::vector<std::shared_ptr<Builder>> builders;
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (unsigned index = 0; index < 8; ++index) {
        builders.push_back(builderFor(video));
    }
    for (const auto& builder : builders) {
        threads.emplace_back([&] { builder->run(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::set<std::string> packages;
    for (const auto& builder : builders) {
        EXPECT_FALSE(builder->hasErrors()) << builder->description();
        EXPECT_EQ(faultOf(builder->packagePath()), "");
        packages.insert(builder->packagePath());
    }
    EXPECT_EQ(packages.size(), builders.size());
}

/// Only what a build of the same video has left for good, and what nobody else could have changed.
TEST(VeltoVideoPackageBuilderWorker, TakesOverNothingThatIsNotItsOwn) {
    const auto metadata = std::make_shared<VeltoGivenVideoMetadata>("Film", "P", "V");
    const TemporaryDirectory folder;
    const std::string video = folder.write("movie.mov", "video");
    const std::string package = folder.at("movie-UntitledVeltoStoreDelivery.velmp");
    const std::string mark = package + "/.velto-unfinished";
    const struct {
        const char* name;
        std::function<void()> prepare;
        bool isTakenOver;
    } rows[] = {
        {"the mark alone", [] {}, true},
        {"a part of the video", [&] { std::ofstream(package + "/movie.mov") << "v"; }, true},
        {"something else", [&] { std::ofstream(package + "/mine") << "mine"; }, false},
        {"others may write", [&] { chmod(package.c_str(), 0777); }, false},
        {"a stranger's", [&] { ASSERT_EQ(chown(mark.c_str(), 1, 1), 0); }, false},
        {"a link",
         [&] {
             std::filesystem::rename(mark, folder.at("mark"));
             std::filesystem::create_symlink(folder.at("mark"), mark);
         },
         false},
        {"no mark", [&] { std::filesystem::remove(mark); }, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (std::string_view(row.name) == "a stranger's" && geteuid() != 0) {
            continue;
        }
        folder.write(std::filesystem::path(mark).lexically_relative(folder.path()).string(), "");
        row.prepare();
        const auto before = *FileManager::namesInFolder(package);
        const auto builder = Builder::builderForVideo(metadata, video, "Main");
        builder->run();
        EXPECT_EQ(builder->packagePath() == package, row.isTakenOver) << builder->description();
        EXPECT_EQ(faultOf(builder->packagePath()), "");
        EXPECT_EQ(builder->md5(), md5Of("video"));
        EXPECT_TRUE(row.isTakenOver || *FileManager::namesInFolder(package) == before);
        std::filesystem::remove_all(builder->packagePath());
        std::filesystem::remove_all(package);
    }
    // One that is still being made.
    const auto first = Builder::builderForVideo(metadata, video, "Main");
    const auto second = Builder::builderForVideo(metadata, video, "Main");
    const auto observation =
        whenCopying(*first, false, [&] { std::thread([&] { second->run(); }).join(); });
    first->run();
    EXPECT_EQ(first->packagePath(), package);
    EXPECT_NE(second->packagePath(), package);
    EXPECT_EQ(faultOf(first->packagePath()) + faultOf(second->packagePath()), "");
}

TEST(VeltoVideoPackageBuilderWorker, KnowsOfEachFolderThatItMadeWithFewDescriptors) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "The sanitizer's check of object types needs a descriptor.";
#endif
    const TemporaryDirectory folder;
    const std::string video = folder.write("movie.mov", "video");
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const int lowest = velto::FileDescriptor(open("/dev/null", O_RDONLY)).number();
    bool isDone = false;
    for (int spare = 0; spare < 16 && !isDone; ++spare) {
        SCOPED_TRACE(spare);
        const auto builder = Builder::builderForVideo(
            std::make_shared<VeltoGivenVideoMetadata>("Film", "P", "V"), video, "Main");
        const rlimit few{static_cast<rlim_t>(lowest + spare), before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        builder->run();
        setrlimit(RLIMIT_NOFILE, &before);
        isDone = !builder->hasErrors();
        EXPECT_FALSE(!isDone && builder->discard());
        EXPECT_EQ(FileManager::namesInFolder(folder.path().string())->size(), isDone ? 2U : 1U);
    }
    EXPECT_TRUE(isDone);
}

/// A disk too small for the copy, and one too small for the metadata alone.
TEST(VeltoVideoPackageBuilderWorker, LeavesNoMetadataOnAFullDisk) {
    if (velto::testing::ranOnSmallDisk(4)) {
        return;
    }
    const std::filesystem::path disk = velto::testing::smallDisk();
    const std::string video = disk / "movie.mov";
    for (const bool copyFits : {false, true}) {
        SCOPED_TRACE(copyFits);
        std::ofstream(video) << std::string((copyFits ? 1 : 3) * mebibyte, 'x');
        if (copyFits) {
            // Fills the disk but for what the copy needs.
            std::ofstream filler(disk / "filler");
            const std::string block(4096, 'f');
            std::uint64_t room = std::filesystem::space(disk).available;
            for (; room > mebibyte; room -= block.size()) {
                filler << block;
            }
            ASSERT_TRUE(filler.flush());
        }
        const auto builder = builderFor(video);
        builder->run();
        ASSERT_EQ(builder->errors().size(), 1U);
        const Error error = builder->errors().front();
        const Error reason = copyFits ? error : error.underlyingError();
        EXPECT_THAT(reason, IsError(velto::POSIXErrorDomain, ENOSPC));
        EXPECT_NE(reason.localizedDescription().find(builder->createdDirectory()),
                  std::string::npos)
            << reason.localizedDescription();
        EXPECT_EQ(error.localizedDescription() == "Failed to copy the file (err=28).", !copyFits);
        EXPECT_EQ(builder->packagePath(), "");
        EXPECT_THAT(*FileManager::namesInFolder(builder->createdDirectory()),
                    ::testing::ElementsAre("movie.mov"));
        ASSERT_TRUE(FileManager::remove(builder->createdDirectory()));
    }
}

/// A build that is killed at any moment leaves a whole package or one without metadata, and does
/// not stand in the way of the next; one that is marked takes over what is not whole (but for a
/// folder without its mark yet). VELTO_TEST_KILLS asks for more kills.
TEST(VeltoVideoPackageBuilderWorker, SurvivesBeingKilledAtAnyMoment) {
    std::mt19937_64 random(velto::testing::randomSeed());
    const char* const asked = std::getenv("VELTO_TEST_KILLS");
    const auto kills = asked != nullptr ? std::strtol(asked, nullptr, 10) : 200;
    const TemporaryDirectory folder;
    const std::string video = folder.write("movie.mov", std::string(2 * mebibyte, 'x'));
    const auto md5 = velto::make<MZMD5Worker>(video);
    md5->run();
    const auto metadata = std::make_shared<VeltoGivenVideoMetadata>("Film", "P", "V");
    const std::string package = folder.at("movie-UntitledVeltoStoreDelivery.velmp");
    unsigned whole = 0;
    unsigned partial = 0;
    for (std::int64_t round = 0; round < kills; ++round) {
        const bool isMarked = round % 2 == 0;
        const auto builder = isMarked ? Builder::builderForVideo(metadata, video, "Main")
                                      : Builder::initWithMetadataWorker(metadata, md5, "Main");
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            builder->run();
            _exit(0);
        }
        const auto end =
            std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 8000);
        while (std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        kill(child, SIGKILL);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        const bool isBegun = FileManager::exists(package);
        const bool isWhole = FileManager::exists(package + "/metadata.xml");
        if (isWhole) {
            ++whole;
            ASSERT_EQ(faultOf(package), "");
        } else if (isBegun) {
            ++partial;
        }
        const bool isTaken =
            isWhole || (isBegun && (!isMarked || FileManager::namesInFolder(package)->empty()));
        builder->run();
        ASSERT_FALSE(builder->hasErrors()) << builder->description();
        ASSERT_EQ(builder->packagePath() == package, !isTaken);
        ASSERT_EQ(faultOf(builder->packagePath()), "");
        ASSERT_EQ(FileManager::namesInFolder(builder->packagePath())->size(), 2U);
        ASSERT_TRUE(FileManager::remove(builder->packagePath()));
        ASSERT_TRUE(!isTaken || FileManager::remove(package));
    }
    std::cout << whole << " whole, " << partial << " partial of " << kills << '\n';
}

}  // namespace
