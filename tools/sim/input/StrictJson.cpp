#include "tools/sim/input/StrictJson.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <sstream>

#include "tools/sim/base/InputError.h"
#include "tools/sim/base/Text.h"

namespace TalvexSim {
namespace {

std::string typeName(const Json::Value& value) {
    switch (value.type()) {
        case Json::nullValue:
            return "null";
        case Json::intValue:
        case Json::uintValue:
            return "an integer";
        case Json::realValue:
            return "a number";
        case Json::stringValue:
            return "a string";
        case Json::booleanValue:
            return "a boolean";
        case Json::arrayValue:
            return "an array";
        case Json::objectValue:
            return "an object";
    }
    return "an unknown value";
}

// jsoncpp reports "* Line 3, Column 14\n  Syntax error: ...\n"; keep the place and the first
// message in our own "file:line:column: message" form.
std::string describeSyntaxError(const std::string& errors, const std::string& sourceName) {
    int line = 0;
    int column = 0;
    std::string message = "not valid JSON";
    if (std::sscanf(errors.c_str(), "* Line %d, Column %d", &line, &column) == 2) {
        const size_t start = errors.find('\n');
        if (start != std::string::npos) {
            size_t end = errors.find('\n', start + 1);
            if (end == std::string::npos) end = errors.size();
            std::string text = errors.substr(start + 1, end - start - 1);
            const size_t first = text.find_first_not_of(' ');
            if (first != std::string::npos) message = text.substr(first);
        }
        return sourceName + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " +
               message;
    }
    return sourceName + ": " + message;
}

}  // namespace

std::string PrettyJson(const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    writer["emitUTF8"] = true;
    return Json::writeString(writer, value) + "\n";
}

JsonDocument::JsonDocument(std::string text_, std::string sourceName_)
    : text(std::move(text_)), sourceName(std::move(sourceName_)) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &root, &errors)) {
        throw InputError(describeSyntaxError(errors, sourceName));
    }
}

std::string JsonDocument::Where(const Json::Value& value) const {
    const ptrdiff_t offset = value.getOffsetStart();
    int line = 1;
    int column = 1;
    for (ptrdiff_t i = 0; i < offset && i < static_cast<ptrdiff_t>(text.size()); ++i) {
        if (text[static_cast<size_t>(i)] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    return sourceName + ":" + std::to_string(line) + ":" + std::to_string(column);
}

std::string JsonDocument::Slice(const Json::Value& value) const {
    const auto start = static_cast<size_t>(value.getOffsetStart());
    const auto limit = static_cast<size_t>(value.getOffsetLimit());
    if (start >= limit || limit > text.size()) return std::string();
    return text.substr(start, limit - start);
}

void JsonDocument::Fail(const Json::Value& value, const std::string& path,
                        const std::string& message) const {
    throw InputError(Where(value) + ": " + (path.empty() ? "" : path + ": ") + message);
}

double ExpectNumber(const JsonDocument& document, const Json::Value& value, const std::string& path,
                    double min, double max) {
    if (!value.isDouble()) document.Fail(value, path, "expected a number, got " + typeName(value));
    const double number = value.asDouble();
    if (!std::isfinite(number) || number < min || number > max) {
        document.Fail(value, path,
                      ShortNumber(number) + " is out of range [" + ShortNumber(min) + ", " +
                          ShortNumber(max) + "]");
    }
    return number;
}

int ExpectInteger(const JsonDocument& document, const Json::Value& value, const std::string& path,
                  int min, int max) {
    if (!value.isDouble() || !value.isIntegral()) {
        document.Fail(value, path, "expected an integer, got " + typeName(value));
    }
    const double number = value.asDouble();
    if (number < min || number > max) {
        document.Fail(value, path,
                      ShortNumber(number) + " is out of range [" + std::to_string(min) + ", " +
                          std::to_string(max) + "]");
    }
    return static_cast<int>(number);
}

std::string ExpectString(const JsonDocument& document, const Json::Value& value,
                         const std::string& path) {
    if (!value.isString()) document.Fail(value, path, "expected a string, got " + typeName(value));
    return value.asString();
}

const Json::Value& ExpectArray(const JsonDocument& document, const Json::Value& value,
                               const std::string& path) {
    if (!value.isArray()) document.Fail(value, path, "expected an array, got " + typeName(value));
    return value;
}

ObjectReader::ObjectReader(const JsonDocument& document_, const Json::Value& object_,
                           std::string path_, std::initializer_list<const char*> known)
    : document(document_), object(object_), path(std::move(path_)) {
    if (!object.isObject()) {
        document.Fail(object, path, "expected an object, got " + typeName(object));
    }
    for (auto it = object.begin(); it != object.end(); ++it) {
        const std::string name = it.name();
        const bool isKnown = std::any_of(known.begin(), known.end(),
                                         [&name](const char* key) { return name == key; });
        if (!isKnown) document.Fail(*it, PathOf(name), "unknown field");
    }
}

std::string ObjectReader::PathOf(const std::string& key) const {
    return path.empty() ? key : path + "." + key;
}

bool ObjectReader::Has(const std::string& key) const {
    return object.find(key.data(), key.data() + key.size()) != nullptr;
}

const Json::Value& ObjectReader::take(const std::string& key) const {
    const Json::Value* member = object.find(key.data(), key.data() + key.size());
    if (member == nullptr) {
        document.Fail(object, path, "missing required field \"" + key + "\"");
    }
    return *member;
}

const Json::Value& ObjectReader::Member(const std::string& key) { return take(key); }

double ObjectReader::Number(const std::string& key, double min, double max) {
    return ExpectNumber(document, take(key), PathOf(key), min, max);
}

double ObjectReader::Number(const std::string& key, double min, double max, double fallback) {
    return Has(key) ? Number(key, min, max) : fallback;
}

int ObjectReader::Integer(const std::string& key, int min, int max) {
    return ExpectInteger(document, take(key), PathOf(key), min, max);
}

int ObjectReader::Integer(const std::string& key, int min, int max, int fallback) {
    return Has(key) ? Integer(key, min, max) : fallback;
}

std::uint64_t ObjectReader::Unsigned64(const std::string& key, std::uint64_t fallback) {
    if (!Has(key)) return fallback;
    const Json::Value& value = take(key);
    if (!value.isUInt64()) {
        document.Fail(value, PathOf(key),
                      value.isDouble() ? "expected a whole number from 0 to 18446744073709551615"
                                       : "expected an integer, got " + typeName(value));
    }
    return value.asUInt64();
}

std::string ObjectReader::String(const std::string& key) {
    return ExpectString(document, take(key), PathOf(key));
}

std::string ObjectReader::String(const std::string& key, const std::string& fallback) {
    return Has(key) ? String(key) : fallback;
}

}  // namespace TalvexSim
