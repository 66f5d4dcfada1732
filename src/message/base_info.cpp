// From record to text and back, and the lenient reading of one field.
#include "message/base_info.h"

#include <exception>

#include "platform/log.h"

namespace analysis::rokt::message {

namespace {

// The member under `key`; null when the object lacks it or holds the JSON null there.
const JsonValue* FindPresent(const Json& object, const char* key) {
    const JsonValue* value = object.Find(key);
    return value == nullptr || value->Kind() == common::json::JsonKind::JSON_NULL ? nullptr : value;
}

}  // namespace

std::string BaseInfo::GetClassName() const { return "BaseInfo"; }

std::string BaseInfo::ToString() const {
    Json object;
    ToObject(object);
    return object.ToString();
}

bool BaseInfo::FromString(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    try {
        const Json object(text);
        FromObject(object);
    } catch (const std::exception& e) {
        TIV_LOGE("%s ::FromString(): %s", GetClassName().c_str(), e.what());
        return false;
    }
    return true;
}

void BaseInfo::ReadString(const Json& object, const char* key, std::string& field) {
    if (const JsonValue* value = FindPresent(object, key)) {
        field = value->GetString();
    }
}

void BaseInfo::ReadInt(const Json& object, const char* key, int32_t& field) {
    if (const JsonValue* value = FindPresent(object, key)) {
        field = static_cast<int32_t>(value->GetInt());
    }
}

void BaseInfo::ReadTime(const Json& object, const char* key, uint64_t& field) {
    if (const JsonValue* value = FindPresent(object, key)) {
        field = static_cast<uint64_t>(value->GetInt());
    }
}

void BaseInfo::ReadBool(const Json& object, const char* key, bool& field) {
    if (const JsonValue* value = FindPresent(object, key)) {
        field = value->GetBool();
    }
}

}  // namespace analysis::rokt::message
