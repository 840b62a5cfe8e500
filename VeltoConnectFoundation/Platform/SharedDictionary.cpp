#include <VeltoConnectFoundation/Platform/SharedDictionary.h>

namespace velto {

Value SharedDictionary::operator[](std::string_view key) const {
    const Guard guard(lock_);
    return dictionary_[key];
}

Dictionary SharedDictionary::dictionary() const {
    const Guard guard(lock_);
    return dictionary_;
}

std::size_t SharedDictionary::size() const {
    const Guard guard(lock_);
    return dictionary_.size();
}

void SharedDictionary::set(Value key, Value value) {
    Value before;  // Destroyed after the lock's release: an object's destructor may call anything.
    const Guard guard(lock_);
    before = dictionary_.valueForKey(key);
    dictionary_.set(std::move(key), std::move(value));
}

void SharedDictionary::remove(std::string_view key) {
    Value before;
    const Guard guard(lock_);
    before = dictionary_[key];
    dictionary_.remove(key);
}

void SharedDictionary::merge(const Dictionary& other) {
    Dictionary before;
    const Guard guard(lock_);
    before = dictionary_;
    dictionary_.merge(other);
}

void SharedDictionary::replace(Dictionary dictionary) {
    const Guard guard(lock_);
    std::swap(dictionary_, dictionary);
}

}  // namespace velto
