#include <VeltoConnectFoundation/Platform/HTTPHeaders.h>

#include <algorithm>

namespace velto {

namespace {

char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

auto isNamed(std::string_view name) {
    return [name](const HTTPHeaders::Field& field) {
        return std::ranges::equal(field.name, name, {}, &lowerCase, &lowerCase);
    };
}

}  // namespace

void HTTPHeaders::set(std::string_view name, std::string_view value) {
    const auto first = std::ranges::find_if(fields_, isNamed(name));
    if (first == fields_.end()) {
        add(name, value);
        return;
    }
    first->value = value;
    fields_.erase(std::remove_if(first + 1, fields_.end(), isNamed(name)), fields_.end());
}

void HTTPHeaders::add(std::string_view name, std::string_view value) {
    fields_.push_back({std::string(name), std::string(value)});
}

void HTTPHeaders::remove(std::string_view name) {
    std::erase_if(fields_, isNamed(name));
}

const std::string* HTTPHeaders::value(std::string_view name) const noexcept {
    const auto found = std::ranges::find_if(fields_, isNamed(name));
    return found == fields_.end() ? nullptr : &found->value;
}

std::vector<std::string> HTTPHeaders::values(std::string_view name) const {
    std::vector<std::string> result;
    for (const Field& field : fields_) {
        if (isNamed(name)(field)) {
            result.push_back(field.value);
        }
    }
    return result;
}

Dictionary HTTPHeaders::dictionary() const {
    Dictionary result;
    for (const Field& field : fields_) {
        const auto first = std::ranges::find_if(fields_, isNamed(field.name));
        const Value& before = result[first->name];
        result.set(first->name, before.isNone()
                                    ? Value(field.value)
                                    : Value(std::string(before.string()) + ", " + field.value));
    }
    return result;
}

}  // namespace velto
