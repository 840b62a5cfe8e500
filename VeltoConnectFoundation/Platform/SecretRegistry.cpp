#include <VeltoConnectFoundation/Platform/SecretRegistry.h>

#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/Secret.h>
#include <VeltoConnectFoundation/Platform/SecretScanner.h>

#include <algorithm>
#include <list>
#include <memory>
#include <utility>
#include <vector>

namespace velto {

namespace {

/// Never destroyed: a thread that still runs at the end may log.
class Registry {
public:
    static Registry& shared() {
        static auto* const instance = new Registry;
        return *instance;
    }

    std::size_t add(std::string_view secret) {
        const Guard guard(lock_);
        secrets_.emplace_back(++lastTicket_, secret);
        renewScanner();
        return lastTicket_;
    }

    void remove(std::size_t ticket) {
        const Guard guard(lock_);
        const auto found = std::ranges::find(secrets_, ticket, &Entry::first);
        wipe(found->second);
        secrets_.erase(found);
        renewScanner();
    }

    /// Null without a secret.
    std::shared_ptr<const SecretScanner> scanner() {
        const Guard guard(lock_);
        return scanner_;
    }

private:
    using Entry = std::pair<std::size_t, std::string>;

    void renewScanner() VELTO_REQUIRES(lock_) {
        std::vector<std::string> all;
        all.reserve(secrets_.size());
        for (const Entry& entry : secrets_) {
            if (std::ranges::find(all, entry.second) == all.end()) {
                all.push_back(entry.second);
            }
        }
        scanner_ = all.empty() ? nullptr : std::make_shared<const SecretScanner>(all);
        for (std::string& secret : all) {
            wipe(secret);
        }
    }

    Lock lock_;
    std::size_t lastTicket_ VELTO_GUARDED_BY(lock_) = 0;
    std::list<Entry> secrets_ VELTO_GUARDED_BY(lock_);  // where nothing moves and leaves a copy
    std::shared_ptr<const SecretScanner> scanner_ VELTO_GUARDED_BY(lock_);
};

}  // namespace

RegisteredSecret::RegisteredSecret(std::string_view secret)
    : ticket_(secret.empty() ? 0 : Registry::shared().add(secret)) {
}

RegisteredSecret::RegisteredSecret(RegisteredSecret&& other) noexcept
    : ticket_(std::exchange(other.ticket_, 0)) {
}

RegisteredSecret& RegisteredSecret::operator=(RegisteredSecret&& other) noexcept {
    std::swap(ticket_, other.ticket_);
    return *this;
}

RegisteredSecret::~RegisteredSecret() {
    if (ticket_ != 0) {
        Registry::shared().remove(ticket_);
    }
}

std::string hidingSecrets(std::string given) {
    const std::shared_ptr<const SecretScanner> scanner = Registry::shared().scanner();
    if (scanner == nullptr) {
        return given;
    }
    const std::string_view text = given;
    std::string result;
    std::size_t done = 0;
    std::size_t mask = text.find(hiddenValue);
    const std::vector<SecretScanner::Place> places = scanner->placesOfSecrets(text);
    if (places.empty()) {
        return given;
    }
    for (const auto& [begin, end] : places) {
        while (mask != std::string_view::npos && mask + hiddenValue.size() < end) {
            mask = text.find(hiddenValue, mask + hiddenValue.size());
        }
        if (mask <= begin) {
            continue;  // a short secret, in what stands for another one already
        }
        result.append(text.substr(done, begin - done)).append(hiddenValue);
        done = end;
    }
    return result.append(text.substr(done));
}

}  // namespace velto
