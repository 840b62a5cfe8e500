#include <VeltoConnectFoundation/Codecs/MZJSONNumber.h>

#include <VeltoConnectFoundation/Platform/NumberText.h>

#include <cmath>

MZJSONNumber::MZJSONNumber(std::string_view text) noexcept {
    // Required: only a first zero counts ("-01" passes), and only a full stop excuses it ("0e1"
    // does not pass).
    if (text.size() > 1 && text[0] == '0' && text.find('.') == std::string_view::npos) {
        status = Status::leadingZero;
        return;
    }
    // Required: what follows a number in the run is ignored ("1-2" is 1), and only an overflow
    // upwards is a failure.
    const velto::LeadingDouble number = velto::leadingDouble(text);
    value = number.value;
    if (number.length == 0 || (std::isinf(value) && value > 0)) {
        status = Status::inconvertible;
    }
}
