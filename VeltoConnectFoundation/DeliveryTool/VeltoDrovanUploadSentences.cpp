#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanUploadSentences.h>

#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <algorithm>
#include <array>

using velto::markLocalized;

namespace {

using Sentence = VeltoDrovanUploadSentence;
using Verb = VeltoDrovanUploadVerb;

struct Row {
    Sentence sentence;
    Verb verb;
    std::array<const char*, 4> texts;  ///< Ovalis, Velto Store, Zarnet Books, Zarnet Services.
};

constexpr Row table[] = {
    {Sentence::errorOccurred,
     Verb::verify,
     {markLocalized("An error occurred verifying with the Ovalis."),
      markLocalized("An error occurred verifying with the Velto Store."),
      markLocalized("An error occurred verifying with Zarnet Books."),
      markLocalized("An error occurred verifying with Zarnet Services.")}},
    {Sentence::errorOccurred,
     Verb::upload,
     {markLocalized("An error occurred uploading to the Ovalis."),
      markLocalized("An error occurred uploading to the Velto Store."),
      markLocalized("An error occurred uploading to Zarnet Books."),
      markLocalized("An error occurred uploading to Zarnet Services.")}},
    {Sentence::errorOccurred,
     Verb::deliver,
     {markLocalized("An error occurred delivering to the Ovalis."),
      markLocalized("An error occurred delivering to the Velto Store."),
      markLocalized("An error occurred delivering to Zarnet Books."),
      markLocalized("An error occurred delivering to Zarnet Services.")}},
    {Sentence::upload,
     Verb::verify,
     {markLocalized("Verify package with the Ovalis."),
      markLocalized("Verify package with the Velto Store."),
      markLocalized("Verify package with Zarnet Books."),
      markLocalized("Verify package with Zarnet Services.")}},
    {Sentence::upload,
     Verb::upload,
     {markLocalized("Upload package to the Ovalis."),
      markLocalized("Upload package to the Velto Store."),
      markLocalized("Upload package to Zarnet Books."),
      markLocalized("Upload package to Zarnet Services.")}},
    {Sentence::upload,
     Verb::deliver,
     {markLocalized("Deliver package to the Ovalis."),
      markLocalized("Deliver package to the Velto Store."),
      markLocalized("Deliver package to Zarnet Books."),
      markLocalized("Deliver package to Zarnet Services.")}},
    {Sentence::uploading,
     Verb::verify,
     {markLocalized("Verifying package with the Ovalis…"),
      markLocalized("Verifying package with the Velto Store…"),
      markLocalized("Verifying package with Zarnet Books…"),
      markLocalized("Verifying package with Zarnet Services…")}},
    {Sentence::uploading,
     Verb::upload,
     {markLocalized("Uploading package to the Ovalis…"),
      markLocalized("Uploading package to the Velto Store…"),
      markLocalized("Uploading package to Zarnet Books…"),
      markLocalized("Uploading package to Zarnet Services…")}},
    {Sentence::uploading,
     Verb::deliver,
     {markLocalized("Delivering package to the Ovalis…"),
      markLocalized("Delivering package to the Velto Store…"),
      markLocalized("Delivering package to Zarnet Books…"),
      markLocalized("Delivering package to Zarnet Services…")}},
    {Sentence::uploaded,
     Verb::verify,
     {markLocalized("Verified package with the Ovalis."),
      markLocalized("Verified package with the Velto Store."),
      markLocalized("Verified package with Zarnet Books."),
      markLocalized("Verified package with Zarnet Services.")}},
    {Sentence::uploaded,
     Verb::upload,
     {markLocalized("Uploaded package to the Ovalis."),
      markLocalized("Uploaded package to the Velto Store."),
      markLocalized("Uploaded package to Zarnet Books."),
      markLocalized("Uploaded package to Zarnet Services.")}},
    {Sentence::uploaded,
     Verb::deliver,
     {markLocalized("Delivered package to the Ovalis."),
      markLocalized("Delivered package to the Velto Store."),
      markLocalized("Delivered package to Zarnet Books."),
      markLocalized("Delivered package to Zarnet Services.")}},
    {Sentence::errorSendingData,
     Verb::any,
     {markLocalized("There was an error sending data to the Ovalis. Scheduling restart shortly…"),
      markLocalized(
          "There was an error sending data to the Velto Store. Scheduling restart shortly…"),
      markLocalized("There was an error sending data to Zarnet Books. Scheduling restart shortly…"),
      markLocalized(
          "There was an error sending data to Zarnet Services. Scheduling restart shortly…")}},
    {Sentence::finalizingDelivery,
     Verb::any,
     {markLocalized("Finalizing delivery with the Ovalis…"),
      markLocalized("Finalizing delivery with the Velto Store…"),
      markLocalized("Finalizing delivery with Zarnet Books…"),
      markLocalized("Finalizing delivery with Zarnet Services…")}},
    {Sentence::verifyingAssets,
     Verb::any,
     {markLocalized("Verifying assets with the Ovalis…"),
      markLocalized("Verifying assets with the Velto Store…"),
      markLocalized("Verifying assets with Zarnet Books…"),
      markLocalized("Verifying assets with Zarnet Services…")}},
    {Sentence::verifyingMetadata,
     Verb::any,
     {markLocalized("Verifying metadata with the Ovalis…"),
      markLocalized("Verifying metadata with the Velto Store…"),
      markLocalized("Verifying metadata with Zarnet Books…"),
      markLocalized("Verifying metadata with Zarnet Services…")}},
};

}  // namespace

std::optional<std::string> VeltoDrovanUploadSentenceText(Sentence sentence,
                                                         Verb verb,
                                                         std::int64_t storeType) {
    // Required: store type 0 is worded like 2 here, while the catalogue words it like 1.
    static constexpr std::array<std::size_t, 5> columnOfStoreType{0, 1, 0, 2, 3};
    if (storeType < 0 || storeType >= static_cast<std::int64_t>(columnOfStoreType.size())) {
        return std::nullopt;
    }
    const Row* const row = std::ranges::find_if(table, [&](const Row& candidate) {
        return candidate.sentence == sentence &&
               (candidate.verb == verb || candidate.verb == Verb::any);
    });
    return velto::localized(row->texts[columnOfStoreType[static_cast<std::size_t>(storeType)]]);
}
