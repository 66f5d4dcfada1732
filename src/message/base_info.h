// The base of the records that travel as JSON text inside messages.
#pragma once

#include <cstdint>
#include <string>

#include "common/json.h"

namespace analysis::rokt::message {

using common::json::Json;
using common::json::JsonValue;

// A record with a JSON form: a subclass says which field stands under which key, the base turns the
// object into text and back.
//
// Reading is lenient, as the far end's tools rely on it: unknown keys are passed over, an absent or
// null key leaves the field alone, and a value of the wrong kind sets the field to its zero value
// with an error in the log. A record belongs to the thread that made it.
class BaseInfo {
 public:
    virtual ~BaseInfo() = default;

    // Writes every field under its key, the empty ones too.
    virtual void ToObject(Json& object) const = 0;

    // Reads each key that is present and not null.
    virtual void FromObject(const Json& object) = 0;

    [[nodiscard]] virtual std::string GetClassName() const;

    [[nodiscard]] std::string ToString() const;

    // False for an empty text, silently, and for a text that does not parse, with an error. A text
    // that fails half-way may have set some fields. Whatever follows the first object is ignored.
    [[nodiscard]] bool FromString(const std::string& text);

 protected:
    // Each reads one field and leaves it alone when the key is absent or null.
    static void ReadString(const Json& object, const char* key, std::string& field);
    static void ReadInt(const Json& object, const char* key, int32_t& field);
    static void ReadTime(const Json& object, const char* key, uint64_t& field);
    static void ReadBool(const Json& object, const char* key, bool& field);
};

}  // namespace analysis::rokt::message
