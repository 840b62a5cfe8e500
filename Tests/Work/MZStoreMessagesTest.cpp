#include <VeltoConnectFoundation/Work/MZStoreMessages.h>

#include <Tests/Support/CapturedLog.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using velto::testing::CapturedLog;

using Family = std::string (*)(std::int64_t);

TEST(MZStoreMessages, TheIrregularSentencesStay) {
    struct Row {
        const char* name;
        Family family;
        std::int64_t storeType;
        const char* expected;
        const char* logged;
    };
    using Messages = MZStoreMessages;
    const char* const unknownPerforming =
        "performingOperationWithStoreMessage: unknown store type.";
    const std::vector<Row> rows{
        {"misspelt", &Messages::authenticatedWithStoreMessage, 7, "Authenticatd with the Store.",
         "authenticatedWithStoreMessage: unknown store type."},
        {"stop in the fallback only", &Messages::performOperationWithStoreMessage, 5,
         "Perform Store operation.", "performOperationWithStoreMessage: unknown store type."},
        {"no stop", &Messages::performOperationWithStoreMessage, 2, "Perform Ovalis operation",
         nullptr},
        {"0 is the Velto Store", &Messages::authenticateWithStoreMessage, 0,
         "Authenticate with the Velto Store", nullptr},
        {"below 0", &Messages::authenticateWithStoreMessage, -1, "Authenticate with the Store",
         "authenticateWithStoreMessage: unknown store type."},
        {"no storefront", &Messages::uploadingPackageToStoreMessage, 4,
         "Uploading package for notarization…", nullptr},
        {"another family's log", &Messages::uploadingPackageToStoreMessage, 5, "Uploading package…",
         unknownPerforming},
        {"preparing", &Messages::preparingToUploadPackageMessage, 4,
         "Preparing to upload package to Zarnet Services…", nullptr},
        {"preparing books", &Messages::preparingToUploadPackageMessage, 3,
         "Preparing to upload package…", nullptr},
        {"preparing unknown", &Messages::preparingToUploadPackageMessage, 9,
         "Preparing to upload package…", nullptr},
        {"requesting", &Messages::requestingUploadInstructionsMessage, 2,
         "Requesting upload instructions from the Ovalis…", nullptr},
        {"sending unknown", &Messages::sendingAnalysisMessage, -3, "Sending analysis…", nullptr},
        {"waiting", &Messages::waitingForResponseMessage, 4, "Waiting for response…", nullptr},
        {"waiting unknown", &Messages::waitingForResponseMessage, 5, "Completing upload…",
         unknownPerforming},
        {"completing", &Messages::completingUploadMessage, 0, "Completing upload…", nullptr},
        {"completing unknown", &Messages::completingUploadMessage, 5, "Completing upload…",
         unknownPerforming},
        {"failed", &Messages::failedToUploadPackageMessage, 99, "Failed to upload package.",
         nullptr},
        {"largest", &Messages::errorTalkingWithStoreMessage,
         std::numeric_limits<std::int64_t>::max(), "An error occurred talking to the Store.",
         "errorTalkingWithStoreMessage: unknown store type."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CapturedLog log;
        EXPECT_EQ(row.family(row.storeType), row.expected);
        if (row.logged == nullptr) {
            EXPECT_THAT(log.messages(), IsEmpty());
        } else {
            EXPECT_THAT(log.messages(), ElementsAre(row.logged));
        }
    }
}

TEST(MZStoreMessages, NamesAndTypesOfStorefronts) {
    struct Row {
        const char* name;
        std::int64_t storeType;
        const char* localized;
    };
    for (const Row& row : std::vector<Row>{{"Ovalis", 2, "Ovalis"},
                                           {"Pagora Store", 3, "Zarnet Books"},
                                           {"Zarnet Books", 3, "Zarnet Books"},
                                           {"Velto Store", 1, "Velto Store"},
                                           {"Zarnet Services", 4, "Zarnet Services"}}) {
        SCOPED_TRACE(row.name);
        CapturedLog log;
        EXPECT_EQ(MZStoreMessages::storeTypeFromStoreName(row.name), row.storeType);
        EXPECT_EQ(MZStoreMessages::localizedNameForStore(row.name), row.localized);
        EXPECT_EQ(MZStoreMessages::localizedNameForStoreType(row.storeType), row.localized);
        EXPECT_THAT(log.messages(), IsEmpty());
    }
    CapturedLog log;
    EXPECT_EQ(MZStoreMessages::storeTypeFromStoreName("velto store"), 0);
    EXPECT_EQ(MZStoreMessages::localizedNameForStore("velto store"), "velto store");
    EXPECT_EQ(MZStoreMessages::localizedNameForStoreType(0), "Store");
    EXPECT_EQ(MZStoreMessages::localizedNameForStoreType(-5), "Store");
    EXPECT_THAT(log.messages(),
                ElementsAre("There is no localized string for the store name ‘velto store’.",
                            "localizedNameForStoreType: unknown store type: 0.",
                            "localizedNameForStoreType: unknown store type: -5."));
}

TEST(MZStoreMessages, PropertiesFollowTheObservableStoreType) {
    EXPECT_EQ(MZStoreMessages::sharedStoreMessages(), MZStoreMessages::sharedStoreMessages());
    EXPECT_EQ(MZStoreMessages::sharedStoreMessages()->storeType(), 0);
    const auto messages = velto::make<MZStoreMessages>(MZStoreTypeOvalis);
    std::vector<std::string> seen;
    const velto::Observation observation =
        messages->observe("storeType", [&](const velto::PropertyChange&) {
            seen.push_back(messages->operationFailedWithStoreMessage());
        });
    messages->setStoreType(MZStoreTypeZarnetBooks);
    messages->setStoreType(MZStoreTypeVeltoStore);
    EXPECT_THAT(seen,
                ElementsAre("Zarnet Books operation failed.", "Velto Store operation failed."));
    EXPECT_EQ(messages->storeName(), "Velto Store");
}

}  // namespace
