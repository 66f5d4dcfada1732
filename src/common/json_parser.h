// The reader of the daemon's JSON dialect.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "common/json_value.h"

namespace analysis::rokt::common::json {

// Reads one value from the front of a text.
//
// The text stays where it is and a cursor moves over it, so that reading is linear; open arrays and
// objects stand on a stack on the heap, so that the depth of the text costs the thread nothing.
// The text outlives the parser. One use, one thread.
class JsonParser {
 public:
    // Texts above this many bytes are refused.
    static constexpr size_t MAX_TEXT_LENGTH = 1048576;

    explicit JsonParser(const std::string& text);
    ~JsonParser();
    JsonParser(const JsonParser&) = delete;
    JsonParser& operator=(const JsonParser&) = delete;

    // True when a value was read into `out`, whose tree is the caller's then. Throws
    // std::runtime_error for a text that is too long or that ends where a value should begin, and
    // std::invalid_argument or std::out_of_range for a number.
    [[nodiscard]] bool Parse(JsonValue& out);

    // What lies behind the cursor.
    [[nodiscard]] std::string Rest() const { return text_.substr(pos_); }

 private:
    enum class Step { FAIL, VALUE, OPENED };

    bool AtEnd() const { return pos_ >= text_.size(); }
    char Front() const { return text_[pos_]; }
    bool StartsWith(const char* prefix) const;
    void SkipAny(const char* characters);
    void Skip(size_t count);

    // Goes on in the innermost open array or object until it closes or another one opens.
    Step Continue(JsonValue& value);
    Step ContinueArray(JsonValue& value);
    Step ContinueObject(JsonValue& value);
    Step Close(JsonValue& value);
    // Puts a finished value into the innermost open array or object.
    bool Store(JsonValue& value);

    Step ReadValue(JsonValue& value);
    Step Open(JsonKind kind);
    bool ReadQuoted(std::string& out);
    Step ReadString(JsonValue& value);
    Step ReadBool(JsonValue& value);
    Step ReadNull(JsonValue& value);
    Step ReadNumber(JsonValue& value);

    const std::string& text_;
    size_t pos_ = 0;
    std::vector<JsonValue> open_;    // arrays and objects that are not closed, outermost first
    std::vector<std::string> keys_;  // the keys whose values are being read, one per open object
};

}  // namespace analysis::rokt::common::json
