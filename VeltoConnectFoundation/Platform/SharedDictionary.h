#pragma once

#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/Value.h>

namespace velto {

/// A live dictionary that several owners fill and read: held by shared_ptr, any thread. What it
/// hands out are copies.
class VELTO_EXPORT SharedDictionary {
public:
    SharedDictionary() = default;
    explicit SharedDictionary(Dictionary dictionary) : dictionary_(std::move(dictionary)) {}
    SharedDictionary(const SharedDictionary&) = delete;
    SharedDictionary& operator=(const SharedDictionary&) = delete;

    Value operator[](std::string_view key) const;  ///< none when missing
    Dictionary dictionary() const;                 ///< As it is now.
    std::size_t size() const;

    void set(Value key, Value value);  ///< A value of none removes the key.
    void remove(std::string_view key);
    void merge(const Dictionary& other);  ///< The other's values win.
    void replace(Dictionary dictionary);

private:
    mutable Lock lock_;
    Dictionary dictionary_ VELTO_GUARDED_BY(lock_);
};

}  // namespace velto
