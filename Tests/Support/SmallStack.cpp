#include <Tests/Support/SmallStack.h>

#include <stdexcept>

#include <pthread.h>

namespace velto::testing {

void onSmallStack(const std::function<void()>& work) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{256} << 10);
    pthread_t thread;
    const auto run = [](void* argument) -> void* {
        (*static_cast<const std::function<void()>*>(argument))();
        return nullptr;
    };
    auto copy = work;
    const int result = pthread_create(&thread, &attributes, run, &copy);
    pthread_attr_destroy(&attributes);
    if (result != 0) {
        throw std::runtime_error("no thread with a small stack");
    }
    pthread_join(thread, nullptr);
}

}  // namespace velto::testing
