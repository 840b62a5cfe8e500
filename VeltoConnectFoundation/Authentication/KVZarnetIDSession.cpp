#include <VeltoConnectFoundation/Authentication/KVZarnetIDSession.h>

#include <mutex>
#include <utility>

namespace {

struct Service {
    std::mutex mutex;
    KVZarnetIDSession::Factory factory;

    static Service& shared() {
        static auto* service = new Service;
        return *service;
    }
};

}  // namespace

KVZarnetIDSession::~KVZarnetIDSession() = default;

void KVZarnetIDSession::setFactory(Factory factory) {
    Service& service = Service::shared();
    const std::lock_guard guard(service.mutex);
    std::swap(service.factory, factory);
}

std::shared_ptr<KVZarnetIDSession> KVZarnetIDSession::sessionWithServiceID(
    std::string_view serviceID) {
    Service& service = Service::shared();
    Factory factory;
    {
        const std::lock_guard guard(service.mutex);
        factory = service.factory;
    }
    return factory ? factory(serviceID) : nullptr;
}
