#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <string>
#include <string_view>
#include <vector>

namespace velto {

/// The header fields of a request or an answer, in order. Names compare without regard to case;
/// several fields may have one name.
class VELTO_EXPORT HTTPHeaders {
public:
    struct Field {
        std::string name;
        std::string value;
    };

    /// Takes the place of all fields of that name.
    void set(std::string_view name, std::string_view value);
    void add(std::string_view name, std::string_view value);
    void remove(std::string_view name);

    /// The first field's value; null when there is none.
    const std::string* value(std::string_view name) const noexcept;
    std::vector<std::string> values(std::string_view name) const;

    std::size_t size() const noexcept { return fields_.size(); }
    const Field* begin() const noexcept { return fields_.data(); }
    const Field* end() const noexcept { return fields_.data() + fields_.size(); }

    /// By name as it is written first; the values of equal names joined with ", ".
    Dictionary dictionary() const;

private:
    std::vector<Field> fields_;
};

}  // namespace velto
