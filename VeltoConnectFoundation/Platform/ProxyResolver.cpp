#include <VeltoConnectFoundation/Platform/ProxyResolver.h>

#include <VeltoConnectFoundation/Platform/Finally.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>
#include <VeltoConnectFoundation/Platform/Thread.h>

#include <proxy.h>

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <system_error>
#include <utility>

namespace velto {

namespace {

std::optional<std::vector<std::string>> askSystem(const std::string& url) {
    static pxProxyFactory* const factory = px_proxy_factory_new();
    char** const answers =
        factory == nullptr ? nullptr : px_proxy_factory_get_proxies(factory, url.c_str());
    if (answers == nullptr) {
        return std::nullopt;
    }
    const Finally freed([&] {
        for (char** answer = answers; *answer != nullptr; ++answer) {
            std::free(*answer);
        }
        std::free(static_cast<void*>(answers));
    });
    std::vector<std::string> result;
    for (char** answer = answers; *answer != nullptr; ++answer) {
        result.emplace_back(*answer);
    }
    return result;
}

/// "host:port", "[host]:port" or without a port.
bool readPlace(std::string_view place, Proxy& proxy) {
    std::string_view port;
    if (place.starts_with('[')) {
        const std::size_t bracket = place.find(']');
        if (bracket == std::string_view::npos) {
            return false;
        }
        proxy.host = place.substr(1, bracket - 1);
        port = place.substr(bracket + 1);
    } else {
        const std::size_t colon = std::min(place.find(':'), place.size());
        proxy.host = place.substr(0, colon);
        port = place.substr(colon);
    }
    if (proxy.host.empty() || port.empty()) {
        return !proxy.host.empty();
    }
    const char* const last = port.data() + port.size();
    const auto [end, failure] = std::from_chars(port.data() + 1, last, proxy.port);
    return port.front() == ':' && failure == std::errc() && end == last;
}

}  // namespace

std::optional<Proxy> Proxy::fromText(std::string_view text) {
    const std::size_t mark = text.find("://");
    if (mark == std::string_view::npos || mark == 0) {
        return std::nullopt;
    }
    Proxy proxy;
    for (const char c : text.substr(0, mark)) {
        proxy.scheme += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    std::string_view place = text.substr(mark + 3);
    place = place.substr(0, place.find('/'));
    if (proxy.isDirect()) {
        return proxy;
    }
    if (const std::size_t at = place.rfind('@'); at != std::string_view::npos) {
        const std::string_view login = place.substr(0, at);
        const std::size_t colon = std::min(login.find(':'), login.size());
        proxy.user = login.substr(0, colon);
        proxy.password = login.substr(std::min(colon + 1, login.size()));
        place.remove_prefix(at + 1);
    }
    return readPlace(place, proxy) ? std::optional(std::move(proxy)) : std::nullopt;
}

std::string Proxy::description() const {
    std::string text = scheme + "://";
    const bool isAddress = host.find(':') != std::string::npos;
    text += isAddress ? '[' + host + ']' : host;
    return port == 0 ? text : text + ':' + std::to_string(port);
}

/// Shared by the resolver, its thread, and those who wait.
class ProxyResolver::State : public std::enable_shared_from_this<State> {
public:
    explicit State(Lookup lookup) : lookup_(std::move(lookup)) {}

    struct Question {
        std::string url;
        bool isAnswered = false;
        bool isAbandoned = false;
        std::optional<std::vector<std::string>> answer;
    };

    /// Null when the time has passed. Throws std::system_error when there is no thread to ask on.
    std::shared_ptr<const Question> ask(std::string_view url, Seconds limit) {
        auto question = std::make_shared<Question>();
        question->url = url;
        std::unique_lock lock(mutex_);
        if (!isRunning_) {
            startThread("velto-proxy", [self = shared_from_this()] { self->run(); });
            isRunning_ = true;
        }
        questions_.push_back(question);
        asked_.notify_one();
        if (!answered_.wait_for(lock, limit, [&] { return question->isAnswered; })) {
            question->isAbandoned = true;
            return nullptr;
        }
        return question;
    }

    void stop() {
        const std::lock_guard lock(mutex_);
        isStopped_ = true;
        asked_.notify_one();
    }

private:
    void run() {
        std::unique_lock lock(mutex_);
        for (;;) {
            asked_.wait(lock, [this] { return isStopped_ || !questions_.empty(); });
            if (isStopped_) {
                return;
            }
            const std::shared_ptr<Question> question = std::move(questions_.front());
            questions_.pop_front();
            if (question->isAbandoned) {
                continue;
            }
            lock.unlock();
            std::optional<std::vector<std::string>> answer;
            try {
                answer = lookup_(question->url);
            } catch (...) {
                platformLogUncaught("the proxy look-up");
            }
            lock.lock();
            question->answer = std::move(answer);
            question->isAnswered = true;
            answered_.notify_all();
        }
    }

    const Lookup lookup_;
    std::mutex mutex_;
    std::condition_variable asked_;
    std::condition_variable answered_;
    std::deque<std::shared_ptr<Question>> questions_;
    bool isRunning_ = false;
    bool isStopped_ = false;
};

ProxyResolver& ProxyResolver::shared() {
    static auto* resolver = new ProxyResolver(&askSystem);
    return *resolver;
}

ProxyResolver::ProxyResolver(Lookup lookup) : state_(std::make_shared<State>(std::move(lookup))) {
}

ProxyResolver::~ProxyResolver() {
    state_->stop();
}

std::vector<Proxy> ProxyResolver::proxiesForURL(std::string_view url, Seconds limit, Error* error) {
    std::shared_ptr<const State::Question> question;
    std::string reason = localized("The look-up did not end in time.");
    try {
        question = state_->ask(url, limit);
    } catch (const std::system_error& failure) {
        reason = failure.code().message();
    }
    const auto answer = question != nullptr ? question->answer : std::nullopt;
    std::vector<Proxy> result;
    if (!answer) {
        fail(error, Error::make(ProxyErrorDomain, question == nullptr ? 2 : 1,
                                localized("The system's proxy could not be found out."),
                                question == nullptr
                                    ? reason
                                    : localized("The system's proxy settings are of no use.")));
    } else {
        for (const std::string& text : *answer) {
            if (auto proxy = Proxy::fromText(text)) {
                result.push_back(std::move(*proxy));
            }
        }
    }
    if (result.empty()) {
        result.push_back({.scheme = "direct", .host = {}, .port = 0, .user = {}, .password = {}});
    }
    return result;
}

}  // namespace velto
