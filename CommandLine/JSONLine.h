#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <string>
#include <string_view>

namespace velto::cli {

/// One object of `--json`, on one line, as any JSON reader takes it: the texts are valid UTF-8 with
/// secrets hidden.
class JSONLine {
public:
    explicit JSONLine(std::string_view type);

    JSONLine& add(std::string_view key, const Value& value);  ///< Nothing for none.
    std::string text() const { return text_ + "}"; }

private:
    std::string text_;
};

/// Any depth without the call stack.
void appendJSON(std::string& text, const Value& value);

}  // namespace velto::cli
