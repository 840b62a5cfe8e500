#pragma once

#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanUploadWorker.h>
#include <VeltoConnectFoundation/Files/VeltoPackageSource.h>
#include <VeltoConnectFoundation/Work/MZWorkSeriesManager.h>

#include <Tests/Support/Paths.h>
#include <Tests/Support/ScopedUserDefaults.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>

namespace velto::testing {

/// A variable of our own environment, for one scope.
class ScopedEnvironment {
public:
    ScopedEnvironment(std::string name, const std::string& value) : name_(std::move(name)) {
        ::setenv(name_.c_str(), value.c_str(), 1);
    }
    ~ScopedEnvironment() { ::unsetenv(name_.c_str()); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
};

/// The sandbox's tool with a store, a package and a scenario of this test's own.
class Sandbox {
public:
    Sandbox()
        : defaults_({{"VeltoDrovanExecutablePath", tool().string()},
                     {"VeltoDrovanProxyDiscoveryEnabled", false},
                     {"VeltoProcessTerminationGrace", 0.1}}),
          store_("VELM_SANDBOX_STORE", (path() / "store").string()) {
        std::ofstream(path() / "movie.mov") << std::string(100'000, 'm');
        const std::string command = "\"" + (sourceFolder() / "Sandbox/make-package").string() +
                                    "\" \"" + (path() / "movie.mov").string() +
                                    "\" DEMO_001 DemoStudio \"" + path().string() + "\" >/dev/null";
        prepared_ = std::system(command.c_str()) == 0;
    }

    bool isPrepared() const { return prepared_; }
    const std::filesystem::path& path() const { return folder_.path(); }
    std::filesystem::path package() const { return path() / "DEMO_001.velmp"; }

    /// Lines of a scenario file, until the next call.
    void play(const std::string& lines) {
        std::ofstream(path() / "scenario") << lines;
        scenario_.emplace("VELM_SANDBOX_SCENARIO", (path() / "scenario").string());
    }
    static std::filesystem::path tool() { return sandboxFolder() / "velm/bin/VelmDrovan"; }
    void setTool(const std::filesystem::path& path) {
        set("VeltoDrovanExecutablePath", path.string());
    }
    void set(std::string_view key, const Value& value) { defaults_.set(key, value); }

    std::shared_ptr<VeltoPackageSource> source() const {
        auto source = std::make_shared<VeltoPackageSource>();
        source->setStoreType(2);
        source->setUsername("demo@sandbox.invalid");
        source->setPassword("demo-password");
        source->setProviderShortName("DemoStudio");
        source->setPackagePath(package().string());
        return source;
    }

    std::shared_ptr<VeltoDrovanUploadWorker> worker(bool verifyOnly = true) const {
        return velto::make<VeltoDrovanUploadWorker>(source(), verifyOnly);
    }

private:
    TemporaryDirectory folder_;
    ScopedUserDefaults defaults_;
    ScopedEnvironment store_;
    std::optional<ScopedEnvironment> scenario_;
    bool prepared_ = false;
};

/// Runs workers as series and waits for the end of each.
class SeriesRun final : public MZWorkSeriesDelegate,
                        public std::enable_shared_from_this<SeriesRun> {
public:
    static std::shared_ptr<MZWorkSeries> start(const std::shared_ptr<MZAbstractWorker>& worker,
                                               std::shared_ptr<SeriesRun>& run) {
        run = std::make_shared<SeriesRun>();
        auto series = MZWorkSeries::seriesWithWork(worker);
        run->manager_->setDelegate(run);
        run->manager_->submitWork(series);
        return series;
    }

    void workSeriesStatusChanged(MZWorkSeries&, MZWorkItemStatus status) override {
        if (status == MZWorkItemStatus::completed) {
            const std::lock_guard guard(mutex_);
            ++ends_;
            changed_.notify_all();
        }
    }
    /// How often the series has ended by `limit`; waits for the first time.
    int waitForEnd(std::chrono::seconds limit = std::chrono::seconds(60)) {
        std::unique_lock guard(mutex_);
        changed_.wait_for(guard, limit, [&] { return ends_ > 0; });
        return ends_;
    }

private:
    std::shared_ptr<MZWorkSeriesManager> manager_ = velto::make<MZWorkSeriesManager>();
    std::mutex mutex_;
    std::condition_variable changed_;
    int ends_ = 0;
};

}  // namespace velto::testing
