// The writer of the daemon's JSON dialect.
#include "common/json_writer.h"

#include <utility>

#include "platform/bounds_checked.h"

namespace analysis::rokt::common::json {

namespace {

// The longest number is -DBL_MAX with six decimals: 317 characters.
constexpr size_t NUMBER_TEXT_SIZE = 352;

}  // namespace

std::string JsonWriter::Write(const JsonValue& root) {
    WriteValue(root);
    while (!open_.empty()) {
        Advance();
    }
    return std::move(out_);
}

void JsonWriter::WriteValue(const JsonValue& value) {
    switch (value.Kind()) {
        case JsonKind::ARRAY:
            OpenArray(value);
            return;
        case JsonKind::OBJECT:
            OpenObject(value);
            return;
        default:
            WriteScalar(value);
            return;
    }
}

void JsonWriter::OpenArray(const JsonValue& value) {
    const JsonValue::Array* const elements = value.Elements();
    if (elements == nullptr || elements->empty()) {
        out_ += "[]";
        return;
    }
    out_ += '[';
    open_.push_back(Frame{elements, 0, nullptr, {}, true});
}

void JsonWriter::OpenObject(const JsonValue& value) {
    const JsonValue::Object* const members = value.Members();
    if (members == nullptr || members->empty()) {
        out_ += "{}";
        return;
    }
    out_ += '{';
    open_.push_back(Frame{nullptr, 0, members, members->begin(), true});
}

void JsonWriter::Advance() {
    Frame& frame = open_.back();
    const bool isArray = frame.elements != nullptr;
    if (isArray ? frame.index == frame.elements->size() : frame.member == frame.members->end()) {
        out_ += isArray ? ']' : '}';
        open_.pop_back();
        return;
    }
    if (!frame.first) {
        out_ += ',';
    }
    frame.first = false;
    if (isArray) {
        WriteValue((*frame.elements)[frame.index++]);
        return;
    }
    const auto member = frame.member++;
    out_ += '"';
    out_ += member->first;
    out_ += "\":";
    WriteValue(member->second);
}

void JsonWriter::WriteScalar(const JsonValue& value) {
    char number[NUMBER_TEXT_SIZE] = "";
    switch (value.Kind()) {
        case JsonKind::STRING:
            out_ += '"';
            out_ += value.GetString();
            out_ += '"';
            break;
        case JsonKind::BOOL:
            out_ += value.GetBool() ? "true" : "false";
            break;
        case JsonKind::JSON_NULL:
            out_ += "null";
            break;
        case JsonKind::INT:
            (void)sprintf_s(number, sizeof(number), "%ld", value.GetInt());
            break;
        case JsonKind::UINT:
            (void)sprintf_s(number, sizeof(number), "%lu", value.GetUint());
            break;
        case JsonKind::DOUBLE:
            (void)sprintf_s(number, sizeof(number), "%f", value.GetDouble());
            break;
        default:
            break;
    }
    out_ += number;
}

}  // namespace analysis::rokt::common::json
