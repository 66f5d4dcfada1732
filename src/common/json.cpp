// The document class of the daemon's JSON.
#include "common/json.h"

#include <stdexcept>

#include "common/json_parser.h"
#include "platform/log.h"

namespace analysis::rokt::common::json {

namespace {

constexpr const char* NOT_AN_OBJECT = "Cannot assign a JsonValue without Object type to Json";

}  // namespace

Json::Json() { SetKind(JsonKind::OBJECT); }

Json::Json(const std::string& text) {
    JsonValue value;
    if (!JsonParser(text).Parse(value) || value.Kind() != JsonKind::OBJECT) {
        value.Free();
        throw std::runtime_error("Input json string error");
    }
    JsonValue::operator=(value);
}

Json::Json(const JsonValue& value) {
    if (value.Kind() != JsonKind::OBJECT) {
        throw std::runtime_error(NOT_AN_OBJECT);
    }
    JsonValue::operator=(value.DeepCopy());
}

Json::Json(const Json& other) : Json(static_cast<const JsonValue&>(other)) {}

Json::~Json() { JsonValue::Free(); }

// The copy is made first: the value may stand in this document's own tree.
Json& Json::operator=(const JsonValue& value) {
    if (value.Kind() != JsonKind::OBJECT) {
        TIV_LOGE("%s", NOT_AN_OBJECT);
        return *this;
    }
    const JsonValue copy = value.DeepCopy();
    JsonValue::Free();
    JsonValue::operator=(copy);
    return *this;
}

Json& Json::operator=(const Json& other) { return *this = static_cast<const JsonValue&>(other); }

void Json::Free() {
    JsonValue::Free();
    SetKind(JsonKind::OBJECT);
}

void Json::Merge(const JsonValue& other) {
    if (other.Kind() != JsonKind::OBJECT) {
        TIV_LOGE("%s", NOT_AN_OBJECT);
        return;
    }
    const JsonValue copy = other.DeepCopy();
    for (const auto& member : copy.GetObject()) {
        JsonValue& place = (*this)[member.first];
        place.Free();
        place = member.second;
    }
    delete copy.Members();
}

}  // namespace analysis::rokt::common::json
