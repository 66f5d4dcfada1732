// A reader of JSON schemas that knows the keywords of docs/job.schema.json.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>

namespace tiv::test {

// Holds a document to a schema. A keyword that the reader does not know fails the test: it would
// pass everything.
class JobSchema {
 public:
    explicit JobSchema(nlohmann::json schema) : schema_(std::move(schema)) {}

    bool Accepts(const nlohmann::json& document) const { return Holds(schema_, document); }

 private:
    using json = nlohmann::json;

    static bool IsOfType(const std::string& type, const json& value) {
        return (type == "object" && value.is_object()) || (type == "array" && value.is_array()) ||
               (type == "string" && value.is_string()) ||
               (type == "boolean" && value.is_boolean()) ||
               (type == "integer" && value.is_number_integer());
    }
    static bool IsOfTypes(const json& types, const json& value) {
        return types.is_string() ? IsOfType(types, value)
                                 : std::any_of(types.begin(), types.end(), [&](const json& type) {
                                       return IsOfType(type, value);
                                   });
    }
    bool PropertiesHold(const json& schema, const json& value) const {
        for (const auto& [name, member] : value.items()) {
            const json& properties = schema.value("properties", json::object());
            const json rule = properties.contains(name)
                                  ? properties[name]
                                  : schema.value("additionalProperties", json(true));
            if (rule.is_boolean() ? !rule.get<bool>() : !Holds(rule, member)) {
                return false;
            }
        }
        return true;
    }
    bool ItemsHold(const json& rule, const json& value) const {
        return std::all_of(value.begin(), value.end(),
                           [&](const json& item) { return Holds(rule, item); });
    }
    static bool AreUnique(const json& value) {
        auto sorted = value.get<std::vector<json>>();
        std::sort(sorted.begin(), sorted.end());
        return std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end();
    }
    bool KeywordHolds(const std::string& word, const json& rule, const json& value,
                      const json& schema) const {
        if (word == "type") return IsOfTypes(rule, value);
        if (word == "$ref")
            return Holds(schema_.at(json::json_pointer(rule.get<std::string>().substr(1))), value);
        if (word == "enum") return std::find(rule.begin(), rule.end(), value) != rule.end();
        if (word == "pattern")
            return std::regex_search(value.get<std::string>(), std::regex(rule.get<std::string>()));
        if (word == "minimum") return value >= rule;
        if (word == "maximum") return value <= rule;
        if (word == "minItems") return value.size() >= rule.get<size_t>();
        if (word == "maxItems") return value.size() <= rule.get<size_t>();
        if (word == "uniqueItems") return !rule.get<bool>() || AreUnique(value);
        if (word == "items") return ItemsHold(rule, value);
        if (word == "properties") return PropertiesHold(schema, value);
        if (word == "additionalProperties") return PropertiesHold(schema, value);
        const bool tells = word == "description" || word == "title" || word == "$schema" ||
                           word == "$comment" || word == "definitions";
        EXPECT_TRUE(tells) << "unknown keyword " << word;
        return tells;
    }
    // The type goes first: the other keywords hold for values of one type.
    bool Holds(const json& schema, const json& value) const {
        if (schema.contains("type") && !IsOfTypes(schema["type"], value)) {
            return false;
        }
        for (const auto& [word, rule] : schema.items()) {
            if (!KeywordHolds(word, rule, value, schema)) {
                return false;
            }
        }
        return true;
    }

    const json schema_;
};

}  // namespace tiv::test
