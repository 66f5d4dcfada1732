// The reader of the daemon's JSON dialect.
#include "common/json_parser.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace analysis::rokt::common::json {

namespace {

constexpr const char* WHITE_SPACE = " \r\n\t\v\f";
constexpr const char* SEPARATORS = " \r\n\t\v\f,";
constexpr const char* KEY_TO_VALUE = " \r\n\t\v\f:";
constexpr size_t NULL_LENGTH = 4;

// Gives the end of the longest prefix that is a double.
double ConvertDouble(const char* text, const char*& end) {
    char* stop = nullptr;
    errno = 0;
    const double number = std::strtod(text, &stop);
    if (stop == text) {
        throw std::invalid_argument("stod");
    }
    if (errno == ERANGE) {
        throw std::out_of_range("stod");
    }
    end = stop;
    return number;
}

// A base-10 integer of 32 bits with sign, cut at the first character that is no digit.
int64_t ConvertInt(const char* text) {
    char* stop = nullptr;
    errno = 0;
    const long number = std::strtol(text, &stop, 10);
    if (stop == text) {
        throw std::invalid_argument("stoi");
    }
    if (errno == ERANGE || number < INT_MIN || number > INT_MAX) {
        throw std::out_of_range("stoi");
    }
    return number;
}

bool BeginsWith(const char* text, const char* prefix) {
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

}  // namespace

JsonParser::JsonParser(const std::string& text) : text_(text) {}

// What is still open belongs to nobody else: a refused text leaves nothing behind.
JsonParser::~JsonParser() {
    for (JsonValue& value : open_) {
        value.Free();
    }
}

bool JsonParser::Parse(JsonValue& out) {
    if (text_.size() > MAX_TEXT_LENGTH) {
        throw std::runtime_error("The length of input string is out of range(1M)");
    }
    JsonValue value;
    Step step = ReadValue(value);
    while (step != Step::FAIL) {
        if (step == Step::VALUE && open_.empty()) {
            out = value;
            return true;
        }
        if (step == Step::VALUE && !Store(value)) {
            return false;
        }
        step = Continue(value);
    }
    return false;
}

bool JsonParser::StartsWith(const char* prefix) const {
    return text_.compare(pos_, strlen(prefix), prefix) == 0;
}

void JsonParser::SkipAny(const char* characters) {
    pos_ = std::min(text_.find_first_not_of(characters, pos_), text_.size());
}

void JsonParser::Skip(size_t count) { pos_ = std::min(pos_ + count, text_.size()); }

JsonParser::Step JsonParser::Continue(JsonValue& value) {
    return open_.back().Kind() == JsonKind::ARRAY ? ContinueArray(value) : ContinueObject(value);
}

JsonParser::Step JsonParser::ContinueArray(JsonValue& value) {
    if (!AtEnd() && Front() == ']') {
        return Close(value);
    }
    return ReadValue(value);
}

// A key that a comma follows has no value and adds no member.
JsonParser::Step JsonParser::ContinueObject(JsonValue& value) {
    while (!AtEnd() && Front() == '"') {
        std::string key;
        if (!ReadQuoted(key)) {
            return Step::FAIL;
        }
        SkipAny(KEY_TO_VALUE);
        if (AtEnd() || Front() != ',') {
            keys_.push_back(std::move(key));
            return ReadValue(value);
        }
        SkipAny(SEPARATORS);
    }
    return !AtEnd() && Front() == '}' ? Close(value) : Step::FAIL;
}

JsonParser::Step JsonParser::Close(JsonValue& value) {
    Skip(1);
    SkipAny(SEPARATORS);
    value = open_.back();
    open_.pop_back();
    return Step::VALUE;
}

bool JsonParser::Store(JsonValue& value) {
    JsonValue& container = open_.back();
    const bool isArray = container.Kind() == JsonKind::ARRAY;
    if (isArray && AtEnd()) {
        value.Free();
        return false;
    }
    try {
        if (isArray) {
            container.PushBack(value);
        } else {
            JsonValue& place = container[keys_.back()];
            if (&place == &container) {  // no memory for the members
                value.Free();
                return false;
            }
            place.Free();
            place = value;
            keys_.pop_back();
        }
    } catch (...) {
        value.Free();
        throw;
    }
    // A container without storage did not take the value.
    if (!container.HasPayload()) {
        value.Free();
        return false;
    }
    return true;
}

JsonParser::Step JsonParser::ReadValue(JsonValue& value) {
    value = JsonValue();
    SkipAny(WHITE_SPACE);
    if (AtEnd()) {
        throw std::runtime_error("Input string is empty");
    }
    switch (Front()) {
        case '{':
            return Open(JsonKind::OBJECT);
        case '[':
            return Open(JsonKind::ARRAY);
        case '"':
            return ReadString(value);
        case 't':
        case 'f':
            return ReadBool(value);
        case 'n':
            return ReadNull(value);
        default:
            break;
    }
    const bool isNumber = Front() == '-' || (Front() >= '0' && Front() <= '9');
    return isNumber ? ReadNumber(value) : Step::FAIL;
}

JsonParser::Step JsonParser::Open(JsonKind kind) {
    Skip(1);
    SkipAny(WHITE_SPACE);
    JsonValue container;
    container.SetKind(kind);
    open_.push_back(container);
    return Step::OPENED;
}

// A quoted text begins behind the white space that follows its quote.
bool JsonParser::ReadQuoted(std::string& out) {
    Skip(1);
    SkipAny(WHITE_SPACE);
    const size_t end = text_.find('"', pos_);
    if (end == std::string::npos) {
        return false;
    }
    out.assign(text_, pos_, end - pos_);
    pos_ = end + 1;
    return true;
}

JsonParser::Step JsonParser::ReadString(JsonValue& value) {
    std::string text;
    if (!ReadQuoted(text)) {
        return Step::FAIL;
    }
    SkipAny(SEPARATORS);
    value = text;
    return Step::VALUE;
}

JsonParser::Step JsonParser::ReadBool(JsonValue& value) {
    const bool flag = StartsWith("true");
    if (!flag && !StartsWith("false")) {
        return Step::FAIL;
    }
    value = flag;
    Skip(strlen(flag ? "true" : "false"));
    SkipAny(SEPARATORS);
    return Step::VALUE;
}

// Anything that begins with "n" is null; its four characters are not looked at.
JsonParser::Step JsonParser::ReadNull(JsonValue& value) {
    Skip(NULL_LENGTH);
    SkipAny(SEPARATORS);
    value.SetNull();
    return Step::VALUE;
}

// The text ends in a zero byte, so that the conversions run in place.
JsonParser::Step JsonParser::ReadNumber(JsonValue& value) {
    const char* const begin = text_.c_str() + pos_;
    const char* end = nullptr;
    const double number = ConvertDouble(begin, end);
    const auto taken = static_cast<size_t>(end - begin);
    if (taken >= 2 && (end[-1] == '.' || BeginsWith(begin, "00") || BeginsWith(begin, "-."))) {
        return Step::FAIL;
    }
    if (memchr(begin, '.', taken) != nullptr) {
        value = number;
    } else if (*begin == '-') {
        value = ConvertInt(begin);
    } else {
        value = static_cast<uint64_t>(ConvertInt(begin));
    }
    Skip(taken);
    SkipAny(SEPARATORS);
    return Step::VALUE;
}

}  // namespace analysis::rokt::common::json
