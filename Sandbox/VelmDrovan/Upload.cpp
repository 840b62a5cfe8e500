#include <VelmDrovan/Upload.h>

#include <VelmDrovan/Documents.h>
#include <VelmDrovan/Pace.h>
#include <VelmDrovan/Package.h>
#include <VelmDrovan/Store.h>

#include <algorithm>
#include <cstdlib>

namespace sandbox {
namespace {

class DigestReport : public CheckObserver {
public:
    explicit DigestReport(const Console& console) : console_(console) {}
    void startedDigest(const DataFile& file) override {
        console_.line("Checking the MD5 checksum of " + file.name);
    }
    void endedDigest(const DataFile&) override { console_.line("Done checking the md5 checksum."); }

private:
    const Console& console_;
};

/// What goes into the store, metadata.xml last: it is there once all of the package is.
std::vector<DataFile> filesToSend(const Package& package) {
    std::vector<DataFile> files = package.files;
    DataFile metadata{"metadata.xml", 0, {}, {}};
    const std::string path = package.pathOf(metadata);
    if (openRegular(path, metadata.stamp))
        metadata.md5 = md5OfFile(path).value_or("");
    metadata.size = metadata.stamp.size;
    files.push_back(std::move(metadata));
    return files;
}

/// Sends the files, in as many goes as the scenario's breaks need.
class Transfer {
public:
    Transfer(const CommandLine& line,
             const Package& package,
             std::vector<DataFile> files,
             const StoreFolder& store,
             Scenario& scenario,
             const Console& console)
        : package_(package),
          files_(std::move(files)),
          store_(store),
          scenario_(scenario),
          console_(console),
          pace_(slower(line.throttle * 125, scenario.slow)) {
        for (const auto& file : files_)
            total_ += file.size;
    }

    std::uint64_t total() const { return total_; }

    void announce() const {
        console_.line("Computing total size of files to upload");
        for (const auto& file : files_)
            console_.progress("adding file for % complete logging: " + file.name +
                              " size: " + std::to_string(file.size));
        console_.line("Setting total size of files for upload to: " + std::to_string(total_));
    }

    std::vector<DeliveredFile> run() {
        while (!sendAll())
            sent_ = 0;
        return std::move(delivered_);
    }

private:
    static std::uint64_t slower(std::uint64_t a, std::uint64_t b) {
        return a && b ? std::min(a, b) : std::max(a, b);
    }

    bool sendAll() {
        for (std::size_t index = 0; index < files_.size(); ++index) {
            const DataFile& file = files_[index];
            const bool before = index < delivered_.size();  // In an earlier go.
            if (before || scenario_.skipped.contains(file.name) || store_.holds(file)) {
                console_.line("The file named " + file.name +
                              " has been skipped because it already exists on the remote server");
                sent_ += file.size;
                if (!before)
                    delivered_.push_back({file.name, file.size, true});
            } else if (send(file)) {
                delivered_.push_back({file.name, file.size, false});
            } else {
                return false;
            }
        }
        return true;
    }

    /// False when the transfer broke off and has to start again.
    bool send(const DataFile& file) {
        std::uint64_t fileSent = 0;
        Ticker ticker;
        ticker.due();  // The first line comes with the first tenth of a second.
        std::optional<unsigned> restart;
        const bool complete = store_.receive(
            package_.pathOf(file), file, pace_.blockSize(), [&](std::uint64_t bytes) {
                pace_.passed(bytes);
                fileSent += bytes;
                sent_ += bytes;
                if (fileSent < file.size && ticker.due())
                    tell(file, fileSent);
                const double percent = 100.0 * static_cast<double>(sent_) /
                                       static_cast<double>(std::max<std::uint64_t>(total_, 1));
                scenario_.reach(Moment::Transfer, console_, percent);
                restart = scenario_.takeRestart(percent);
                return !restart;
            });
        if (complete) {
            tell(file, fileSent);
            return true;
        }
        console_.line("The connection to the store broke off.");
        console_.line("Scheduling automatic restart in " + std::to_string(restart.value_or(0)) +
                      " seconds");
        std::this_thread::sleep_for(std::chrono::seconds(restart.value_or(0)));
        return false;
    }

    void tell(const DataFile& file, std::uint64_t fileSent) const {
        const auto percent = file.size
                                 ? static_cast<unsigned>(100.0 * static_cast<double>(fileSent) /
                                                         static_cast<double>(file.size))
                                 : 100;
        console_.progress(file.name + " " + std::to_string(fileSent) + "/" +
                          std::to_string(file.size) + ", " + std::to_string(percent) +
                          "% completed");
    }

    const Package& package_;
    std::vector<DataFile> files_;
    const StoreFolder& store_;
    Scenario& scenario_;
    const Console& console_;
    Pace pace_;
    std::uint64_t total_ = 0;
    std::uint64_t sent_ = 0;
    std::vector<DeliveredFile> delivered_;
};

void testTransport(const CommandLine& line, const StoreFolder& store, const Console& console) {
    for (const std::string_view known : {"Signiant", "Aspera"}) {
        if (std::ranges::search(line.transport, known, [](char a, char b) {
                return (a | 0x20) == (b | 0x20);
            }).empty())
            continue;
        console.line("Performing transport diagnostic test of " + std::string(known));
        console.line("Transport diagnostic test done: the store has room for " +
                     std::to_string(store.freeBytes()) + " bytes.");
    }
}

}  // namespace

void upload(const CommandLine& line,
            const Identity& identity,
            Scenario& scenario,
            const Console& console) {
    console.line("Performing authentication of package " + line.package);
    Package package = readPackage(line.package);
    requireProvider(identity, package.provider);
    for (const auto& warning : package.warnings)
        console.warning(warning);
    DigestReport digests(console);
    if (auto faults = checkFiles(package, line.checksums, Pace(0).blockSize(), digests);
        !faults.empty())
        throw Failure(std::move(faults));
    scenario.reach(Moment::Checked, console);

    const StoreFolder store(package);
    testTransport(line, store, console);
    Transfer transfer(line, package, filesToSend(package), store, scenario, console);
    transfer.announce();
    if (store.freeBytes() < transfer.total())
        throw Failure(StoreFull, "The store has no room for the package",
                      std::to_string(transfer.total()) + " bytes are needed");
    Delivery delivery{store.name(), package.provider, package.vendorID, transfer.run()};
    std::set<std::string> names;
    for (const auto& file : delivery.files)
        names.insert(file.name);
    store.keepOnly(names);

    console.line("Performing uploadDone notification to Zarnet for package " + store.name());
    console.error("JSON-START>>" + deliveryText(delivery) + "<<JSON-END");
    console.error("NewPackageName = " + store.name());
    console.result("The package was delivered: " + store.name());
}

}  // namespace sandbox
