// One value of a JSON tree.
#include "common/json_value.h"

#include <new>
#include <utility>

#include "common/json_writer.h"
#include "platform/log.h"

namespace analysis::rokt::common::json {

JsonValue& JsonValue::operator=(int64_t number) {
    kind_ = JsonKind::INT;
    payload_.number = number;
    return *this;
}

JsonValue& JsonValue::operator=(int32_t number) { return *this = static_cast<int64_t>(number); }

JsonValue& JsonValue::operator=(uint64_t number) {
    kind_ = JsonKind::UINT;
    payload_.bits = number;
    return *this;
}

JsonValue& JsonValue::operator=(uint32_t number) { return *this = static_cast<uint64_t>(number); }

JsonValue& JsonValue::operator=(double number) {
    kind_ = JsonKind::DOUBLE;
    payload_.real = number;
    return *this;
}

JsonValue& JsonValue::operator=(bool flag) {
    kind_ = JsonKind::BOOL;
    payload_.bits = flag ? 1 : 0;
    return *this;
}

JsonValue& JsonValue::operator=(const std::string& text) {
    if (Text() != nullptr) {
        *payload_.text = text;
        return *this;
    }
    auto* const storage = new (std::nothrow) std::string(text);
    if (storage == nullptr) {
        MarkFailedAllocation();
        return *this;
    }
    kind_ = JsonKind::STRING;
    payload_.text = storage;
    return *this;
}

JsonValue& JsonValue::operator=(const char* text) { return *this = std::string(text); }

void JsonValue::SetNull() { SetKind(JsonKind::JSON_NULL); }

JsonValue& JsonValue::operator[](const std::string& key) {
    if (!HasPayload() && !MakeMembers()) {
        return *this;
    }
    Object* const members = Members();
    if (members == nullptr) {
        TIV_LOGE("Invalid visit for object variable");
        return *this;
    }
    return (*members)[key];
}

JsonValue& JsonValue::operator[](size_t index) {
    Array* const elements = Elements();
    if (elements == nullptr || index >= elements->size()) {
        TIV_LOGE("Invalid visit for array variable");
        return *this;
    }
    return (*elements)[index];
}

const JsonValue* JsonValue::Find(const std::string& key) const {
    const Object* const members = Members();
    if (members == nullptr) {
        return nullptr;
    }
    const auto found = members->find(key);
    return found == members->end() ? nullptr : &found->second;
}

bool JsonValue::Contains(const std::string& key) const {
    if (kind_ == JsonKind::INVALID || !HasPayload()) {
        return false;
    }
    if (kind_ != JsonKind::OBJECT) {
        TIV_LOGE("Invalid data type");
        return false;
    }
    return Find(key) != nullptr;
}

// A flag is one byte wide: only the low byte of a number counts.
bool JsonValue::GetBool() const {
    if (kind_ == JsonKind::INVALID) {
        return false;
    }
    if (!IsIntegral()) {
        TIV_LOGE("Invalid data type for boolean variable");
        return false;
    }
    return static_cast<uint8_t>(payload_.bits) != 0;
}

int64_t JsonValue::GetInt() const {
    if (kind_ == JsonKind::INVALID) {
        return 0;
    }
    if (!IsIntegral()) {
        TIV_LOGE("Invalid data type for int variable");
        return 0;
    }
    return payload_.number;
}

uint64_t JsonValue::GetUint() const {
    if (kind_ == JsonKind::INVALID) {
        return 0;
    }
    if (!IsIntegral()) {
        TIV_LOGE("Invalid data type for uint variable");
        return 0;
    }
    return payload_.bits;
}

double JsonValue::GetDouble() const {
    if (kind_ == JsonKind::INVALID) {
        return 0;
    }
    if (kind_ != JsonKind::DOUBLE) {
        TIV_LOGE("Invalid data type for double variable");
        return 0;
    }
    return payload_.real;
}

std::string JsonValue::GetString() const {
    if (kind_ == JsonKind::INVALID) {
        return "";
    }
    if (kind_ != JsonKind::STRING) {
        TIV_LOGE("Invalid data type for string variable");
        return "";
    }
    return payload_.text == nullptr ? "" : *payload_.text;
}

std::nullptr_t JsonValue::GetNull() const {
    if (kind_ != JsonKind::INVALID && kind_ != JsonKind::JSON_NULL) {
        TIV_LOGE("Invalid data type for null variable");
    }
    return nullptr;
}

JsonValue::Array JsonValue::GetArray() const {
    if (kind_ != JsonKind::INVALID && kind_ != JsonKind::ARRAY) {
        TIV_LOGE("Invalid data type for string variable");
    }
    return Elements() == nullptr ? Array() : *Elements();
}

JsonValue::Object JsonValue::GetObject() const {
    if (kind_ != JsonKind::INVALID && kind_ != JsonKind::OBJECT) {
        TIV_LOGE("Invalid data type for string variable");
    }
    return Members() == nullptr ? Object() : *Members();
}

void JsonValue::SetArraySize(size_t size) {
    if (HasPayload()) {
        TIV_LOGE("SetArraySize is only valid for JsonValue without allocating memory");
        return;
    }
    if (MakeElements()) {
        payload_.elements->resize(size);
    }
}

void JsonValue::PushBack(const JsonValue& value) {
    if (kind_ != JsonKind::ARRAY) {
        TIV_LOGE("PushBack() is only valid for ARRAY type");
        return;
    }
    if (Elements() != nullptr || MakeElements()) {
        payload_.elements->push_back(value);
    }
}

std::string JsonValue::ToString() const { return JsonWriter().Write(*this); }

void JsonValue::Free() {
    Array pending = {*this};
    *this = JsonValue();
    while (!pending.empty()) {
        const JsonValue value = pending.back();
        pending.pop_back();
        if (const Array* const elements = value.Elements()) {
            for (const JsonValue& element : *elements) {
                if (element.HasStorage()) {
                    pending.push_back(element);
                }
            }
            delete elements;
        } else if (const Object* const members = value.Members()) {
            for (const auto& member : *members) {
                if (member.second.HasStorage()) {
                    pending.push_back(member.second);
                }
            }
            delete members;
        } else {
            delete value.Text();
        }
    }
}

JsonValue JsonValue::DeepCopy() const {
    JsonValue root;
    std::vector<std::pair<const JsonValue*, JsonValue*>> pending = {{this, &root}};
    try {
        while (!pending.empty()) {
            const JsonValue& source = *pending.back().first;
            JsonValue& target = *pending.back().second;
            pending.pop_back();
            target.CopyNode(source, pending);
        }
    } catch (...) {
        root.Free();
        throw;
    }
    return root;
}

// Copies one node and lists its children, which have their places in the copy by then.
void JsonValue::CopyNode(const JsonValue& source,
                         std::vector<std::pair<const JsonValue*, JsonValue*>>& pending) {
    SetKind(source.kind_);
    if (const std::string* const text = source.Text()) {
        *this = *text;
    } else if (const Array* const elements = source.Elements()) {
        SetArraySize(elements->size());
        for (size_t i = 0; Elements() != nullptr && i < elements->size(); ++i) {
            pending.emplace_back(&(*elements)[i], &(*payload_.elements)[i]);
        }
    } else if (const Object* const members = source.Members()) {
        for (const auto& member : *members) {
            JsonValue& place = (*this)[member.first];
            if (&place != this) {
                pending.emplace_back(&member.second, &place);
            }
        }
    } else {
        *this = source;
    }
}

bool JsonValue::IsIntegral() const {
    return kind_ == JsonKind::INT || kind_ == JsonKind::UINT || kind_ == JsonKind::BOOL;
}

bool JsonValue::HasStorage() const {
    return HasPayload() &&
           (kind_ == JsonKind::STRING || kind_ == JsonKind::ARRAY || kind_ == JsonKind::OBJECT);
}

void JsonValue::SetKind(JsonKind kind) {
    kind_ = kind;
    payload_.bits = 0;
}

void JsonValue::MarkFailedAllocation() {
    TIV_LOGE("Fail allocating stack memory");
    SetKind(JsonKind::INVALID);
}

bool JsonValue::MakeElements() {
    auto* const storage = new (std::nothrow) Array();
    if (storage == nullptr) {
        MarkFailedAllocation();
        return false;
    }
    kind_ = JsonKind::ARRAY;
    payload_.elements = storage;
    return true;
}

bool JsonValue::MakeMembers() {
    auto* const storage = new (std::nothrow) Object();
    if (storage == nullptr) {
        MarkFailedAllocation();
        return false;
    }
    kind_ = JsonKind::OBJECT;
    payload_.members = storage;
    return true;
}

}  // namespace analysis::rokt::common::json
