#include <VelmDrovan/Verify.h>

#include <VelmDrovan/Documents.h>
#include <VelmDrovan/Pace.h>
#include <VelmDrovan/Package.h>

namespace sandbox {
namespace {

/// Tells of the steps as "JSON:" objects, or in words when the driver did not ask for JSON. The
/// index runs over the package's bytes, so that one scale serves the whole run.
class ProgressReport : public CheckObserver {
public:
    ProgressReport(const CommandLine& line, const Scenario& scenario, const Console& console)
        : console_(console),
          json_(line.verifyFormat == "json"),
          withCount_(scenario.verifyCount),
          pace_(scenario.slow) {}

    void setTotal(std::uint64_t total) { total_ = total; }
    std::size_t blockSize() const { return pace_.blockSize(); }

    void tell(std::string_view description, std::string_view asset = {}) const {
        if (json_) {
            VerifyProgress progress{description, asset, std::nullopt, done_};
            if (withCount_ && total_)
                progress.count = *total_;
            console_.line("JSON: " + verifyProgressText(progress));
        } else {
            console_.line(std::string(description) + (asset.empty() ? "" : " ") +
                          std::string(asset));
        }
    }

    void advanced(const DataFile& file, std::uint64_t bytes) override {
        pace_.passed(bytes);
        done_ += bytes;
        if (ticker_.due())
            tell("Validating assets", file.name);
    }

private:
    const Console& console_;
    bool json_;
    bool withCount_;
    Pace pace_;
    Ticker ticker_;
    std::optional<std::uint64_t> total_;
    std::uint64_t done_ = 0;
};

}  // namespace

void verify(const CommandLine& line,
            const Identity& identity,
            Scenario& scenario,
            const Console& console) {
    ProgressReport report(line, scenario, console);
    try {
        console.line("Performing authentication of package " + line.package);
        report.tell("Analyzing metadata");
        Package package = readPackage(line.package);
        requireProvider(identity, package.provider);
        for (const auto& warning : package.warnings)
            console.warning(warning);
        report.setTotal(package.totalSize());
        for (const auto& file : package.files)
            report.tell("Adding asset to analyze:", file.name);
        console.line("Starting media analysis of assets");
        report.tell("Validating assets");
        auto faults = checkFiles(package, line.checksums, report.blockSize(), report);
        if (!faults.empty())
            throw Failure(std::move(faults));
        scenario.reach(Moment::Checked, console);
        report.tell("Validation completed.");
        console.result("The package was verified: " + package.name);
    } catch (const Failure&) {
        report.tell("Validation failed.");
        throw;
    }
}

}  // namespace sandbox
