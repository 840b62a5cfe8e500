#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace velto::cli {

/// Whose words the keys of dictionaries are: only in strangers' can a secret stand.
enum class JSONKeys : std::uint8_t { ours, strangers };

/// One object of `--json`, on one line, as any JSON reader takes it: the texts are valid UTF-8
/// without control characters, with secrets hidden in the values.
/// Documentation/velto-output.schema.json describes every object.
class JSONLine {
public:
    static constexpr int schema = 1;

    explicit JSONLine(std::string_view type);

    JSONLine& add(std::string_view key,
                  const Value& value,
                  JSONKeys keys = JSONKeys::ours);  ///< Nothing for none.
    /// A word that is the program's own, whatever secrets there are.
    JSONLine& addWord(std::string_view key, std::string_view word);
    JSONLine& addAll(const Dictionary& details);

    bool isResult() const { return type_ == "result"; }
    /// `time` as timeStamp() has it. The first object of a run tells the schema.
    std::string text(std::string_view time, bool isFirst) const;

private:
    std::string type_;
    std::string members_;  ///< Each with a comma before it.
};

/// Any depth without the call stack.
void appendJSON(std::string& text, const Value& value, JSONKeys keys = JSONKeys::ours);

}  // namespace velto::cli
