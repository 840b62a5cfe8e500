#include <VeltoConnectFoundation/Platform/Queue.h>

#include <Tests/Support/FreshProcess.h>

#include <gmock/gmock.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    if (!velto::testing::isFreshProcess()) {
        velto::MainQueue::runOnOwnThread();
    }
    return RUN_ALL_TESTS();
}
