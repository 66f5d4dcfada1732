// The daemon's own JSON: the document class. This is the header to include.
#pragma once

#include <string>

#include "common/json_value.h"

namespace analysis::rokt::common::json {

// A document: a value that is always an object and that owns its tree.
//
// The dialect is lenient, and what it accepts is shared with the host tools: commas and colons are
// optional, strings know no escapes, and no integer above 2147483647 can be read, though one can be
// written. The order of members in the text is that of a hash map. A document never shares its
// tree: what is assigned from a value is copied, and the value's tree stays with whoever made it.
class Json : public JsonValue {
 public:
    Json();
    // Reads the first value of at most 1 MiB of text; text behind it is ignored. Throws
    // std::runtime_error when that is no object, std::invalid_argument or std::out_of_range for a
    // number that cannot be converted.
    explicit Json(const std::string& text);
    // Throws std::runtime_error when the value is no object.
    explicit Json(const JsonValue& value);
    Json(const Json& other);
    ~Json();

    // A value that is no object is an error and changes nothing.
    Json& operator=(const JsonValue& value);
    Json& operator=(const Json& other);

    // Makes the document an empty object.
    void Free();
    void SetNull() = delete;

    // Assigns each member of the other object into this one, overwriting what has the same name.
    void Merge(const JsonValue& other);
};

}  // namespace analysis::rokt::common::json
