// One value of a JSON tree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace analysis::rokt::common::json {

class Json;

enum class JsonKind : uint64_t {
    STRING = 0,
    ARRAY = 1,
    OBJECT = 2,
    DOUBLE = 3,
    INT = 4,
    UINT = 5,
    BOOL = 6,
    JSON_NULL = 7,
    INVALID = 8,  // a fresh value, or one whose allocation failed
};

// A kind and a payload, two machine words.
//
// There is no destructor and no deep copy: copies of a string, an array or an object share its
// storage, and whoever made a tree frees it with Free. A value that is overwritten with another
// kind lets go of its storage without freeing it, since a copy may hold it. Trees may be a million
// levels deep: everything that walks one keeps its stack on the heap.
//
// No locks: a tree belongs to one thread at a time.
class JsonValue {
 public:
    using Array = std::vector<JsonValue>;
    using Object = std::unordered_map<std::string, JsonValue>;

    JsonValue() = default;
    JsonValue(const JsonValue&) = default;
    JsonValue& operator=(const JsonValue&) = default;
    // A document frees its tree: no value shares it.
    JsonValue(const Json&) = delete;
    JsonValue& operator=(const Json&) = delete;

    JsonValue& operator=(int64_t number);
    JsonValue& operator=(int32_t number);
    JsonValue& operator=(uint64_t number);
    JsonValue& operator=(uint32_t number);
    JsonValue& operator=(double number);
    JsonValue& operator=(bool flag);
    // A value that is a string already keeps its storage, with the new text in it.
    JsonValue& operator=(const std::string& text);
    JsonValue& operator=(const char* text);
    void SetNull();

    JsonKind Kind() const { return kind_; }

    // The member, made when it is absent; a value without payload becomes an object. Any other
    // value gives an error and itself.
    JsonValue& operator[](const std::string& key);
    // The element. No array or an index out of range gives an error and the value itself.
    JsonValue& operator[](size_t index);
    // The member, or null when the value is no object or has no such member. No message.
    const JsonValue* Find(const std::string& key) const;
    [[nodiscard]] bool Contains(const std::string& key) const;

    // A fresh value gives 0, false or empty without a message, a wrong kind gives the same with an
    // error. Bool, int and uint read each other's payload.
    [[nodiscard]] bool GetBool() const;
    [[nodiscard]] int64_t GetInt() const;
    [[nodiscard]] uint64_t GetUint() const;
    [[nodiscard]] double GetDouble() const;
    [[nodiscard]] std::string GetString() const;
    std::nullptr_t GetNull() const;
    // Copies of the elements or members, which share their storage with the tree.
    [[nodiscard]] Array GetArray() const;
    [[nodiscard]] Object GetObject() const;

    // Makes a value without payload an array of `size` fresh values.
    void SetArraySize(size_t size);
    void PushBack(const JsonValue& value);

    // Text without white space and without escapes; empty for a fresh value.
    [[nodiscard]] std::string ToString() const;

    // Deletes the whole tree below and makes the value a fresh one.
    void Free();
    // A tree of its own with the same content.
    [[nodiscard]] JsonValue DeepCopy() const;

 private:
    friend class Json;
    friend class JsonParser;
    friend class JsonWriter;

    // Payloads of the kinds; null when there is none.
    std::string* Text() const { return kind_ == JsonKind::STRING ? payload_.text : nullptr; }
    Array* Elements() const { return kind_ == JsonKind::ARRAY ? payload_.elements : nullptr; }
    Object* Members() const { return kind_ == JsonKind::OBJECT ? payload_.members : nullptr; }
    bool HasPayload() const { return payload_.bits != 0; }
    bool IsIntegral() const;
    bool HasStorage() const;
    void CopyNode(const JsonValue& source,
                  std::vector<std::pair<const JsonValue*, JsonValue*>>& pending);
    void SetKind(JsonKind kind);
    void MarkFailedAllocation();
    bool MakeElements();
    bool MakeMembers();

    union Payload {
        uint64_t bits;
        int64_t number;
        double real;
        std::string* text;
        Array* elements;
        Object* members;
    };

    JsonKind kind_ = JsonKind::INVALID;
    Payload payload_ = {0};
};

static_assert(sizeof(JsonValue) == 2 * sizeof(void*), "a value is two machine words");
static_assert(std::is_trivially_copyable<JsonValue>::value, "a copy shares its storage");

}  // namespace analysis::rokt::common::json
