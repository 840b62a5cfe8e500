#include <VeltoConnectFoundation/Platform/StandardJSON.h>

#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <nlohmann/json.hpp>

#include <string>
#include <utility>
#include <vector>

namespace velto {

namespace {

constexpr std::size_t deepestLevel = 512;

/// Builds the value from the reader's events. Names and return values are the reader's.
class Builder {
public:
    using Json = nlohmann::json;

    bool null() { return put(Null{}); }
    bool boolean(bool flag) { return put(flag); }
    bool number_integer(Json::number_integer_t number) { return put(number); }
    bool number_unsigned(Json::number_unsigned_t number) {
        return std::in_range<std::int64_t>(number) ? put(static_cast<std::int64_t>(number))
                                                   : put(number);
    }
    bool number_float(Json::number_float_t number, const std::string&) { return put(number); }
    bool string(std::string& text) { return put(text); }
    bool binary(Json::binary_t&) { return false; }
    bool start_object(std::size_t) { return open(true); }
    bool start_array(std::size_t) { return open(false); }
    bool key(std::string& text) {
        open_.back().key = std::move(text);
        return true;
    }
    bool end_object() { return close(); }
    bool end_array() { return close(); }
    bool parse_error(std::size_t position, const std::string&, const Json::exception&) {
        position_ = position;
        return false;
    }

    std::size_t position() const { return position_; }  ///< Of what is wrong, from 1; 0: too deep.
    Value take() { return std::move(result_); }

private:
    /// A container that has begun, with the key under which it stands in its parent.
    struct Level {
        bool isObject = false;
        std::string key;
        Array array{};
        Dictionary dictionary{};
    };

    bool open(bool isObject) {
        if (open_.size() >= deepestLevel) {
            return false;
        }
        open_.push_back({.isObject = isObject, .key = {}});
        return true;
    }

    bool close() {
        Level level = std::move(open_.back());
        open_.pop_back();
        return level.isObject ? put(level.dictionary) : put(level.array);
    }

    bool put(Value value) {
        if (open_.empty()) {
            result_ = std::move(value);
        } else if (open_.back().isObject) {
            open_.back().dictionary.set(open_.back().key, std::move(value));
        } else {
            open_.back().array.append(std::move(value));
        }
        return true;
    }

    std::vector<Level> open_;
    Value result_;
    std::size_t position_ = 0;
};

}  // namespace

std::optional<Value> parseJSON(std::string_view text, Error* error) {
    Builder builder;
    if (nlohmann::json::sax_parse(text, &builder)) {
        return builder.take();
    }
    fail(error,
         Error::make(StandardJSONErrorDomain, 1, localized("The JSON text could not be read."),
                     builder.position() == 0
                         ? localized("It has too many levels.")
                         : localizedFormat("Byte %lu is not as it should be.",
                                           static_cast<unsigned long>(builder.position()))));
    return std::nullopt;
}

}  // namespace velto
