#include "trovi/Json.h"

#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sys/resource.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "Sample.h"
#include "trovi/StoreRef.h"

namespace sample {

struct Numbers {
    std::uint64_t u64 = 1;
    std::uint32_t u32 = 2;
    std::uint16_t u16 = 3;
    std::uint8_t u8 = 4;
    std::int64_t i64 = 5;
    std::int32_t i32 = 6;
    std::int8_t i8 = 7;
    bool flag = false;
    double real = 0.5;
    Colour colour = Colour::red;
    std::string text;
    std::vector<int> list;
    Pixel pixel;
};

} // namespace sample

template <>
constexpr auto trovi::registerMembers<sample::Numbers>()
{
    using N = sample::Numbers;
    return members(member("u64", &N::u64), member("u32", &N::u32), member("u16", &N::u16), member("u8", &N::u8),
                   member("i64", &N::i64), member("i32", &N::i32), member("i8", &N::i8), member("flag", &N::flag),
                   member("real", &N::real), member("colour", &N::colour), member("text", &N::text),
                   member("list", &N::list), member("pixel", &N::pixel));
}

namespace {

using namespace trovi;

/// A folder of its own, removed at the end.
class Folder {
public:
    Folder()
    {
        path_ = testing::TempDir() + "vorna-json-XXXXXX";
        if (mkdtemp(path_.data()) == nullptr)
            throw std::runtime_error("no folder for the test");
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    std::size_t entries() const
    {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(path_), {}));
    }

private:
    std::string path_;
};

std::string contentOf(const std::string& path)
{
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void write(const std::string& path, const std::string& content) { std::ofstream(path) << content; }

template <class T>
std::string errorOf(T& object, const std::string& document)
{
    try {
        fromJson(object, document);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

/// The document without its blanks and line ends.
template <class T>
std::string dense(const T& value)
{
    std::string text = toJson(value);
    std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
    return text;
}

TEST(Json, DocumentsByHand)
{
    EXPECT_EQ(toJson(StoreRef{1, 18446744073709551615U}),
              "{\n    \"value0\": {\n        \"storeId\": 1,\n        \"objId\": 18446744073709551615\n    }\n}");
    EXPECT_EQ(dense(sample::Pixel{1, true, -2, sample::Colour::blue, 0.5F}),
              R"({"value0":{"x":1,"on":true,"time":-2,"colour":2,"weight":0.5}})");
    EXPECT_EQ(dense(sample::Empty{}), R"({"value0":{}})");
    EXPECT_EQ(dense(std::array<std::array<int, 2>, 2>{{{1, 2}, {3, 4}}}), R"({"value0":[[1,2],[3,4]]})");
    EXPECT_EQ(dense(std::vector<std::string>{"a\"b", ""}), R"({"value0":["a\"b",""]})");
    EXPECT_EQ(dense(std::vector<int>{}), R"({"value0":[]})");
    EXPECT_EQ(dense(std::vector<bool>{true, false}), R"({"value0":[true,false]})");
    EXPECT_EQ(dense(std::unordered_map<std::string, int>{{"k", 1}}), R"({"value0":[{"key":"k","value":1}]})");
    EXPECT_EQ(dense(std::set<int>{2, 1}), R"({"value0":[1,2]})");
    EXPECT_EQ(dense(std::pair<int, bool>{1, true}), R"({"value0":{"first":1,"second":true}})");
    EXPECT_EQ(dense(std::tuple<int, char>{1, 'a'}), R"({"value0":{"tuple_element0":1,"tuple_element1":97}})");
    EXPECT_EQ(dense(std::variant<int, std::string>{"x"}), R"({"value0":{"index":1,"data":"x"}})");
    EXPECT_EQ(dense(0.1), R"({"value0":0.1})");
}

template <class T>
void checkRoundTrip(const T& value)
{
    T back{};
    fromJson(back, toJson(value));
    EXPECT_EQ(back, value) << toJson(value);
}

TEST(Json, ValuesComeBack)
{
    checkRoundTrip(sample::filledConfig());
    checkRoundTrip(std::set<std::string>{"b", "a"});
    checkRoundTrip(std::pair<int, std::string>{-1, "x"});
    checkRoundTrip(std::tuple<std::uint8_t, std::vector<int>>{255, {1, 2}});
    checkRoundTrip(std::vector<std::variant<int, std::string>>{1, "x"});
    checkRoundTrip(std::numeric_limits<std::int64_t>::min());
    for (const double value : {1.0 / 3, 1e-310, 1.7976931348623157e308, -0.0, 4.9406564584124654e-324})
        checkRoundTrip(value);
    for (const float value : {0.1F, 1.17549435e-38F, 3.40282347e38F})
        checkRoundTrip(value);
}

TEST(Json, MembersAreFoundByNameAndUnknownOnesAreLeftOut)
{
    StoreRef ref;
    fromJson(ref, R"({"value0": {"other": [1, {"x": 2}], "objId": 4, "storeId": 3, "more": null}})");
    EXPECT_EQ(ref, (StoreRef{3, 4}));
}

TEST(Json, WhatCannotBeReadIsNamed)
{
    const std::string unsigned64 = "rapidjson internal assertion failure: data_.f.flags & kUint64Flag";
    const std::string isObject = "rapidjson internal assertion failure: IsObject()";
    const std::string exhausted = "JSONInputArchive internal error: null or empty iterator to object or array!";
    const struct {
        const char* document;
        std::string error;
    } rows[] = {
        {"", isObject},
        {"garbled", isObject},
        {R"({"value0": {"u64": 1)", isObject},
        {"7", isObject},
        {"{}", exhausted},
        {"[]", exhausted},
        {R"({"value0": 1})", isObject},
        {R"({"value0": {}})", "JSON Parsing failed - provided NVP (u64) not found"},
        {R"({"value0": []})", "JSON Parsing failed - provided NVP (u64) not found"},
        {R"({"value0": {"u64": "1"}})", unsigned64},
        {R"({"value0": {"u64": -1}})", unsigned64},
        {R"({"value0": {"u64": 1.5}})", unsigned64},
        {R"({"value0": {"u64": 18446744073709551616}})", unsigned64},
        {R"({"value0": {"u64": 9, "u32": -1}})", "rapidjson internal assertion failure: data_.f.flags & kUintFlag"},
        {R"({"value0": {"u64": 9, "u32": 2, "u16": 70000}})", "JSON value 70000 is out of range of short unsigned int"},
        {R"({"value0": {"u64": 9, "u32": 2, "u16": 3, "u8": 256}})", "JSON value 256 is out of range of unsigned char"},
    };
    for (const auto& row : rows) {
        sample::Numbers numbers;
        EXPECT_EQ(errorOf(numbers, row.document), row.error) << row.document;
    }

    // one member after the other with a value of the wrong kind, the others as they were written
    const struct {
        const char* from;
        const char* to;
        std::string error;
    } changes[] = {
        {R"("i64":5)", R"("i64":"x")", "rapidjson internal assertion failure: data_.f.flags & kInt64Flag"},
        {R"("i32":6)", R"("i32":3000000000)", "rapidjson internal assertion failure: data_.f.flags & kIntFlag"},
        {R"("i8":7)", R"("i8":-129)", "JSON value -129 is out of range of signed char"},
        {R"("flag":false)", R"("flag":0)", "rapidjson internal assertion failure: IsBool()"},
        {R"("real":0.5)", R"("real":"0.5")", "rapidjson internal assertion failure: IsNumber()"},
        {R"("colour":0)", R"("colour":"red")", "rapidjson internal assertion failure: data_.f.flags & kUintFlag"},
        {R"("text":"")", R"("text":1)", "rapidjson internal assertion failure: IsString()"},
        {R"("list":[])", R"("list":{})", "rapidjson internal assertion failure: IsArray()"},
        {R"("list":[])", R"("list":3)", isObject},
        {R"("pixel":{)", R"("pixel":3,"rest":{)", isObject},
        {R"("weight":0.0)", R"("other":0.0)", "JSON Parsing failed - provided NVP (weight) not found"},
    };
    const std::string whole = dense(sample::Numbers{});
    for (const auto& change : changes) {
        std::string document = whole;
        const std::size_t at = document.find(change.from);
        ASSERT_NE(at, std::string::npos) << change.from << " in " << whole;
        document.replace(at, std::string_view(change.from).size(), change.to);
        sample::Numbers numbers;
        EXPECT_EQ(errorOf(numbers, document), change.error) << document;
    }

    std::array<int, 3> array{};
    EXPECT_EQ(errorOf(array, R"({"value0": [1, 2]})"), exhausted);
    std::variant<int, std::string> variant;
    EXPECT_EQ(errorOf(variant, R"({"value0": {"index": 2, "data": 0}})"),
              "Invalid 'index' selector when deserializing std::variant");
    EXPECT_EQ(errorOf(variant, R"({"value0": {"index": -1, "data": 0}})"), "Error traversing variant during load");
}

TEST(Json, AFailureKeepsWhatWasReadBefore)
{
    StoreRef ref{1, 2};
    EXPECT_EQ(errorOf(ref, R"({"value0": {"storeId": 9}})"), "JSON Parsing failed - provided NVP (objId) not found");
    EXPECT_EQ(ref, (StoreRef{9, 2}));
}

TEST(Json, DeepNestingIsRefusedBeforeTheParserSeesIt)
{
    const auto nested = [](std::size_t depth) {
        return R"({"value0": {"storeId": 1, "objId": 2, "x": )" + std::string(depth - 2, '[') +
               std::string(depth - 2, ']') + "}}";
    };
    StoreRef ref;
    EXPECT_EQ(errorOf(ref, nested(jsonMaxDepth)), "no error");
    EXPECT_EQ(errorOf(ref, nested(jsonMaxDepth + 1)), "JSON document is nested deeper than 512 levels");
    EXPECT_EQ(errorOf(ref, std::string(200'000, '[')), "JSON document is nested deeper than 512 levels");
    // brackets in a text are none, also behind an escaped quote
    EXPECT_EQ(errorOf(ref, R"({"value0": {"storeId": 1, "x": "\")" + std::string(1000, '[') + R"(", "objId": 2}})"),
              "no error");
}

TEST(Json, EveryWayToWriteZeroIsZero)
{
    for (const char* zero : {"0", "0.0", "0E98", "0e-98", "0.00e+5", "0.0000000000000000000000000000000000000"}) {
        for (const std::string sign : {"", "-"}) {
            double value = 1;
            fromJson(value, R"({"value0": )" + sign + zero + "}");
            EXPECT_EQ(value, 0) << sign << zero;
            EXPECT_EQ(std::signbit(value), sign == "-" && zero != std::string_view("0")) << sign << zero;
        }
    }
    std::vector<double> values;
    fromJson(values, R"({"value0": [10.0, 0.5e1, 1e0, 100]})");
    EXPECT_THAT(values, testing::ElementsAre(10, 5, 1, 100));
    for (const char* wrong : {"0.", "0e", "00.0", "0.0.0", "0e+-1", "01"})
        EXPECT_EQ(errorOf(values, R"({"value0": [)" + std::string(wrong) + "]}"),
                  "rapidjson internal assertion failure: IsObject()")
            << wrong;
    std::string text;
    fromJson(text, R"({"value0": "0E98 \\"})");
    EXPECT_EQ(text, "0E98 \\");
}

TEST(JsonFile, SavesAndLoads)
{
    const Folder folder;
    const std::string path = folder.file("state.json");
    saveStateToJSON(sample::filledConfig(), path);
    EXPECT_EQ(contentOf(path), toJson(sample::filledConfig()));
    saveStateToJSON(StoreRef{1, 2}, path); // shorter than before
    StoreRef ref;
    loadStateFromJSON(ref, path);
    EXPECT_EQ(ref, (StoreRef{1, 2}));
    EXPECT_EQ(folder.entries(), 1U); // nothing is left beside it
}

TEST(JsonFile, AMissingFileIsNoDocument)
{
    const Folder folder;
    StoreRef ref;
    try {
        loadStateFromJSON(ref, folder.file("missing.json"));
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "rapidjson internal assertion failure: IsObject()");
    }
}

TEST(JsonFile, APathThatCannotBeOpenedIsNoError)
{
    const Folder folder;
    saveStateToJSON(StoreRef{}, folder.file("no/such/folder.json"));
    saveStateToJSON(StoreRef{}, folder.file(""));
    EXPECT_EQ(folder.entries(), 0U);
}

TEST(JsonFile, AFullDiskLeavesTheOldFile)
{
    const Folder folder;
    const std::string path = folder.file("state.json");
    saveStateToJSON(StoreRef{1, 2}, path);
    // A limit on the size of files stands for the full disk; it holds for the process, so the write is in a child.
    const auto saveWithLimit = [&] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{16, 16};
        setrlimit(RLIMIT_FSIZE, &limit);
        try {
            saveStateToJSON(sample::filledConfig(), path);
        } catch (const std::runtime_error& error) {
            _exit(std::string_view(error.what()).starts_with("Cannot write the state file ") ? 7 : 8);
        }
        _exit(9);
    };
    EXPECT_EXIT(saveWithLimit(), testing::ExitedWithCode(7), "");
    EXPECT_EQ(contentOf(path), toJson(StoreRef{1, 2}));
    EXPECT_EQ(folder.entries(), 1U);
}

TEST(JsonFile, LinksModesAndDevicesStayWhatTheyAre)
{
    const Folder folder;
    const std::string path = folder.file("state.json");
    write(path, "old");
    std::filesystem::permissions(path, std::filesystem::perms(0640));
    const std::string link = folder.file("link.json");
    std::filesystem::create_symlink(path, link);
    saveStateToJSON(StoreRef{1, 2}, link);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(contentOf(path), toJson(StoreRef{1, 2}));
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0640));
    saveStateToJSON(StoreRef{}, "/dev/null");
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

} // namespace
