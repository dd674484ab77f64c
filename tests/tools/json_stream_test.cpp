// zqpod's JSON writer against the JSON library's own dump of the same document: whatever the
// writer streams must be the text a program gets from building the whole document and dumping
// it, byte for byte.

#include "tests/support/SampleDevice.h"
#include "tests/tools/ToolProcess.h"

#include "JsonStream.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>
#include <string>
#include <vector>

namespace zq {
namespace {

using Json = nlohmann::ordered_json;
using test::TempDir;
using zqpod::JsonStream;
using zqpod::writeElementsInPieces;

std::string dumped(const Json& document)
{
    return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

// Every built-in layout, as zq-make-sample writes it and zqpod lists it: the listing parsed
// back and dumped whole is the listing.
TEST(JsonStream, EverySampleLayoutIsTheDumpOfItsDocument)
{
    for (const std::string layout : {"", "--nano", "--phone", "--phone=modern", "--phone=ios6", "--phone=ios8"}) {
        SCOPED_TRACE(layout);
        TempDir dir;
        const std::string command = test::shellQuoted(ZQ_MAKE_SAMPLE_PATH) + " " + layout + " " +
                                    test::shellQuoted(dir.file("device")) + " >/dev/null";
        ASSERT_EQ(std::system(command.c_str()), 0);
        const auto run = test::zqpod({"library", dir.file("device"), "--json"});
        ASSERT_EQ(run.status, 0) << run.err;
        const Json document = Json::parse(run.out);
        EXPECT_FALSE(document.at("tracks").empty());
        EXPECT_EQ(dumped(document), run.out);
    }
}

/// Texts as a device may hold them: controls, quotes, every length of UTF-8 (four bytes:
/// beyond the BMP), and bytes that are not UTF-8, in runs shorter and longer than sixteen.
const std::vector<std::string>& awkwardTexts()
{
    static const std::vector<std::string> texts = {
        "",
        "plain ASCII text longer than sixteen characters",
        std::string("controls \x01\x1f\t\n\r\b\f, NUL \0 and DEL \x7f", 33),
        "quote \" backslash \\ slash /",
        "Café – 日本語 😀 𝄞 after sixteen plain bytes",
        "\xC0\x80 overlong, \xED\xA0\x80 surrogate, \xF4\x90\x80\x80 beyond, \xF5 no lead",
        "cut at the end \xC3",
        "\xE2\x82 cut three-byte \xF0\x9F\x98 cut four-byte \x80 lone continuation",
    };
    return texts;
}

// One document with every piece the writer has, written by the writer and built as a DOM.
TEST(JsonStream, EveryPieceIsWrittenAsTheLibraryDumpsIt)
{
    for (const std::size_t count : {0u, 1u, 1023u, 1024u, 1025u, 2305u}) {
        SCOPED_TRACE(count);
        std::ostringstream out;
        JsonStream json(out);
        Json expected = Json::object();

        json.open('{');
        json.key("texts", 2);
        json.open('[');
        Json texts = Json::array();
        for (const auto& text : awkwardTexts()) {
            json.item(4);
            json.text(std::optional<std::string_view>(text));
            texts.push_back(text);
        }
        json.item(4);
        json.text(std::optional<std::string>());
        texts.push_back(nullptr);
        json.close(']', 2);
        expected["texts"] = texts;

        // A document made apart, at depth.
        const Json model = {{"name", "iPod"}, {"sizes", {1, 2, Json::array()}}, {"empty", Json::object()}, {"none", nullptr}};
        json.key("model", 2);
        json.value(model, 2);
        expected["model"] = model;

        // A long array: made in pieces on two threads from 1024 elements on.
        json.key("elements", 2);
        json.open('[', count == 0);
        Json elements = Json::array();
        writeElementsInPieces(json, count, [&](JsonStream& into, std::size_t i) {
            into.element(4);
            into.open('{');
            into.member("\n      \"index\": ");
            into.number(i);
            into.key("even", 6);
            into.boolean(i % 2 == 0);
            into.key("negative", 6);
            into.number(-static_cast<long long>(i));
            into.key("date", 6);
            into.date(i % 3 ? std::optional<zq::Date>(zq::Date(86400.0 * static_cast<double>(i))) : std::nullopt);
            into.close('}', 4);
        });
        for (std::size_t i = 0; i < count; ++i)
            elements.push_back({{"index", i},
                                {"even", i % 2 == 0},
                                {"negative", -static_cast<long long>(i)},
                                {"date", i % 3 ? Json(zq::Date(86400.0 * static_cast<double>(i)).iso8601()) : Json(nullptr)}});
        json.close(']', 2, count == 0);
        expected["elements"] = elements;

        json.close('}', 0);
        json.raw("\n");
        json.flush();
        EXPECT_EQ(out.str(), dumped(expected));
    }
}

} // namespace
} // namespace zq
