#pragma once
// The JSON form of values, and state files.
//
// The document is what cereal's JSON archives make of the same types: a root object with one node "value0"; a class is
// an object of its members by name; numbers, enumerations and bool are themselves; vector, array and set are arrays; a
// map is an array of {"key", "value"}; a pair has "first" and "second", a tuple "tuple_element0" and on, a variant
// "index" and "data". When reading, members are found by name in any order, unknown ones are left out, and a failure
// leaves the target with what was read before it.
//
// cereal's headers, which are heavy, stay inside Json.cpp: a type costs only calls of JsonWriter and JsonReader.

#include <memory>
#include <string>

#include "trovi/Serial.h"

namespace trovi {

/// Deepest nesting of arrays and objects that is read. The parser calls itself for each level, so that a hostile
/// document could otherwise exhaust the stack. The deepest configuration has about 12.
inline constexpr std::size_t jsonMaxDepth = 512;

/// Writes one document, value by value.
class JsonWriter {
public:
    JsonWriter();
    ~JsonWriter();
    JsonWriter(const JsonWriter&) = delete;
    JsonWriter& operator=(const JsonWriter&) = delete;

    /// Key of the value that comes next. `text` must live until then.
    void key(const char* text);
    void beginObject();
    void beginArray();
    void end();
    /// T: bool or any standard number
    template <class T>
    void number(T value);
    void text(const std::string& value);
    /// Closes the document and gives its text.
    std::string finish();

private:
    struct Archive;
    std::unique_ptr<Archive> archive_;
};

/// Reads one document, value by value.
/// Every function throws cereal::Exception (cereal::RapidJSONException for a value of the wrong kind).
class JsonReader {
public:
    explicit JsonReader(const std::string& document);
    ~JsonReader();
    JsonReader(const JsonReader&) = delete;
    JsonReader& operator=(const JsonReader&) = delete;

    void key(const char* text);
    void beginNode();
    /// Number of elements of the array that was begun.
    std::size_t size();
    void end();
    template <class T>
    void number(T& value);
    void text(std::string& value);

private:
    struct Archive;
    std::unique_ptr<Archive> archive_;
};

namespace detail {

/// The whole file; empty when it cannot be opened.
std::string readFile(const std::string& path);
/// Replaces the file whole or not at all. A path that cannot be opened for writing is left alone, without an error.
/// @throws std::runtime_error when writing fails later on, as on a full disk; the old file stays
void replaceFile(const std::string& path, const std::string& content);
[[noreturn]] void throwValueOutOfRange(const std::string& value, std::string_view type);

} // namespace detail

template <class T>
void saveJson(JsonWriter& writer, const T& value)
{
    using namespace detail;
    if constexpr (std::is_enum_v<T>) {
        writer.number(static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (std::is_arithmetic_v<T>) {
        writer.number(value);
    } else if constexpr (std::is_same_v<T, std::string>) {
        writer.text(value);
    } else if constexpr (isA<T, std::vector> || isStdArray<T> || SetLike<T>) {
        writer.beginArray();
        for (const auto& element : value)
            saveJson<typename T::value_type>(writer, element);
        writer.end();
    } else if constexpr (MapLike<T>) {
        writer.beginArray();
        for (const auto& [key, mapped] : value) {
            writer.beginObject();
            writer.key("key");
            saveJson(writer, key);
            writer.key("value");
            saveJson(writer, mapped);
            writer.end();
        }
        writer.end();
    } else if constexpr (isA<T, std::pair>) {
        writer.beginObject();
        writer.key("first");
        saveJson(writer, value.first);
        writer.key("second");
        saveJson(writer, value.second);
        writer.end();
    } else if constexpr (isA<T, std::tuple>) {
        writer.beginObject();
        staticFor<std::tuple_size_v<T>>([&](auto i) {
            const std::string key = "tuple_element" + std::to_string(i());
            writer.key(key.c_str());
            saveJson(writer, std::get<i()>(value));
        });
        writer.end();
    } else if constexpr (isA<T, std::variant>) {
        writer.beginObject();
        writer.key("index");
        saveJson(writer, value.valueless_by_exception() ? -1 : static_cast<std::int32_t>(value.index()));
        if (!value.valueless_by_exception()) {
            writer.key("data");
            std::visit([&](const auto& alternative) { saveJson(writer, alternative); }, value);
        }
        writer.end();
    } else if constexpr (HasOwnForm<T>) {
        writer.beginObject();
        RegisterForm<T>::save(value, [&](const char* name, const auto& part) {
            writer.key(name);
            saveJson(writer, part);
        });
        writer.end();
    } else if constexpr (isReflected<T>) {
        writer.beginObject();
        forEach(MetaHolder<T>::members, [&](const auto& member) {
            writer.key(member.name);
            saveJson(writer, value.*(member.field));
        });
        writer.end();
    } else {
        static_assert(alwaysFalse<T>, "this type has no JSON form: describe the class with trovi::registerMembers");
    }
}

template <class T>
void loadJson(JsonReader& reader, T& value)
{
    using namespace detail;
    if constexpr (std::is_enum_v<T>) {
        std::underlying_type_t<T> number{};
        reader.number(number);
        value = static_cast<T>(number);
    } else if constexpr (std::is_arithmetic_v<T>) {
        reader.number(value);
    } else if constexpr (std::is_same_v<T, std::string>) {
        reader.text(value);
    } else if constexpr (isA<T, std::vector>) {
        reader.beginNode();
        value.resize(reader.size());
        for (std::size_t i = 0; i < value.size(); ++i) {
            if constexpr (std::is_same_v<typename T::value_type, bool>) {
                bool element = false;
                loadJson(reader, element);
                value[i] = element;
            } else {
                loadJson(reader, value[i]);
            }
        }
        reader.end();
    } else if constexpr (isStdArray<T>) {
        reader.beginNode();
        for (auto& element : value)
            loadJson(reader, element);
        reader.end();
    } else if constexpr (SetLike<T>) {
        reader.beginNode();
        value.clear();
        for (std::size_t count = reader.size(); count > 0; --count) {
            typename T::key_type element{};
            loadJson(reader, element);
            value.insert(std::move(element));
        }
        reader.end();
    } else if constexpr (MapLike<T>) {
        reader.beginNode();
        value.clear();
        for (std::size_t count = reader.size(); count > 0; --count) {
            typename T::key_type key{};
            typename T::mapped_type mapped{};
            reader.beginNode();
            reader.key("key");
            loadJson(reader, key);
            reader.key("value");
            loadJson(reader, mapped);
            reader.end();
            value.emplace(std::move(key), std::move(mapped));
        }
        reader.end();
    } else if constexpr (isA<T, std::pair>) {
        reader.beginNode();
        reader.key("first");
        loadJson(reader, value.first);
        reader.key("second");
        loadJson(reader, value.second);
        reader.end();
    } else if constexpr (isA<T, std::tuple>) {
        reader.beginNode();
        staticFor<std::tuple_size_v<T>>([&](auto i) {
            const std::string key = "tuple_element" + std::to_string(i());
            reader.key(key.c_str());
            loadJson(reader, std::get<i()>(value));
        });
        reader.end();
    } else if constexpr (isA<T, std::variant>) {
        reader.beginNode();
        std::int32_t index = 0;
        reader.key("index");
        reader.number(index);
        if (index >= static_cast<std::int32_t>(std::variant_size_v<T>))
            throwSerialError("Invalid 'index' selector when deserializing std::variant");
        if (index < 0)
            throwSerialError("Error traversing variant during load");
        reader.key("data");
        staticFor<std::variant_size_v<T>>([&](auto i) {
            if (static_cast<std::int32_t>(i()) == index)
                loadJson(reader, value.template emplace<i()>());
        });
        reader.end();
    } else if constexpr (HasOwnForm<T>) {
        reader.beginNode();
        RegisterForm<T>::load(value, [&](const char* name, auto& part) {
            reader.key(name);
            loadJson(reader, part);
        });
        reader.end();
    } else if constexpr (isReflected<T>) {
        reader.beginNode();
        forEach(MetaHolder<T>::members, [&](const auto& member) {
            reader.key(member.name);
            loadJson(reader, value.*(member.field));
        });
        reader.end();
    } else {
        static_assert(alwaysFalse<T>, "this type has no JSON form: describe the class with trovi::registerMembers");
    }
}

/// The document of `object`, indented by 4 blanks.
template <class T>
std::string toJson(const T& object)
{
    JsonWriter writer;
    saveJson(writer, object);
    return writer.finish();
}

/// Reads a document into `object`.
/// @throws std::runtime_error (cereal's exceptions are ones) saying what is missing or of the wrong kind; the members
///         before it keep their new values
template <class T>
void fromJson(T& object, const std::string& document)
{
    JsonReader reader(document);
    loadJson(reader, object);
}

/// Writes the document of `object` to the file at `path`: beside it first, then renamed over it, so that a good file
/// is never half replaced. A path that cannot be opened is no error; nothing is written then.
/// @throws std::runtime_error when the disk refuses the content; the old file stays
template <class T>
void saveStateToJSON(const T& object, const std::string& path)
{
    detail::replaceFile(path, toJson(object));
}

/// Reads the file at `path` into `object`. A file that is missing is read as an empty one, which is no document.
/// @throws as fromJson
template <class T>
void loadStateFromJSON(T& object, const std::string& path)
{
    fromJson(object, detail::readFile(path));
}

} // namespace trovi
