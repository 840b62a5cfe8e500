// A program with a GLib main loop, as every GTK program has one: progress and end arrive on its
// main thread, and nothing of it waits.
//
//     g++ -std=c++20 GLibProgram.cpp $(pkg-config --cflags --libs VeltoConnectFoundation glib-2.0)
//     ./a.out Film.velmp
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanUploadWorker.h>
#include <VeltoConnectFoundation/Files/VeltoPackageSource.h>
#include <VeltoConnectFoundation/Platform/NotificationCenter.h>
#include <VeltoConnectFoundation/Platform/Queue.h>
#include <VeltoConnectFoundation/Work/MZWorkSeriesManager.h>

#include <glib.h>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " PACKAGE\n";
        return 2;
    }
    auto source = std::make_shared<VeltoPackageSource>();
    source->setPackagePath(argv[1]);

    auto worker = velto::make<VeltoDrovanUploadWorker>(source, /* verify only */ true);
    // The main queue lives as long as the program does: nobody owns it.
    worker->setCallbackQueue({std::shared_ptr<void>(), &velto::MainQueue::shared()});
    worker->setStatusMessageCallback(
        [](const std::string& message) { std::cout << message << std::endl; });
    worker->setPercentCompleteCallback(
        [](double percent) { std::cout << static_cast<int>(percent) << "%" << std::endl; });

    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    auto series = MZWorkSeries::seriesWithWork(worker);
    const auto completed = velto::NotificationCenter::shared().observe(
        MZWorkSeriesCompletedNotification, series.get(),
        [loop](const velto::Notification&) { g_main_loop_quit(loop); });
    MZWorkSeriesManager::defaultManager()->submitWork(series);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);

    // That the tool ended well does not say that it did the work.
    const char* const end = worker->deliveryConfirmed() ? "verified" : "not confirmed";
    std::cout << series->errorMessage().value_or(end) << '\n';
    return worker->deliveryConfirmed() ? 0 : 1;
}
