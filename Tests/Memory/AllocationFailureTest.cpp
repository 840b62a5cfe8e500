#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>
#include <VeltoConnectFoundation/Codecs/MZBase64EncodingUtilities.h>
#include <VeltoConnectFoundation/Codecs/MZBufferedOutputStream.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>
#include <VeltoConnectFoundation/Codecs/MZJSONDeserializer.h>
#include <VeltoConnectFoundation/Codecs/MZJSONSerializer.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/Codecs/MZMemoryOutputStream.h>
#include <VeltoConnectFoundation/Files/MZFileCopyMD5Operation.h>
#include <VeltoConnectFoundation/Files/MZMD5Worker.h>
#include <VeltoConnectFoundation/Files/VeltoVideoMetadataWorker.h>
#include <VeltoConnectFoundation/Files/VeltoVideoPackageBuilderWorker.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Platform/Process.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <Tests/Memory/FailingAllocations.h>
#include <Tests/Support/ChunkedStream.h>
#include <Tests/Support/FreshProcess.h>
#include <Tests/Support/Paths.h>
#include <Tests/Support/ProcessTable.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <filesystem>
#include <functional>
#include <iostream>
#include <new>
#include <set>

namespace {

using velto::Data;
using velto::Error;
using velto::FileManager;
using velto::TextEncoding;
using velto::Value;
using velto::testing::contentsOfFile;
using velto::testing::Failing;
using velto::testing::FailingAllocations;
using velto::testing::TemporaryDirectory;

using Text = std::optional<std::string>;

struct Operation {
    const char* name;
    /// A text that tells whether it went well, or none and an error.
    std::function<Text(Error&)> run;
    /// What it has to say where memory lacks: each is seen, and nothing else.
    std::set<std::string> stated = {};
    /// Sees what was left behind, and removes it.
    std::function<void()> after = [] {};
};

struct Outcome {
    /// What came of it: a text, an error's description or an exception's reason; none where it was
    /// std::bad_alloc.
    Text said;
    bool isText = false;
};

std::pair<Outcome, bool> attempt(const Operation& operation, std::size_t number, Failing failing) {
    Text text;
    Error error;
    Outcome outcome;
    bool hasFailed = false;
    {
        const FailingAllocations failures(number, failing);
        try {
            text = operation.run(error);
            failures.stop();
            outcome = {text ? *text : error.localizedDescription(), text.has_value()};
            EXPECT_TRUE(text || error) << "nothing, and no error";
        } catch (const std::bad_alloc&) {
            failures.stop();
        } catch (const velto::Exception& exception) {
            failures.stop();
            outcome.said = exception.reason();
        }
        hasFailed = failures.hasFailed();
    }
    operation.after();
    return {outcome, hasFailed};
}

/// Whichever allocation it is that fails, alone or with all after it.
void expectToSurvive(const Operation& operation) {
    SCOPED_TRACE(operation.name);
    const Outcome whole = attempt(operation, 0, Failing::once).first;
    ASSERT_TRUE(whole.said);
    std::set<std::string> seen;
    std::size_t count = 0;
    for (const Failing failing : {Failing::once, Failing::fromThenOn}) {
        for (std::size_t number = 1;; ++number) {
            const auto [outcome, hasFailed] = attempt(operation, number, failing);
            const Outcome again = attempt(operation, 0, Failing::once).first;
            ASSERT_EQ(again.said, whole.said) << "after the failure of allocation " << number;
            if (!hasFailed) {
                ASSERT_EQ(outcome.said, whole.said);
                ASSERT_GT(number, 1U) << "it allocates nothing";
                count = number - 1;
                break;
            }
            if (outcome.said && outcome.said != whole.said) {
                ASSERT_FALSE(outcome.isText)
                    << "allocation " << number << " made it another: " << *outcome.said;
                seen.insert(*outcome.said);
            }
        }
    }
    std::cout << operation.name << ": " << count << " allocations\n";
    EXPECT_EQ(seen, operation.stated);
}

/// Of every kind, long enough that blocks grow, and with what the readers treat each for itself.
std::string document() {
    std::string text =
        R"({"plain":"a text that is longer than a handle","escaped":"\u00e9\n\uD83D\uDE00 and more of it",)"
        R"("beyond":"ünïcödé 電影 😀","numbers":[0.1,-12345.678e-9,1e300,7],"plain":[true,false,null,{},[]],)"
        R"("deep":)";
    text += std::string(300, '[') + std::string(300, ']') + ",\"many\":[";
    for (int i = 0; i < 400; ++i) {
        text += R"({"name":"an entry with a number of its own","value":1.25},)";
    }
    return text + "1]}";
}

std::string bytesOf(std::size_t count) {
    std::string bytes(count, '\0');
    unsigned state = 1;
    for (char& byte : bytes) {
        state = state * 1103515245 + 12345;
        byte = static_cast<char>(state >> 16);
    }
    return bytes;
}

Text textOf(const std::optional<Data>& data) {
    return data ? Text(data->view()) : std::nullopt;
}

/// What tells the tree from another, or none.
Text textOf(const Value& value) {
    FailingAllocations::stop();  // A hash is no part of what is tried.
    return value ? Text(std::to_string(value.hash())) : std::nullopt;
}

TEST(AllocationFailure, OfTheJSONReaderAndWriter) {
    if (velto::testing::ranInFreshProcess()) {
        return;
    }
    const std::string text = document();
    const Data data{std::string_view(text)};
    const auto encoded = velto::encodeText(text, TextEncoding::utf16LittleEndian);
    ASSERT_TRUE(encoded);
    const Data wide{std::string_view(*encoded)};
    const Data late(text.substr(0, text.size() - 2) + "?]}");
    const Value tree = MZJSONDeserializer::deserializer()->deserializeJSONData(data);
    ASSERT_TRUE(tree);
    const auto read = [](const Data& document) {
        return [&document](Error& error) {
            return textOf(
                MZJSONDeserializer::deserializer()->deserializeJSONData(document, &error));
        };
    };
    const auto write = [&](TextEncoding encoding) {
        return [&tree, encoding](Error& error) {
            MZJSONSerializer serializer;
            serializer.setEncoding(encoding);
            return textOf(serializer.serializeToJSON(tree, &error));
        };
    };
    const std::string init = "Invalid parameter not satisfying: _readBuffer";
    const std::string grow = "Invalid parameter not satisfying: self->_readBuffer";
    const std::string queue = "Invalid parameter not satisfying: queue";
    const std::string room = "Unable to allocate additional memory for output stream.";
    const Operation operations[] = {
        {"read data", read(data), {init}},
        {"read UTF-16", read(wide), {init}},
        {"read a malformed document", read(late), {init, queue}},
        {"read a stream",
         [&](Error& error) {
             return textOf(MZJSONDeserializer::deserializer()->deserializeJSONStream(
                 std::make_shared<velto::testing::ChunkedInputStream>(
                     text, velto::testing::Chunks{.sizes = {3, 5000}}),
                 &error));
         },
         {init}},
        {"read by characters",
         [&](Error& error) {
             const auto stream = velto::InputStream::withData(
                 Data("[\"" + std::string(5000, 'x') + "\\u00e9\",[[1.5e3]],{\"key\":\"😀\"}]"));
             stream->open();
             MZStringStreamReader reader(TextEncoding::utf8, stream);
             return textOf(
                 MZJSONDeserializer::deserializer()->deserializeJSONStringReader(reader, &error));
         },
         {init, grow, queue}},
        {"write", write(TextEncoding::utf8), {"Invalid parameter not satisfying: _memory", room}},
        {"write UTF-16",
         write(TextEncoding::utf16BigEndian),
         {"Invalid parameter not satisfying: _memory", room}},
        {"write to a stream",
         [&](Error& error) {
             const auto stream = std::make_shared<velto::testing::ChunkedOutputStream>();
             MZBufferedOutputStream buffered(stream, 512);
             buffered.open();
             error = MZJSONSerializer::serializer().serializeToJSON(tree, buffered);
             buffered.close();
             return error ? std::nullopt : Text(stream->written());
         },
         {queue}},
        {"change what was read",
         [&](Error&) {
             Value copy = tree;
             velto::Dictionary dictionary = copy.dictionary();
             dictionary.set("another", copy);
             velto::Array array;
             for (int i = 0; i < 100; ++i) {
                 velto::Array outer;
                 outer.append(Value(std::move(array)));
                 array = std::move(outer);
             }
             dictionary.set("deep", array);
             return textOf(Value(dictionary));
         }},
    };
    for (const Operation& operation : operations) {
        expectToSurvive(operation);
    }
}

TEST(AllocationFailure, OfTheBinaryCodecs) {
    if (velto::testing::ranInFreshProcess()) {
        return;
    }
    const TemporaryDirectory folder;
    const std::string bytes = bytesOf(100'000);
    const Data data{std::string_view(bytes)};
    const std::string file = folder.write("file", bytes);
    const auto base64 = MZBase64Coder::coder().encodedBase64ValueWithData(data);
    const auto gzipped = MZCompressionUtilities::defaultUtilities().gzipDeflate(data);
    const auto content = MZBase64EncodingUtilities::defaultUtilities().encodedData(data);
    ASSERT_TRUE(base64 && gzipped && content);
    velto::Dictionary wrong = *content;
    wrong.set(MZContentChecksumKey, "wrong");
    const auto decode = [](const velto::Dictionary& dictionary) {
        return [&dictionary](Error& error) {
            return textOf(
                MZBase64EncodingUtilities::defaultUtilities().decodedData(dictionary, &error));
        };
    };
    const auto textOfContent = [](const std::optional<velto::Dictionary>& dictionary) {
        return dictionary ? textOf(Value(*dictionary)) : std::nullopt;
    };
    const std::string zlib = "Unable to perform compression action: insufficient memory (-4)";
    const std::string memory = "Unable to perform compression action: General memory error (-4)";
    const Operation operations[] = {
        {"encode base64",
         [&](Error& error) {
             return textOf(MZBase64Coder::coder().encodedBase64ValueWithData(data, &error));
         }},
        {"decode base64",
         [&](Error& error) {
             return textOf(MZBase64Coder::coder().decodedValueWithBase64Data(*base64, &error));
         }},
        {"decode malformed base64",
         [&](Error& error) {
             return textOf(MZBase64Coder::coder().decodedValueWithBase64Data("AAAA ", &error));
         }},
        {"gzip",
         [&](Error& error) {
             return textOf(MZCompressionUtilities::defaultUtilities().gzipDeflate(data, &error));
         },
         {zlib, memory}},
        {"gunzip",
         [&](Error& error) {
             return textOf(
                 MZCompressionUtilities::defaultUtilities().gzipInflate(*gzipped, &error));
         },
         {memory}},
        {"gunzip other bytes",
         [&](Error& error) {
             return textOf(MZCompressionUtilities::defaultUtilities().gzipInflate(data, &error));
         },
         {memory}},
        {"encode content",
         [&](Error& error) {
             return textOfContent(
                 MZBase64EncodingUtilities::defaultUtilities().encodedData(data, &error));
         },
         {zlib, memory}},
        {"encode a file",
         [&](Error& error) {
             return textOfContent(
                 MZBase64EncodingUtilities::defaultUtilities().encodedFileAtPath(file, &error));
         },
         {zlib, memory}},
        {"decode content", decode(*content), {memory}},
        {"decode content with a wrong checksum", decode(wrong), {memory}},
        {"MD5 of data", [&](Error& error) { return MZMD5Operation::md5ForData(data, &error); }, {}},
        {"MD5 of a string",
         [&](Error& error) {
             return MZMD5Operation::md5ForString("été, a longer text", TextEncoding::utf16, &error);
         },
         {}},
        {"MD5 of a stream",
         [&](Error& error) {
             const auto stream = velto::InputStream::withData(data);
             stream->open();
             return MZMD5Operation::md5ForStream(stream.get(), &error);
         },
         {}},
        {"MD5 of a file",
         [&](Error& error) { return MZMD5Operation::md5ForFilename(file, &error); },
         {}},
        {"fill a byte queue",
         [&](Error&) {
             MZSimpleCByteQueue* const queue = MZByteQueueCreate(100);
             MZByteQueueAppendBytes(queue, data.bytes(), 60);
             const std::size_t length = queue->length;
             MZByteQueueRelease(queue);
             return Text(std::to_string(length));
         },
         {"Invalid parameter not satisfying: queue"}},
        {"read and push back",
         [&](Error&) {
             MZStringStreamReader reader(
                 TextEncoding::utf8,
                 std::make_shared<velto::testing::ChunkedInputStream>(std::string(9000, 'x')));
             std::string text;
             char16_t character = 0;
             while (text.size() < 9000 && reader.getNextCharacter(character)) {
                 text.push_back(static_cast<char>(character));
                 if (text.size() == 4000) {
                     reader.pushBytes(data.bytes(), data.length());
                     for (std::size_t i = 0; i < 4000; ++i) {
                         reader.pushCharacter(u'é');
                     }
                 }
             }
             return Text(text);
         },
         {"Invalid parameter not satisfying: queue"}},
    };
    for (const Operation& operation : operations) {
        expectToSurvive(operation);
    }
}

/// No metadata beside a part of a file, and nothing in a package but what belongs there.
TEST(AllocationFailure, OfCopiesAndPackages) {
    if (velto::testing::ranInFreshProcess()) {
        return;
    }
    const TemporaryDirectory folder;
    const std::string bytes = bytesOf(1'000'000);
    const std::string video = folder.write("movie.mov", bytes);
    // Not every file system holds attributes.
    setxattr(video.c_str(), "user.note", "a note", 6, 0);
    const std::string package = folder.at("movie-UntitledVeltoStoreDelivery.velmp");
    const std::string copied = folder.at("copy");
    const auto metadata = std::make_shared<VeltoGivenVideoMetadata>("Film", "Studio", "FILM_1");
    const auto md5 = velto::make<MZMD5Worker>(video);
    md5->run();
    ASSERT_TRUE(md5->md5());
    const auto removeCopy = [&] { std::filesystem::remove(copied); };
    const std::string state = "Failed to create the copy_file_state.";
    const std::string memory = "Failed to copy the file (err=12).";
    const std::string directory =
        "Unable to create directory: " + package + ": Cannot allocate memory";
    using Builder = VeltoVideoPackageBuilderWorker;
    const auto builder = [&](bool isMarked) {
        return isMarked ? Builder::builderForVideo(metadata, video, "Main")
                        : Builder::initWithMetadataWorker(metadata, md5, "Main");
    };
    const auto packageOf = [](Builder& made, Error& error) {
        made.run();
        if (made.hasErrors()) {
            error = made.errors().front();
            return Text();
        }
        return Text(made.packagePath());
    };
    const auto removePackage = [&] {
        if (!FileManager::exists(package)) {
            return;
        }
        const auto names = FileManager::namesInFolder(package);
        ASSERT_TRUE(names);
        for (const std::string& name : *names) {
            EXPECT_TRUE(name == "movie.mov" || name == "metadata.xml" ||
                        name == ".velto-unfinished")
                << name;
        }
        if (FileManager::exists(package + "/metadata.xml")) {
            EXPECT_FALSE(FileManager::exists(package + "/.velto-unfinished"));
            EXPECT_TRUE(contentsOfFile(package + "/movie.mov") == bytes);
            EXPECT_TRUE(contentsOfFile(package + "/metadata.xml").ends_with("</package>\n"));
        }
        std::filesystem::remove_all(package);
    };
    const Operation operations[] = {
        {"copy",
         [&](Error& error) {
             error = MZFileCopyOperation::initWithFile(video, error)->copyToPath(copied);
             return error ? std::nullopt : Text("copied");
         },
         {state, memory},
         removeCopy},
        {"copy and digest",
         [&](Error& error) {
             const auto operation = MZFileCopyMD5Operation::initWithFile(video, error);
             error = operation->copyToPath(copied);
             return operation->md5();
         },
         {state, memory},
         removeCopy},
        {"build a package",
         [&](Error& error) { return packageOf(*builder(false), error); },
         {state, memory, directory},
         removePackage},
        {"build a marked package",
         [&](Error& error) { return packageOf(*builder(true), error); },
         {state, memory, directory},
         removePackage},
    };
    for (const Operation& operation : operations) {
        expectToSurvive(operation);
    }
}

class Receiver final : public velto::ProcessDelegate {
public:
    void processDidReport(velto::ProcessStream, const velto::ChannelReport& report) override {
        output += report.block.view();
    }
    void processDidTerminate(const velto::ProcessExit& exit) override { status = exit.status; }
    std::string output;
    std::optional<int> status;
};

/// What is not launched leaves no child; what is launched is heard to its end.
TEST(AllocationFailure, OfALaunch) {
    if (velto::testing::ranInFreshProcess()) {
        return;
    }
    velto::MainQueue::runOnOwnThread();
    velto::ProcessLaunch launch;
    launch.path = velto::testing::childProgram("ShowsItself");
    launch.environment = velto::Dictionary{{"NAME", "a text that is longer than a handle"}};
    launch.arguments = {"an argument that is longer than a handle"};
    expectToSurvive(
        {"launch a child",
         [&](Error& error) {
             const auto process = velto::Process::make(&error);
             const auto receiver = std::make_shared<Receiver>();
             if (process == nullptr ||
                 !process->launch(launch, velto::RunLoop::current(), receiver, &error)) {
                 return Text();
             }
             FailingAllocations::stop();
             while (!receiver->status) {
                 velto::RunLoop::current()->run(velto::Seconds(60),
                                                [&] { return receiver->status.has_value(); });
             }
             return Text(receiver->output);
         },
         {velto::format("The program “%@” could not be started.", launch.path)},
         [] { EXPECT_FALSE(velto::testing::hasChildren()); }});
}

}  // namespace
