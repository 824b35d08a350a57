#pragma once
// The JSON form of values, and state files.
//
// The document is what cereal's JSON archives make of the same types: a root object with one node "value0"; a class is
// an object of its members by name; numbers, enumerations and bool are themselves; vector, array and set are arrays; a
// map is an array of {"key", "value"}; a pair has "first" and "second", a tuple "tuple_element0" and so on, a variant
// "index" and "data". When reading, members are found by name in any order and unknown ones are ignored. After a
// failure the target keeps what was read before it.
//
// cereal's headers, which are heavy, stay inside Json.cpp: a type costs only calls of JsonWriter and JsonReader.

#include <memory>
#include <string>

#include "trovi/Serial.h"
#include "util/ReplaceFile.h"

namespace trovi {

/// Deepest nesting of arrays and objects that is read. The parser recurses for each level, so a hostile document could
/// otherwise exhaust the stack. The deepest configuration has about 12 levels.
inline constexpr std::size_t jsonMaxDepth = 512;

/// Longest document that is read, in bytes. Parsing takes up to 18 times the size of the document, so a huge one could
/// otherwise exhaust the memory. The configuration of a chip whose memories are all full takes 38 MB.
inline constexpr std::size_t jsonMaxSize = std::size_t{64} << 20;

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
    std::unique_ptr<Archive> archive;
};

/// Reads one document, value by value.
/// Every function throws cereal::Exception (cereal::RapidJSONException for a value of the wrong kind).
class JsonReader {
public:
    explicit JsonReader(const std::string& document);
    ~JsonReader();
    JsonReader(const JsonReader&) = delete;
    JsonReader& operator=(const JsonReader&) = delete;

    /// Key of the value that comes next. `text` must live until that value was read.
    void key(const char* text);
    void beginNode();
    /// Begins an array; one of more than `most` elements is refused, with its key.
    void beginArray(std::size_t most);
    /// Number of elements of the array that was begun.
    std::size_t size();
    void end();
    template <class T>
    void number(T& value);
    void text(std::string& value);

private:
    struct Archive;
    std::unique_ptr<Archive> archive;
};

template <class T>
void saveJson(JsonWriter& writer, const T& value);
template <class T>
void loadJson(JsonReader& reader, T& value);

namespace detail {

/// The document in the file at `path`; an empty one when it can't be read. Of a file beyond the limit only the
/// beginning, which is too long as well.
std::string documentIn(const std::string& path);
[[noreturn]] void throwValueOutOfRange(const std::string& value, std::string_view type);

/// Values that are objects with the same keys whatever they hold.
template <class T>
inline constexpr bool hasParts = isA<T, std::pair> || isA<T, std::tuple> || isReflected<T>;

/// Calls `visit(key, part)` for each of them, in order.
template <class T, class Visit>
void visitParts(T& value, Visit visit)
{
    using Value = std::remove_const_t<T>;
    if constexpr (isA<Value, std::pair>) {
        visit("first", value.first);
        visit("second", value.second);
    } else if constexpr (isA<Value, std::tuple>) {
        staticFor<std::tuple_size_v<Value>>([&](auto i) {
            const std::string key = "tuple_element" + std::to_string(i());
            visit(key.c_str(), std::get<i()>(value));
        });
    } else {
        forEach(MetaHolder<Value>::members, [&](const auto& member) { visit(member.name, value.*(member.field)); });
    }
}

template <class Range>
void saveElements(JsonWriter& writer, const Range& range)
{
    writer.beginArray();
    for (const auto& element : range) {
        if constexpr (MapLike<Range>) {
            writer.beginObject();
            writer.key("key");
            saveJson(writer, element.first);
            writer.key("value");
            saveJson(writer, element.second);
            writer.end();
        } else {
            saveJson<typename Range::value_type>(writer, element);
        }
    }
    writer.end();
}

template <class Variant>
void saveVariant(JsonWriter& writer, const Variant& value)
{
    writer.beginObject();
    writer.key("index");
    writer.number(value.valueless_by_exception() ? -1 : static_cast<std::int32_t>(value.index()));
    if (!value.valueless_by_exception()) {
        writer.key("data");
        std::visit([&](const auto& alternative) { saveJson(writer, alternative); }, value);
    }
    writer.end();
}

template <class Vector>
void loadVector(JsonReader& reader, Vector& values)
{
    values.resize(reader.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        if constexpr (std::is_same_v<typename Vector::value_type, bool>) {
            bool element = false;
            loadJson(reader, element);
            values[i] = element;
        } else {
            loadJson(reader, values[i]);
        }
    }
}

template <class Set>
void loadSet(JsonReader& reader, Set& set)
{
    set.clear();
    for (std::size_t count = reader.size(); count > 0; --count) {
        typename Set::key_type element{};
        loadJson(reader, element);
        set.insert(std::move(element));
    }
}

template <class Map>
void loadMap(JsonReader& reader, Map& map)
{
    map.clear();
    for (std::size_t count = reader.size(); count > 0; --count) {
        typename Map::key_type key{};
        typename Map::mapped_type mapped{};
        reader.beginNode();
        reader.key("key");
        loadJson(reader, key);
        reader.key("value");
        loadJson(reader, mapped);
        reader.end();
        map.emplace(std::move(key), std::move(mapped));
    }
}

template <class... Ts>
void loadVariant(JsonReader& reader, std::variant<Ts...>& value)
{
    std::int32_t index = 0;
    reader.key("index");
    reader.number(index);
    if (index >= static_cast<std::int32_t>(sizeof...(Ts)))
        throwSerialError("Invalid 'index' selector when deserializing std::variant");
    if (index < 0)
        throwSerialError("Error traversing variant during load");
    reader.key("data");
    staticFor<sizeof...(Ts)>([&](auto i) {
        if (static_cast<std::int32_t>(i()) == index)
            loadJson(reader, value.template emplace<i()>());
    });
}

/// The content of a node that was begun: an array or an object.
template <class T>
void loadNode(JsonReader& reader, T& value)
{
    const auto loadPart = [&reader](const char* key, auto& part) {
        reader.key(key);
        loadJson(reader, part);
    };
    if constexpr (isA<T, std::vector>)
        loadVector(reader, value);
    else if constexpr (SetLike<T>)
        loadSet(reader, value);
    else if constexpr (MapLike<T>)
        loadMap(reader, value);
    else if constexpr (isA<T, std::variant>)
        loadVariant(reader, value);
    else if constexpr (HasOwnForm<T>)
        RegisterForm<T>::load(value, loadPart);
    else if constexpr (hasParts<T>)
        visitParts(value, loadPart);
    else
        static_assert(alwaysFalse<T>, "this type has no JSON form: describe the class with trovi::registerMembers");
}

} // namespace detail

template <class T>
void saveJson(JsonWriter& writer, const T& value)
{
    using namespace detail;
    const auto savePart = [&writer](const char* key, const auto& part) {
        writer.key(key);
        saveJson(writer, part);
    };
    if constexpr (std::is_enum_v<T>) {
        writer.number(static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (std::is_arithmetic_v<T>) {
        writer.number(value);
    } else if constexpr (std::is_same_v<T, std::string>) {
        writer.text(value);
    } else if constexpr (isA<T, std::vector> || isStdArray<T> || SetLike<T> || MapLike<T>) {
        saveElements(writer, value);
    } else if constexpr (isA<T, std::variant>) {
        saveVariant(writer, value);
    } else if constexpr (HasOwnForm<T>) {
        writer.beginObject();
        RegisterForm<T>::save(value, savePart);
        writer.end();
    } else if constexpr (hasParts<T>) {
        writer.beginObject();
        visitParts(value, savePart);
        writer.end();
    } else {
        static_assert(alwaysFalse<T>, "this type has no JSON form: describe the class with trovi::registerMembers");
    }
}

template <class T>
void loadJson(JsonReader& reader, T& value)
{
    if constexpr (std::is_enum_v<T>) {
        std::underlying_type_t<T> number{};
        reader.number(number);
        value = static_cast<T>(number);
    } else if constexpr (std::is_arithmetic_v<T>) {
        reader.number(value);
    } else if constexpr (std::is_same_v<T, std::string>) {
        reader.text(value);
    } else if constexpr (detail::isStdArray<T>) {
        reader.beginArray(value.size());
        for (auto& element : value)
            loadJson(reader, element);
        reader.end();
    } else {
        reader.beginNode();
        detail::loadNode(reader, value);
        reader.end();
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

/// Reads a document of up to jsonMaxSize bytes and jsonMaxDepth levels into `object`.
/// @throws std::runtime_error (cereal's exceptions are ones) saying what is missing, of the wrong kind or too large;
///         the members before it keep their new values
template <class T>
void fromJson(T& object, const std::string& document)
{
    JsonReader reader(document);
    loadJson(reader, object);
}

/// Writes the document of `object` to the file at `path`, as util::replaceFile: a good file is never half replaced, and
/// a path that can't be opened is no error; nothing is written then.
/// @throws std::runtime_error when the disk refuses the content; the old file stays
template <class T>
void saveStateToJSON(const T& object, const std::string& path)
{
    util::replaceFile(path, toJson(object));
}

/// Reads the file at `path` into `object`. A missing file, or a folder, is read as an empty file, which is no valid
/// document.
/// @throws as fromJson
template <class T>
void loadStateFromJSON(T& object, const std::string& path)
{
    fromJson(object, detail::documentIn(path));
}

} // namespace trovi
