#pragma once

#include <json/json.h>

#include <cstdint>
#include <initializer_list>
#include <string>

namespace TalvexSim {

// A JSON document read strictly (no comments, no duplicate keys, nothing after the root) that
// can say where each of its values stood, so that errors name the file, line and column.
class JsonDocument {
  public:
    // Throws InputError naming the source and the place of the first syntax error.
    JsonDocument(std::string text, std::string sourceName);

    const Json::Value& Root() const { return root; }
    const std::string& SourceName() const { return sourceName; }

    // "file:line:column" of a value of this document (its first character).
    std::string Where(const Json::Value& value) const;
    // The value exactly as it was written in the text.
    std::string Slice(const Json::Value& value) const;
    [[noreturn]] void Fail(const Json::Value& value, const std::string& path,
                           const std::string& message) const;

  private:
    std::string text;
    std::string sourceName;
    Json::Value root;
};

// Reads the members of one JSON object by name and type. Members outside `known` are refused up
// front, which is how a misspelt field is caught instead of silently defaulted.
class ObjectReader {
  public:
    ObjectReader(const JsonDocument& document, const Json::Value& object, std::string path,
                 std::initializer_list<const char*> known);

    bool Has(const std::string& key) const;
    const Json::Value& Member(const std::string& key);  // required, any type

    double Number(const std::string& key, double min, double max);
    double Number(const std::string& key, double min, double max, double fallback);
    int Integer(const std::string& key, int min, int max);
    int Integer(const std::string& key, int min, int max, int fallback);
    std::uint64_t Unsigned64(const std::string& key, std::uint64_t fallback);
    std::string String(const std::string& key);
    std::string String(const std::string& key, const std::string& fallback);

    // Path of a member, for messages and for readers of nested objects: "game.work_ms".
    std::string PathOf(const std::string& key) const;
    const JsonDocument& Document() const { return document; }

  private:
    const Json::Value& take(const std::string& key) const;

    const JsonDocument& document;
    const Json::Value& object;
    std::string path;
};

// A document as the simulator writes its own small JSON files: two-space indents, UTF-8 as
// it is, a line feed at the end.
std::string PrettyJson(const Json::Value& value);

// Type checks shared by the readers of objects and arrays.
double ExpectNumber(const JsonDocument& document, const Json::Value& value, const std::string& path,
                    double min, double max);
int ExpectInteger(const JsonDocument& document, const Json::Value& value, const std::string& path,
                  int min, int max);
std::string ExpectString(const JsonDocument& document, const Json::Value& value,
                         const std::string& path);
const Json::Value& ExpectArray(const JsonDocument& document, const Json::Value& value,
                               const std::string& path);

}  // namespace TalvexSim
