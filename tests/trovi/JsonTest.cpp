#include "trovi/Json.h"

#include <cmath>

#include <gmock/gmock.h>

#include "../../fuzz/Everything.h"
#include "../ErrorOf.h"
#include "../util/TemporaryFile.h"

namespace {

using namespace trovi;

const std::string isObject = "rapidjson internal assertion failure: IsObject()";
const std::string exhausted = "JSONInputArchive internal error: null or empty iterator to object or array!";

template <class T>
std::string readingError(T& object, const std::string& document)
{
    return errorOf([&] { fromJson(object, document); });
}

TEST(Json, ADocumentIsIndentedAndItsMembersAreFoundByName)
{
    EXPECT_EQ(toJson(StoreRef{1, 18446744073709551615U}),
              "{\n    \"value0\": {\n        \"storeId\": 1,\n        \"objId\": 18446744073709551615\n    }\n}");
    StoreRef ref;
    fromJson(ref, R"({"value0": {"other": [1, {"x": 2}], "objId": 4, "storeId": 3, "more": null}})");
    EXPECT_EQ(ref, (StoreRef{3, 4}));
    // a failure keeps what was read before
    EXPECT_EQ(readingError(ref, R"({"value0": {"storeId": 9}})"),
              "JSON Parsing failed - provided NVP (objId) not found");
    EXPECT_EQ(ref, (StoreRef{9, 4}));
}

TEST(Json, WhatCannotBeReadIsNamed)
{
    const std::string assertion = "rapidjson internal assertion failure: ";
    const std::string unsigned64 = assertion + "data_.f.flags & kUint64Flag";
    const std::string noFlag = "JSON Parsing failed - provided NVP (flag) not found";
    const struct {
        const char* document;
        std::string error;
    } documents[] = {
        {"", isObject},
        {"garbled", isObject},
        {R"({"value0": {"flag": true)", isObject},
        {"7", isObject},
        {"{}", exhausted},
        {"[]", exhausted},
        {R"({"value0": 1})", isObject},
        {R"({"value0": {}})", noFlag},
        {R"({"value0": []})", noFlag},
    };
    Everything target;
    for (const auto& row : documents)
        EXPECT_EQ(readingError(target, row.document), row.error) << row.document;

    // one member after the other with a value of the wrong kind, the others as they were written
    const struct {
        const char* from;
        const char* to;
        std::string error;
    } changes[] = {
        {R"("flag":true)", R"("flag":0)", assertion + "IsBool()"},
        {R"("i8":-1)", R"("i8":-129)", "JSON value -129 is out of range of signed char"},
        {R"("u16":2)", R"("u16":70000)", "JSON value 70000 is out of range of short unsigned int"},
        {R"("u16":2)", R"("u16":-1)", assertion + "data_.f.flags & kUintFlag"},
        {R"("i32":-3)", R"("i32":3000000000)", assertion + "data_.f.flags & kIntFlag"},
        {R"("u64":4)", R"("u64":"1")", unsigned64},
        {R"("u64":4)", R"("u64":-1)", unsigned64},
        {R"("u64":4)", R"("u64":1.5)", unsigned64},
        {R"("u64":4)", R"("u64":18446744073709551616)", unsigned64},
        {R"("real":)", R"("real":"0.5","rest":)", assertion + "IsNumber()"},
        {R"("text":)", R"("text":1,"rest":)", assertion + "IsString()"},
        {R"("numbers":)", R"("numbers":{},"rest":)", assertion + "IsArray()"},
        {R"("numbers":)", R"("numbers":3,"rest":)", isObject},
        {R"("timestamp":3)", R"("timestamp":"x")", assertion + "data_.f.flags & kInt64Flag"},
        {R"("objId":8)", R"("other":8)", "JSON Parsing failed - provided NVP (objId) not found"},
        {R"("refs":)", R"("refs":[],"rest":)", exhausted},
        {R"("refs":)", R"("refs":[{},{},{}],"rest":)", "JSON array 'refs' has 3 elements, but 2 at most"},
        {R"("index":2)", R"("index":3)", "Invalid 'index' selector when deserializing std::variant"},
        {R"("index":2)", R"("index":-1)", "Error traversing variant during load"},
    };
    std::string whole = toJson(filledEverything());
    std::erase_if(whole, [](char c) { return c == ' ' || c == '\n'; });
    for (const auto& change : changes) {
        std::string document = whole;
        const std::size_t at = document.find(change.from);
        ASSERT_NE(at, std::string::npos) << change.from << " in " << whole;
        document.replace(at, std::string_view(change.from).size(), change.to);
        EXPECT_EQ(readingError(target, document), change.error) << document;
    }
    // an array within a member has the member's name, also after elements with keys of their own
    using Pairs = std::array<std::array<StoreRef, 1>, 2>;
    std::map<std::string, Pairs> map;
    const std::string ref = R"({"storeId": 1, "objId": 2})";
    EXPECT_EQ(readingError(map, R"({"value0": [{"key": "k", "value": [[)" + ref + "], [" + ref + ", " + ref + "]]}]}"),
              "JSON array 'value' has 2 elements, but 1 at most");
}

TEST(Json, DeepAndLongDocumentsAreRefusedBeforeTheParserSeesThem)
{
    const auto document = [](const std::string& rest) { return R"({"value0": {"storeId": 1, "objId": 2, )" + rest; };
    const auto nested = [&](std::size_t depth) {
        return document("\"x\": " + std::string(depth - 2, '[') + std::string(depth - 2, ']') + "}}");
    };
    const std::string tooDeep = "JSON document is nested deeper than 512 levels";
    StoreRef ref;
    EXPECT_EQ(readingError(ref, nested(jsonMaxDepth)), "no error");
    EXPECT_EQ(readingError(ref, nested(jsonMaxDepth + 1)), tooDeep);
    EXPECT_EQ(readingError(ref, std::string(200'000, '[')), tooDeep);
    // brackets in a text don't count, also behind an escaped quote
    EXPECT_EQ(readingError(ref, document(R"("x": "\")" + std::string(1000, '[') + "\"}}")), "no error");

    const std::string tooLong = "JSON document has more than 67108864 bytes";
    std::string longest = document("\"x\": 3}}");
    longest.resize(jsonMaxSize, ' ');
    EXPECT_EQ(readingError(ref, longest), "no error");
    EXPECT_EQ(readingError(ref, longest + " "), tooLong);
    EXPECT_EQ(errorOf([&] { loadStateFromJSON(ref, "/dev/zero"); }), tooLong);
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
        EXPECT_EQ(readingError(values, R"({"value0": [)" + std::string(wrong) + "]}"), isObject) << wrong;
    std::string text;
    fromJson(text, R"({"value0": "0E98 \\"})");
    EXPECT_EQ(text, "0E98 \\");
}

TEST(Json, FilesAreSavedAndLoaded)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("state.json");
    saveStateToJSON(filledEverything(), path);
    EXPECT_EQ(contentOf(path), toJson(filledEverything()));
    saveStateToJSON(StoreRef{1, 2}, path); // shorter than before
    StoreRef ref;
    loadStateFromJSON(ref, path);
    EXPECT_EQ(ref, (StoreRef{1, 2}));
    for (const char* missing : {"missing.json", ""}) // the second is the folder itself
        EXPECT_EQ(errorOf([&] { loadStateFromJSON(ref, folder.file(missing)); }), isObject);
}

} // namespace
