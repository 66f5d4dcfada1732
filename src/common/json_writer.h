// The writer of the daemon's JSON dialect.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "common/json_value.h"

namespace analysis::rokt::common::json {

// Writes a tree as text without white space. Strings and keys go out as they are: the dialect has
// no escapes. The stack of open arrays and objects is on the heap. One use, one thread.
class JsonWriter {
 public:
    [[nodiscard]] std::string Write(const JsonValue& root);

 private:
    // An array or object that is being written.
    struct Frame {
        const JsonValue::Array* elements;
        size_t index;
        const JsonValue::Object* members;
        JsonValue::Object::const_iterator member;
        bool first;
    };

    void WriteValue(const JsonValue& value);
    void OpenArray(const JsonValue& value);
    void OpenObject(const JsonValue& value);
    void WriteScalar(const JsonValue& value);
    // Writes the next element of the innermost array or object, or closes it.
    void Advance();

    std::string out_;
    std::vector<Frame> open_;
};

}  // namespace analysis::rokt::common::json
